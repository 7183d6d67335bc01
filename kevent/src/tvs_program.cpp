#include "tvs_program.h"

#include <optional>
#include <utility>

#include "tvs_bridge.h"
#include "tvs_shared.h"

using namespace lumio::tvs;

// --- Subscribing -----------------------------------------------------------------------------------------------------

void CTVServiceSubscriber::SetProgramCallback(ProgramCallback cb) {
  CAutoLock lock(mutex);
  if (m_programCallback) {
    assert(0 && "program callback has already been set !");
  }
  if (!m_pProgramSubscriber) {
    const int ret = TVServiceAPI::CreateProgramSubscriber(t_ProgramCallback, &m_pProgramSubscriber);
    // __null and not nullptr: assert() prints its argument as it is spelled, and this is the text that users know.
    assert(ret == 0 && m_pProgramSubscriber != __null);
  }
  CreateIfMissing(m_pProgramSubscriptions);
  m_programCallback = cb;
}

namespace {

// `ask` subscribes at the service and returns its answer. The lock is held meanwhile.
template <class Ask> bool SubscribeProgram(const char *function, Subscriber &object, int &handle, Ask ask) {
  CAutoLock lock(mutex);
  if (!Subscriber::m_pProgramSubscriber || !Subscriber::m_pProgramSubscriptions) {
    assert(0 && "please set program callback before subscribe a program !");
  }
  Subscriber *instance = object.m_GetCopiedSubscriptionInstance("program");
  if (!instance) {
    LUMIO_LOG_FOR(function, kError, "failed to get program subscriber !");
    return false;
  }
  // Allocate before asking the service: once it has agreed, running out of memory must not undo half of this.
  std::map<int, Subscriber *> entry{{0, instance}};
  auto subscription = entry.extract(entry.begin());
  if (ask(*Subscriber::m_pProgramSubscriber) == 0) {
    LUMIO_LOG_FOR(function, kError, "failed to subscribe program !");
    return false;
  }
  LUMIO_LOG_FOR(function, kTrace, "program subscription success : %s", object.m_name.c_str());
  subscription.key() = handle;
  // Deliberate: a handle that the service gives again stays with the module that got it first; the other one also sees
  // true (docs/surprises.md).
  Subscriber::m_pProgramSubscriptions->insert(std::move(subscription));
  return true;
}

// Deliberate: the handle may belong to another module, which then receives nothing more (docs/surprises.md).
bool Unsubscribe(int (IProgramSubscriber::*unsubscribe)(int), int handle) {
  CAutoLock lock(mutex);
  if (!Subscriber::m_pProgramSubscriber || !Subscriber::m_pProgramSubscriptions ||
      (Subscriber::m_pProgramSubscriber->*unsubscribe)(handle) <= 0) {
    return false;
  }
  Subscriber::m_pProgramSubscriptions->erase(handle);
  return true;
}

} // namespace

bool CTVServiceSubscriber::SubscribeProgram(const TCProgramFilteringItem &item, int &handle) {
  return ::SubscribeProgram(__func__, *this, handle,
                            [&](IProgramSubscriber &service) { return service.SubscribeProgram(item, handle); });
}

bool CTVServiceSubscriber::SubscribeProgramListPF(int arg, const TCServiceId &serviceId, ESubscribeType type,
                                                  int &handle) {
  return ::SubscribeProgram(__func__, *this, handle, [&](IProgramSubscriber &service) {
    return service.SubscribeProgramListPF(arg, serviceId, type, handle);
  });
}

bool CTVServiceSubscriber::SubscribeProgramList(int arg, const TCServiceId &serviceId, unsigned int first,
                                                unsigned int second, ESubscribeType type, int &handle) {
  return ::SubscribeProgram(__func__, *this, handle, [&](IProgramSubscriber &service) {
    return service.SubscribeProgramList(arg, serviceId, first, second, type, handle);
  });
}

bool CTVServiceSubscriber::UnSubscribeProgram(int handle) {
  return Unsubscribe(&IProgramSubscriber::UnsubscribeProgram, handle);
}

bool CTVServiceSubscriber::UnSubscribeProgramList(int handle) {
  return Unsubscribe(&IProgramSubscriber::UnsubscribeProgramList, handle);
}

bool CTVServiceSubscriber::MonitoringType(EProgramMonitoringType &type) {
  CAutoLock lock(mutex);
  return m_pProgramSubscriber && m_pProgramSubscriber->GetMonitoringType(type);
}

// --- Notifications ---------------------------------------------------------------------------------------------------

void CTVServiceSubscriber::t_ProgramCallback(EProgramChangeType changeType, TCProgramData *data, int arg, int handle) {
  if (!Load(m_pProgramSubscriptions) || !Post(kProgram, TProgramEvent{changeType, arg, data, handle})) {
    LogDropped(kProgram);
  }
}

namespace {

// Returns the callback, which may be null, of the module that holds the handle; nothing if none does.
std::optional<Subscriber::ProgramCallback> CallbackOf(int handle) {
  const auto subscriptions = LockInHandler(Subscriber::m_pProgramSubscriptions);
  const Subscriber *instance = Find(subscriptions, handle);
  return instance ? std::optional(instance->m_programCallback) : std::nullopt;
}

} // namespace

void lumio::tvs::HandleProgram(const TProgramEvent &event) {
  if (const auto callback = CallbackOf(event.handle)) {
    // Deliberate: not tested for null. A module that subscribed without having set its callback crashes here
    // (docs/surprises.md).
    (*callback)(event.changeType, event.programData, event.arg, event.handle);
  }
}

// --- The end ---------------------------------------------------------------------------------------------------------

void lumio::tvs::ReleasePrograms() {
  if (!Subscriber::m_pProgramSubscriptions) {
    return;
  }
  for (const auto &[handle, instance] : *Subscriber::m_pProgramSubscriptions) {
    IProgramSubscriber *service = Subscriber::m_pProgramSubscriber;
    if (service && service->UnsubscribeProgram(handle) == 0) {
      service->UnsubscribeProgramList(handle);
    }
  }
  Discard(Subscriber::m_pProgramSubscriptions);
  TVServiceAPI::DestroyProgramSubscriber();
  Subscriber::m_pProgramSubscriber = nullptr;
}
