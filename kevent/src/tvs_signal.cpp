#include "tvs_signal.h"

#include <algorithm>
#include <optional>
#include <string>
#include <vector>

#include "tvs_bridge.h"
#include "tvs_shared.h"

using namespace lumio::tvs;

bool operator==(const TSignalInfo &a, const TSignalInfo &b) {
  return a.signalType == b.signalType && a.profile == b.profile && a.screenId == b.screenId;
}

// Deliberate: the fields count in reverse order, screen first. The order decides how long a signal stays subscribed at
// the service; see UnsubscribeSignal (docs/surprises.md).
bool operator<(const TSignalInfo &a, const TSignalInfo &b) {
  if (a.screenId != b.screenId) {
    return a.screenId < b.screenId;
  }
  if (a.profile != b.profile) {
    return a.profile < b.profile;
  }
  return a.signalType < b.signalType;
}

// --- Subscribing -----------------------------------------------------------------------------------------------------

namespace {

template <class Callback> void SetSignalCallback(Subscriber &object, Callback Subscriber::*field, Callback cb) {
  LUMIO_LOG(kError, "set signal callback %p", reinterpret_cast<void *>(cb));
  CAutoLock lock(mutex);
  if (object.*field) {
    assert(0 && "signal callback has already been set !");
  }
  if (!Subscriber::m_pSignalSubscriber) {
    const int ret =
        TVServiceAPI::CreateSignalSubscriber(Subscriber::t_SignalCallback, &Subscriber::m_pSignalSubscriber);
    if (ret != 0 || !Subscriber::m_pSignalSubscriber) {
      assert(0 && "failed to create signal subscriber!");
    }
  }
  CreateIfMissing(Subscriber::m_pSignalSubscriptions);
  object.*field = cb;
}

} // namespace

void CTVServiceSubscriber::SetSignalCallback(SignalCallback cb) {
  ::SetSignalCallback(*this, &CTVServiceSubscriber::m_signalCallback, cb);
}

void CTVServiceSubscriber::SetSignalCallback(TTSignalCallback cb) {
  ::SetSignalCallback(*this, &CTVServiceSubscriber::m_ttSignalCallback, cb);
}

// Deliberate: the service's answer is ignored. A caller sees true even if the service refused (docs/surprises.md).
bool CTVServiceSubscriber::SubscribeSignal(ESignalType type, void *userData, EProfile profile,
                                           unsigned short screenId) {
  CAutoLock lock(mutex);
  if ((!m_signalCallback && !m_ttSignalCallback) || !m_pSignalSubscriptions) {
    assert(0 && "signal callback should be registered before subscription !!");
  }
  const TSignalInfo key{type, profile, screenId};
  CTVServiceSubscriber *instance = m_GetCopiedSubscriptionInstance("signal");
  // Allocate before asking the service: once it has agreed, running out of memory must not undo half of this.
  std::multimap<TSignalInfo, CTVServiceSubscriber *> subscription{{key, instance}};
  std::map<TSignalInfo, void *> user_data{{key, nullptr}};

  if (m_pSignalSubscriptions->find(key) == m_pSignalSubscriptions->end()) {
    ISignalSubscriber *subscriber = m_pSignalSubscriber;
    const unsigned releases = g_releases;
    lock.Unlock(); // the service may wait for a notification to get through
    LUMIO_LOG(kError, "Actual Subscription to TVS for the signal : %d profile: %d, screenid :%d", type, profile,
              screenId);
    subscriber->Subscribe(type, instance, profile, screenId);
    lock.Lock();
    if (g_releases != releases) {
      return true; // the release took this subscription with it
    }
  }
  m_pSignalSubscriptions->merge(subscription);
  instance->m_signalUserData.merge(user_data);
  instance->m_signalUserData.find(key)->second = userData;
  // Deliberate: the number is how many signals the module has subscribed, although the text says otherwise. A caller
  // sees the signal's type in the text of the unsubscription only (docs/surprises.md).
  LUMIO_LOG(kError, "Subscription Success(%s subscribed signal : %d)", m_name.c_str(),
            static_cast<int>(instance->m_signalUserData.size()));
  return true;
}

bool CTVServiceSubscriber::UnsubscribeSignal(ESignalType type, EProfile profile, unsigned short screenId) {
  CAutoLock lock(mutex);
  if (!m_pSignalSubscriber || !m_pSignalSubscriptions) {
    LUMIO_LOG(kError, "should be subscribeSignal before unsubscribeSignal");
    return false;
  }
  const CTVServiceSubscriber *instance = m_GetCopiedSubscriptionInstance("signal");
  if (!instance) {
    assert(0 && "pSubscriber is NULL !!");
  }
  const TSignalInfo key{type, profile, screenId};
  const auto [first, last] = m_pSignalSubscriptions->equal_range(key);
  const auto ours = std::find_if(first, last, [instance](const auto &subscription) {
    return subscription.second && subscription.second->m_name == instance->m_name;
  });
  if (ours != last) {
    m_pSignalSubscriptions->erase(ours);
  }
  // Deliberate: greater keys count too. While one has a subscriber, the service keeps a subscription that nobody holds,
  // and its notifications reach nobody. The user data stays with the copy (docs/surprises.md).
  if (m_pSignalSubscriptions->lower_bound(key) == m_pSignalSubscriptions->end()) {
    ISignalSubscriber *subscriber = m_pSignalSubscriber;
    lock.Unlock();
    LUMIO_LOG(kTrace, "Actual Unsubscription to TVS for the signal : %d", type);
    subscriber->Unsubscribe(type, profile, screenId);
  }
  LUMIO_LOG(kTrace, "Unsubscription Success(%s subscribed signal : %d)", m_name.c_str(), type);
  return true;
}

// --- Notifications ---------------------------------------------------------------------------------------------------

int CTVServiceSubscriber::t_SignalCallback(ESignalType type, EProfile profile, unsigned short screenId,
                                           TSSignalData data, void *userData) {
  if (!Load(m_pSignalSubscriptions)) {
    LogDropped(kSignal);
    return 0;
  }
  LUMIO_LOG(kError, "eSignalType %d", type);
  if (!Post(kSignal, TSignalEvent{type, data, profile, screenId, userData})) {
    LogDropped(kSignal);
    return 0;
  }
  return 1;
}

namespace {

std::optional<void *> FindUserData(const Subscriber &instance, const TSignalInfo &key) {
  const auto found = instance.m_signalUserData.find(key);
  return found == instance.m_signalUserData.end() ? std::nullopt : std::optional<void *>(found->second);
}

void *UserDataOrReport(std::optional<void *> user_data, const TSignalInfo &key) {
  if (!user_data) {
    LUMIO_LOG_FOR("m_GetUserDataOfSignalCallback", kError,
                  "user data is not set for the signal : %d,profile:%d, screen %d", key.signalType, key.profile,
                  key.screenId);
  }
  return user_data.value_or(nullptr);
}

// The copies that are subscribed to one signal. They exist as long as g_releases has not changed.
struct Targets {
  std::vector<const Subscriber *> instances;
  unsigned releases = 0;
};

Targets TargetsOf(const TSignalInfo &key) {
  Targets targets;
  const auto subscriptions = LockInHandler(Subscriber::m_pSignalSubscriptions);
  if (!subscriptions) {
    return targets;
  }
  targets.releases = g_releases;
  const auto [first, last] = subscriptions->equal_range(key);
  for (auto subscription = first; subscription != last; ++subscription) {
    if (subscription->second) {
      targets.instances.push_back(subscription->second);
    }
  }
  return targets;
}

// What a call of one of a module's callbacks needs.
template <class Callback> struct Call {
  Callback callback = nullptr;
  std::string name; // the module's, for the log; empty without a callback
  std::optional<void *> user_data;
};

// Returns nothing if everything was released since `targets` was made: then the copy is gone, and the walk ends.
template <class Callback>
std::optional<Call<Callback>> CallOf(const Subscriber *instance, Callback Subscriber::*field, const TSignalInfo &key,
                                     const Targets &targets) {
  const auto subscriptions = LockInHandler(Subscriber::m_pSignalSubscriptions);
  if (!subscriptions || g_releases != targets.releases) {
    return std::nullopt;
  }
  Call<Callback> call;
  call.callback = instance->*field;
  if (call.callback) {
    call.name = instance->m_name;
  }
  call.user_data = FindUserData(*instance, key);
  return call;
}

// Calls the three-argument callback, then the five-argument one. The second is read after the first has returned.
// Returns whether the walk goes on.
bool CallModule(const Subscriber *instance, const TSignalEvent &event, const TSignalInfo &key, const Targets &targets) {
  const auto first = CallOf(instance, &Subscriber::m_signalCallback, key, targets);
  if (!first) {
    return false;
  }
  void *user_data = UserDataOrReport(first->user_data, key);
  if (first->callback) {
    LUMIO_LOG_FOR(kHandler, kError, "Call signal callback of '%s', signaltype = %d", first->name.c_str(),
                  event.signalType);
    first->callback(event.signalType, event.signalData, user_data);
  }
  const auto second = CallOf(instance, &Subscriber::m_ttSignalCallback, key, targets);
  if (!second) {
    return false;
  }
  if (second->callback) {
    LUMIO_LOG_FOR(kHandler, kError, "Call signal callback of '%s', signaltype = %d profile: %d, screen id: %d",
                  second->name.c_str(), event.signalType, event.profile, event.screenId);
    second->callback(event.signalType, event.profile, event.screenId, event.signalData, user_data);
  }
  return true;
}

} // namespace

void *CTVServiceSubscriber::m_GetUserDataOfSignalCallback(const TSignalInfo &key) {
  return UserDataOrReport(FindUserData(*this, key), key);
}

void lumio::tvs::HandleSignal(const TSignalEvent &event) {
  const TSignalInfo key{event.signalType, event.profile, event.screenId};
  const Targets targets = TargetsOf(key);
  for (const Subscriber *instance : targets.instances) {
    if (!CallModule(instance, event, key, targets)) {
      return;
    }
  }
}

// --- The end ---------------------------------------------------------------------------------------------------------

void lumio::tvs::ReleaseSignals() {
  auto *const subscriptions = Subscriber::m_pSignalSubscriptions;
  if (!subscriptions) {
    return;
  }
  for (auto at = subscriptions->begin(); at != subscriptions->end(); at = subscriptions->upper_bound(at->first)) {
    const TSignalInfo &key = at->first;
    if (Subscriber::m_pSignalSubscriber) {
      Subscriber::m_pSignalSubscriber->Unsubscribe(key.signalType, key.profile, key.screenId);
    }
  }
  Discard(Subscriber::m_pSignalSubscriptions);
  TVServiceAPI::DestroySignalSubscriber();
}
