#include "tvs_dsm.h"

#include <new>
#include <optional>
#include <string>
#include <vector>

#include "tvs_shared.h"

using namespace lumio::tvs;

// --- Attaching -------------------------------------------------------------------------------------------------------

bool CTVServiceSubscriber::AttachDsm(DsmCallback cb, unsigned int &sessionHandle, const std::string &target,
                                     EDsmDataServiceType serviceType, EDsmAttachType attachType, void *userData,
                                     bool flag) {
  const std::vector<unsigned char> target_bytes(target.begin(), target.end());
  CAutoLock lock(mutex);
  if (m_dsmCallback) {
    assert(0 && "dsm callback has already been set !");
  }
  if (!m_pDsm) {
    const int ret = TVServiceAPI::CreateDsm(t_DsmCallback, &m_pDsm);
    if (ret != 0 || !m_pDsm) {
      assert(0 && "Failed to create DSM");
    }
  }
  CreateIfMissing(m_pDsmSubscriptions);
  // Deliberate: set before the service agrees, and never cleared. An object can attach once in its life; a second call
  // aborts (docs/surprises.md).
  m_dsmCallback = cb;
  if (m_pDsm->Attach(sessionHandle, target_bytes, serviceType, attachType, userData, flag) <= 0) {
    LUMIO_LOG(kError, "Failed to attach !");
    return false;
  }
  try {
    CTVServiceSubscriber *instance = m_GetCopiedSubscriptionInstance("dsm");
    if (!instance) {
      LUMIO_LOG(kError, "failed to get dsm subscriber !");
      return false;
    }
    m_pDsmSubscriptions->emplace(static_cast<int>(sessionHandle), instance); // the first module of a session keeps it
    return true;
  } catch (const std::bad_alloc &) {
    m_pDsm->Detach(sessionHandle); // its messages would reach nobody
    throw;
  }
}

// Deliberate: the handle may belong to another module, and the session is forgotten before the service is asked. If the
// service refuses, the caller sees false, and further messages are logged as unknown (docs/surprises.md).
bool CTVServiceSubscriber::DetachDsm(unsigned int sessionHandle) {
  CAutoLock lock(mutex);
  if (!m_pDsmSubscriptions) {
    assert(0 && "no subscriptions !!");
  }
  // Deliberate: a module that detaches before it attaches gets a copy without a callback here. The first message of its
  // later attachment crashes (docs/surprises.md).
  if (!m_GetCopiedSubscriptionInstance("dsm")) {
    LUMIO_LOG(kError, "failed to get dsm subscriber !");
    return false;
  }
  m_pDsmSubscriptions->erase(static_cast<int>(sessionHandle));
  if (!m_pDsm) {
    return false;
  }
  if (m_pDsm->Detach(sessionHandle) <= 0) {
    LUMIO_LOG(kError, "failed to detach dsm for sessionHandle(%d) !", static_cast<int>(sessionHandle));
    return false;
  }
  return true;
}

IDsm *CTVServiceSubscriber::GetDsmInstance() {
  if (!Load(m_pDsmSubscriptions)) {
    assert(0 && "no subscriptions !!");
  }
  return Load(m_pDsm);
}

// --- Messages --------------------------------------------------------------------------------------------------------

namespace {

// Returns the callback, which may be null, of the module that attached to the session; nothing, with a log message, if
// none did.
std::optional<Subscriber::DsmCallback> CallbackOf(int session) {
  const auto sessions = LockOnServiceThread(Subscriber::m_pDsmSubscriptions);
  const Subscriber *instance = Find(sessions, session);
  if (!instance) {
    LUMIO_LOG_FOR("t_DsmCallback", kError, "Failed to find a subscription with the given handle : %d !", session);
    return std::nullopt;
  }
  return instance->m_dsmCallback;
}

} // namespace

void CTVServiceSubscriber::t_DsmCallback(TSDsmMessage &message) {
  if (!Load(m_pDsmSubscriptions)) {
    LUMIO_LOG(kError, "No subscriptions !");
    return;
  }
  if (const auto callback = CallbackOf(message.sessionHandle)) {
    // Deliberate: not tested for null. A module that detached before it attached crashes here (docs/surprises.md).
    (*callback)(message);
  }
}

// --- The end ---------------------------------------------------------------------------------------------------------

void lumio::tvs::ReleaseDsm() {
  if (!Subscriber::m_pDsmSubscriptions) {
    return;
  }
  for (const auto &[handle, instance] : *Subscriber::m_pDsmSubscriptions) {
    if (Subscriber::m_pDsm) {
      Subscriber::m_pDsm->Detach(static_cast<unsigned>(handle));
    }
  }
  Discard(Subscriber::m_pDsmSubscriptions);
  TVServiceAPI::DestroyDsm();
  Store<IDsm>(Subscriber::m_pDsm, nullptr);
}
