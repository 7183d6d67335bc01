// The bridge from the service's threads to the main loop. A kind of notification posts its record here; Ecore then
// calls CTVServiceSubscriber::m_DeferredEventHandler with it on the main-loop thread.
#pragma once

#include <cstdlib>
#include <new>

#include "main_loop_queue.h"
#include "tvs_shared.h"

namespace lumio::tvs {

// Places in m_eventType.
//
// Deliberate: places 1 and 2 stay 0. Sections and DSM messages are not posted; they are delivered on the service's
// thread (docs/surprises.md).
enum EventIndex { kSignal = 0, kPes = 3, kCaption = 4, kProgram = 5 };

// The function that deliveries on the main loop log as.
constexpr char kHandler[] = "m_DeferredEventHandler";

// Logs a notification that is dropped because nobody subscribes, memory is short, or the lock is refused. It logs as
// the function that the service calls.
void LogDropped(int index);

// What is posted: the record, and behind it what the queue needs. The event loop frees both with one free().
template <class Event> struct Record {
  Event event;
  QueuedEvent queued;
};

// Returns false if memory is short; the event is then still the caller's.
bool Enqueue(QueuedEvent *queued);

// Copies `event` into a record and sends it to the main loop. Returns false if memory is short.
template <class Event> bool Post(EventIndex index, const Event &event) {
  void *memory = malloc(sizeof(Record<Event>));
  if (!memory) {
    return false;
  }
  auto *record = new (memory) Record<Event>{event, {nullptr, index, memory}};
  if (!Enqueue(&record->queued)) {
    free(memory);
    return false;
  }
  return true;
}

} // namespace lumio::tvs
