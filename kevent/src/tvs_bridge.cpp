#include "tvs_bridge.h"

#include <Ecore.h>

using namespace lumio::tvs;
using lumio::QueuedEvent;

void lumio::tvs::LogDropped(int index) {
  switch (index) {
  case kPes:
    LUMIO_LOG_FOR("t_PesDataCallback", kError, "No PES subscriptions !!");
    break;
  case kCaption:
    LUMIO_LOG_FOR("t_CaptionCallback", kError, "No Caption subscriptions !!");
    break;
  case kProgram:
    LUMIO_LOG_FOR("t_ProgramCallback", kError, "no subscription for program !");
    break;
  default:
    LUMIO_LOG_FOR("t_SignalCallback", kError, "No subscriptions !");
  }
}

namespace {

// Creates the event type and its handler with the first event of a kind. Both stay until the process ends.
bool CreateEventType(int index) {
  if (Subscriber::m_eventType[index] != 0) {
    return true;
  }
  const int type = ecore_event_type_new();
  if (type == ECORE_EVENT_NONE || !ecore_event_handler_add(type, Subscriber::m_DeferredEventHandler, nullptr)) {
    return false;
  }
  Subscriber::m_eventType[index] = type;
  return true;
}

bool Deliver(QueuedEvent *queued) {
  return CreateEventType(queued->index) &&
         ecore_event_add(Subscriber::m_eventType[queued->index], queued->event, nullptr, nullptr);
}

void Drop(QueuedEvent *queued) {
  LogDropped(queued->index);
  if (queued->index == kPes) {
    delete static_cast<TPesEvent *>(queued->event)->data;
  } else if (queued->index == kCaption) {
    delete static_cast<TCaptionEvent *>(queued->event)->data;
  }
  free(queued->event);
}

lumio::MainLoopQueue g_queue(Deliver, Drop);

} // namespace

bool lumio::tvs::Enqueue(QueuedEvent *queued) { return g_queue.Push(queued); }
