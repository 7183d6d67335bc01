// The viewer's state changes: a registry of callbacks that run with its lock held.
#include "LumioStateSubscriber.h"

#include <Kestrel/CAutoLock.h>

// Needed for its static initialiser alone, which runs first in this file: the standard streams are then destroyed after
// the maps and the mutex below, and code that runs at exit may still print.
#include <iostream>

#include "log.h"

using lumio::kError;

std::map<CLumioStateSubscriber::StateChangedCallback, void *> CLumioStateSubscriber::m_StateChangedCBMap;
std::map<CLumioStateSubscriber::StateChangedCallback, std::string> CLumioStateSubscriber::m_StateChangedCBRequesterMap;
Kestrel::TCMutex viewerMutex;

CLumioStateSubscriber::CLumioStateSubscriber(const std::string &moduleName) : m_moduleName(moduleName) {}

bool CLumioStateSubscriber::RegisterLumioStateChangeCb(StateChangedCallback callback, void *userData) {
  CAutoLock lock(viewerMutex);
  if (!callback) {
    LUMIO_LOG(kError, "can not register null");
    return false;
  }
  if (m_StateChangedCBMap.count(callback) != 0) {
    // Deliberate: the text speaks of success. A caller sees it when the callback is refused, because it is registered
    // already (docs/surprises.md).
    LUMIO_LOG(kError, "registered alreadly success");
    return false;
  }
  LUMIO_LOG(kError, "m_moduleName is %s register, function point is [%p]", m_moduleName.c_str(),
            reinterpret_cast<void *>(callback));
  m_StateChangedCBMap.emplace(callback, userData);
  m_StateChangedCBRequesterMap.emplace(callback, m_moduleName); // keeps a name that is already there
  return true;
}

bool CLumioStateSubscriber::UnregisterLumioStateChangeCb(StateChangedCallback callback) {
  CAutoLock lock(viewerMutex);
  if (m_StateChangedCBMap.empty()) {
    // Deliberate: the text names a map of the PVR subscriber. A caller sees it when no callback is registered
    // (docs/surprises.md).
    LUMIO_LOG(kError, "m_PvrResultCBMap is empty");
    return false;
  }
  const auto entry = m_StateChangedCBMap.find(callback);
  const auto requester = m_StateChangedCBRequesterMap.find(callback);
  if (entry == m_StateChangedCBMap.end()) {
    LUMIO_LOG(kError, "registered did not exist, should not unregister");
    return false;
  }
  LUMIO_LOG(kError, "m_moduleName is %s unregister", m_moduleName.c_str());
  m_StateChangedCBMap.erase(entry);
  if (requester == m_StateChangedCBRequesterMap.end()) {
    LUMIO_LOG(kError, "registered did not exist, should not unregister"); // the registration had no name
    return false;
  }
  m_StateChangedCBRequesterMap.erase(requester);
  return true;
}

void CLumioStateSubscriber::HandleStateChanged(ELUMIO_STATE state) {
  CAutoLock lock(viewerMutex);
  LUMIO_LOG(kError, "State[%d]", static_cast<int>(state));
  if (m_StateChangedCBMap.empty()) {
    LUMIO_LOG(kError, "map is empty");
    return;
  }
  // Deliberate: walks in the map's order. A caller sees callbacks run in the order of their addresses
  // (docs/surprises.md).
  for (auto entry = m_StateChangedCBMap.begin(); entry != m_StateChangedCBMap.end();) {
    const auto [callback, user_data] = *entry;
    const auto requester = m_StateChangedCBRequesterMap.find(callback);
    if (requester == m_StateChangedCBRequesterMap.end()) {
      // Deliberate: the text is that of an unregistration. A caller sees it when a registration without a name is
      // skipped (docs/surprises.md).
      LUMIO_LOG(kError, "registered did not exist, should not unregister");
    } else {
      const char *name = requester->second.c_str();
      const void *address = name; // taken before the call, which may end the registration
      LUMIO_LOG(kError, "before [%s]", name);
      callback(state, user_data);
      // Deliberate: logs the address of the name, not the name. A caller sees "after [0x...]" (docs/surprises.md).
      LUMIO_LOG(kError, "after [%p]", address);
    }
    // Looked up again: where the platform's lock is recursive, the callback may have changed the map.
    entry = m_StateChangedCBMap.upper_bound(callback);
  }
}
