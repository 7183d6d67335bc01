// The front door of the TV-service subscriptions: the two functions that reach into every kind. Each kind has a room of
// its own, tvs_*.cpp, from setting the callback to the release; all of them rest on tvs_bridge.h and tvs_shared.h.
#include "TVServiceSubscriber.h"

#include <Ecore.h>

#include <algorithm>
#include <iterator>
#include <new>

#include "tvs_bridge.h"
#include "tvs_dsm.h"
#include "tvs_program.h"
#include "tvs_section.h"
#include "tvs_shared.h"
#include "tvs_signal.h"
#include "tvs_stream.h"

using namespace lumio::tvs;

namespace {

void Handle(int index, const void *event) {
  switch (index) {
  case kSignal:
    return HandleSignal(*static_cast<const TSignalEvent *>(event));
  case kPes:
    return HandlePes(*static_cast<const TPesEvent *>(event));
  case kCaption:
    return HandleCaption(*static_cast<const TCaptionEvent *>(event));
  case kProgram:
    return HandleProgram(*static_cast<const TProgramEvent *>(event));
  default:
    return;
  }
}

} // namespace

Eina_Bool CTVServiceSubscriber::m_DeferredEventHandler(void *, int type, void *event) {
  if (type == ECORE_EVENT_NONE) { // the table holds this for types that do not exist yet
    return ECORE_CALLBACK_DONE;
  }
  const int index = static_cast<int>(std::find(std::begin(m_eventType), std::end(m_eventType), type) - m_eventType);
  try {
    Handle(index, event);
  } catch (const std::bad_alloc &) {
    LogDropped(index);
  } catch (const LockRefused &) {
    LogDropped(index);
  }
  return ECORE_CALLBACK_DONE;
}

// Deliberate: only the DSM object and the programme subscriber are reset. After a release the other kinds use the
// service's old object, and no new one is created (docs/surprises.md).
void CTVServiceSubscriber::ReleaseAll() {
  LUMIO_LOG(kTrace, "Release All TVS subscriptions !!");
  CAutoLock lock(mutex, CAutoLock::DESTROY_ON_RELEASE);
  ++g_releases;
  ReleaseSignals();
  ReleaseSections();
  ReleaseDsm();
  ReleasePes();
  ReleaseCaptions();
  ReleasePrograms();
  ReleaseCopies();
}
