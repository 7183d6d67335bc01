// Results and states of the recording service: one registration per kind at the service, and any number of callbacks
// behind it, which run with one lock held.
#include "PvrServiceSubscriber.h"

#include <Kestrel/CAutoLock.h>

#include <cstddef>
// Needed for its static initialiser alone, which runs first in this file: the standard streams are then destroyed after
// the maps and the mutex below, and code that runs at exit may still print.
#include <iostream>

#include "log.h"

using lumio::kError;

std::map<CPvrServiceSubscriber::PvrResultCallback, void *> CPvrServiceSubscriber::m_PvrResultCBMap;
std::map<CPvrServiceSubscriber::PvrStateCallback, void *> CPvrServiceSubscriber::m_pvrStateCallbackMap;
Kestrel::TCMutex pvrMutex;

static_assert(sizeof(ps_result_thirdpart) == 28 && offsetof(ps_result_thirdpart, result) == 8,
              "the platform's layout: seven 32-bit words, the third of which is the result code");

namespace {

constexpr int kDone = 0;
constexpr int kRefused = -2;
constexpr int kServiceReady = 1; // what svc_pvr_service_init returns on success

// Everything in which the two kinds of notification differ.
template <class Callback> struct Kind {
  std::map<Callback, void *> &callbacks;
  const char *name; // of the map, for the log
  Callback trampoline;
  int (*register_at_service)(Callback, void *);
  int (*unregister_at_service)(Callback);
};

constexpr Kind<CPvrServiceSubscriber::PvrResultCallback> kResults = {
    CPvrServiceSubscriber::m_PvrResultCBMap, "m_PvrResultCBMap", CPvrServiceSubscriber::t_PvrResultCB,
    svc_pvr_register_to_other_apps_cb, svc_pvr_unregister_to_other_apps_cb};
constexpr Kind<CPvrServiceSubscriber::PvrStateCallback> kStates = {
    CPvrServiceSubscriber::m_pvrStateCallbackMap, "m_pvrStateCallbackMap", CPvrServiceSubscriber::t_PvrStateCB,
    svc_pvr_register_get_pvr_state_cb, svc_pvr_unregister_get_pvr_state_cb};

// Deliberate: contacts the service before it tests the callback. A caller sees the service stay connected, and the
// process registered, after a first registration with a null callback (docs/surprises.md).
template <class Callback>
int Register(const char *function, const Kind<Callback> &kind, CPvrServiceSubscriber *subscriber, Callback callback,
             void *user_data) {
  CAutoLock lock(pvrMutex);
  if (kResults.callbacks.empty() && kStates.callbacks.empty()) {
    const int answer = svc_pvr_service_init();
    if (answer != kServiceReady) {
      LUMIO_LOG_FOR(function, kError, "Create PVR Service failed, %d", answer);
      return kRefused;
    }
  }
  if (kind.callbacks.empty()) {
    const int answer = kind.register_at_service(kind.trampoline, subscriber);
    if (answer != 0) {
      LUMIO_LOG_FOR(function, kError, "call pvr register cb failed, %d", answer);
      return kRefused;
    }
  }
  if (!callback) {
    LUMIO_LOG_FOR(function, kError, "can not register null");
    return kRefused;
  }
  if (kind.callbacks.count(callback) != 0) {
    // Deliberate: the text speaks of success. A caller sees it when the callback is refused, because it is registered
    // already (docs/surprises.md).
    LUMIO_LOG_FOR(function, kError, "registered alreadly success");
    return kRefused;
  }
  LUMIO_LOG_FOR(function, kError, "m_moduleName is %s register, function point is [%p]",
                subscriber->m_moduleName.c_str(), reinterpret_cast<void *>(callback));
  kind.callbacks.emplace(callback, user_data);
  return kDone;
}

template <class Callback>
int Unregister(const char *function, const Kind<Callback> &kind, const std::string &module_name, Callback callback) {
  CAutoLock lock(pvrMutex);
  if (kind.callbacks.empty()) {
    LUMIO_LOG_FOR(function, kError, "%s is empty", kind.name);
    return kRefused;
  }
  const auto entry = kind.callbacks.find(callback);
  if (entry == kind.callbacks.end()) {
    LUMIO_LOG_FOR(function, kError, "registered did not exist, should not unregister");
    return kRefused;
  }
  LUMIO_LOG_FOR(function, kError, "m_moduleName is %s unregister", module_name.c_str());
  kind.callbacks.erase(entry);
  if (kind.callbacks.empty()) {
    // Deliberate: the text speaks of results for either kind. A caller sees it when the last state callback goes, too
    // (docs/surprises.md).
    LUMIO_LOG_FOR(function, kError, "m_PvrResultCBVector is empty now unregister pvr result");
    // Deliberate: a refusal of the service is only logged. A caller sees the unregistration succeed
    // (docs/surprises.md).
    if (kind.unregister_at_service(kind.trampoline) != 0) {
      LUMIO_LOG_FOR(function, kError, "call pvr unregister cb failed");
    }
  }
  return kDone;
}

} // namespace

CPvrServiceSubscriber::CPvrServiceSubscriber(const std::string &moduleName) : m_moduleName(moduleName) {}

int CPvrServiceSubscriber::RegisterPvrCb(PvrResultCallback callback, void *userData) {
  return Register(__func__, kResults, this, callback, userData);
}

int CPvrServiceSubscriber::UnRegisterPvrCb(PvrResultCallback callback) {
  return Unregister(__func__, kResults, m_moduleName, callback);
}

int CPvrServiceSubscriber::RegisterPvrStateCb(PvrStateCallback callback, void *userData) {
  return Register(__func__, kStates, this, callback, userData);
}

int CPvrServiceSubscriber::UnRegisterPvrStateCb(PvrStateCallback callback) {
  return Unregister(__func__, kStates, m_moduleName, callback);
}

// Deliberate: walks in the map's order. A caller sees callbacks run in the order of their addresses
// (docs/surprises.md).
//
// The user data is the address of the object that registered first. That object may be gone, so the pointer is only
// tested for null.
void CPvrServiceSubscriber::t_PvrResultCB(ps_result_thirdpart result, void *userData) {
  CAutoLock lock(pvrMutex);
  LUMIO_LOG(kError, "t_PvrResultCB, Result:[%d]", result.result);
  if (!userData) {
    return;
  }
  if (m_PvrResultCBMap.empty()) {
    // Deliberate: the text has a former name of the map. A caller sees it when no result callback is registered
    // (docs/surprises.md).
    LUMIO_LOG(kError, "m_PvrResultCBVector is empty");
    return;
  }
  for (auto entry = m_PvrResultCBMap.begin(); entry != m_PvrResultCBMap.end();) {
    const auto [callback, data] = *entry;
    LUMIO_LOG(kError, "pvr result callback function point is [%p]", reinterpret_cast<void *>(callback));
    callback(result, data);
    // Looked up again: where the platform's lock is recursive, the callback may have changed the map.
    entry = m_PvrResultCBMap.upper_bound(callback);
  }
}

// Deliberate: the callbacks' results are ignored. The service sees true if any callback ran (docs/surprises.md).
//
// The order and the user data are as above.
bool CPvrServiceSubscriber::t_PvrStateCB(pvr_state_e state, void *userData) {
  CAutoLock lock(pvrMutex);
  LUMIO_LOG(kError, "Result:[%d]", static_cast<int>(state));
  if (!userData) {
    return false;
  }
  if (m_pvrStateCallbackMap.empty()) {
    LUMIO_LOG(kError, "m_pvrStateCallbackMap is empty");
    return false;
  }
  for (auto entry = m_pvrStateCallbackMap.begin(); entry != m_pvrStateCallbackMap.end();) {
    const auto [callback, data] = *entry;
    LUMIO_LOG(kError, "pvr state callback function point is [%p]", reinterpret_cast<void *>(callback));
    callback(state, data);
    entry = m_pvrStateCallbackMap.upper_bound(callback);
  }
  return true;
}
