// The viewer's state changes: a registry of callbacks, called under its lock.
#include "LumioStateSubscriber.h"

#include <Kestrel/CAutoLock.h>

#include <iostream> // its initialiser comes before the maps: the standard streams outlive them

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
    LUMIO_LOG(kError, "registered alreadly success");
    return false;
  }
  LUMIO_LOG(kError, "m_moduleName is %s register, function point is [%p]", m_moduleName.c_str(),
            reinterpret_cast<void *>(callback));
  m_StateChangedCBMap.emplace(callback, userData);
  m_StateChangedCBRequesterMap.emplace(callback, m_moduleName); // a name that is left over stays
  return true;
}

bool CLumioStateSubscriber::UnregisterLumioStateChangeCb(StateChangedCallback callback) {
  CAutoLock lock(viewerMutex);
  if (m_StateChangedCBMap.empty()) {
    LUMIO_LOG(kError, "m_PvrResultCBMap is empty"); // the wording of the PVR subscriber; log filters know it
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
    LUMIO_LOG(kError, "registered did not exist, should not unregister"); // half of it did, and is gone
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
  for (auto entry = m_StateChangedCBMap.begin(); entry != m_StateChangedCBMap.end();) {
    const auto [callback, user_data] = *entry;
    const auto requester = m_StateChangedCBRequesterMap.find(callback);
    if (requester == m_StateChangedCBRequesterMap.end()) {
      // Skipped, since nobody can be named as its owner; the wording is that of an unregistration.
      LUMIO_LOG(kError, "registered did not exist, should not unregister");
    } else {
      const char *name = requester->second.c_str();
      const void *address = name; // logged after the call in place of the name, which tells equal names apart
      LUMIO_LOG(kError, "before [%s]", name);
      callback(state, user_data);
      LUMIO_LOG(kError, "after [%p]", address);
    }
    // Found anew: where the platform's lock is recursive, the callback may have changed the map.
    entry = m_StateChangedCBMap.upper_bound(callback);
  }
}
