#include "tvs_section.h"

#include <algorithm>
#include <cstdint>
#include <new>
#include <string>

#include "tvs_shared.h"

using namespace lumio::tvs;

// --- Subscribing -----------------------------------------------------------------------------------------------------

void CTVServiceSubscriber::SetSectionCallback(SectionCallback cb) {
  CAutoLock lock(mutex);
  if (m_sectionCallback) {
    assert(0 && "section callback has already been set !");
  }
  if (!m_pSectionSubscriber) {
    const int ret = TVServiceAPI::CreateSectionSubscriber(t_SectionCallback, m_profile, m_group, &m_pSectionSubscriber);
    // __null and not nullptr: assert() prints its argument as it is spelled, and this is the text that users know.
    assert(ret == 0 && m_pSectionSubscriber != __null);
  }
  CreateIfMissing(m_pSectionSubscriptions);
  m_sectionCallback = cb;
}

// Deliberate: the key is made of the low half of the copy's address. Two modules can, rarely, get the same key for the
// same stream; the first one then receives the sections of both (docs/surprises.md).
int CTVServiceSubscriber::m_GetKey(short streamId) {
  const auto address = static_cast<std::uint32_t>(reinterpret_cast<std::uintptr_t>(this));
  return static_cast<int>(address << 16 | static_cast<std::uint16_t>(streamId));
}

namespace {

template <class Criteria>
bool SubscribeSection(const char *function, Subscriber &object, short stream_id,
                      int (ISectionSubscriber::*subscribe)(int, const Criteria &, int &), const Criteria &criteria,
                      int &handle, bool keep_handle) {
  CAutoLock lock(mutex);
  if (!object.m_sectionCallback) {
    assert(0 && "section callback should be registered before subscription !!");
  }
  Subscriber *instance = object.m_GetCopiedSubscriptionInstance("section");
  if (!instance) {
    LUMIO_LOG_FOR(function, kError, "failed to get section subscriber !");
    return false;
  }
  const int key = instance->m_GetKey(stream_id);
  // Allocate before asking the service: once it has agreed, running out of memory must not undo half of this.
  std::map<int, Subscriber *> subscription{{key, instance}};
  ISectionSubscriber *subscriber = Subscriber::m_pSectionSubscriber;
  const unsigned releases = g_releases;
  lock.Unlock(); // the service may wait for a notification to get through
  const bool subscribed = (subscriber->*subscribe)(key, criteria, handle) > 0;
  lock.Lock();
  // There is no container, or another one, if everything was released since the object set its callback.
  if (subscribed && Subscriber::m_pSectionSubscriptions && g_releases == releases) {
    Subscriber::m_pSectionSubscriptions->merge(subscription); // the first module of a key keeps it
    if (keep_handle) {
      instance->m_sectionHandle = handle;
    }
  }
  return subscribed;
}

} // namespace

// Deliberate: the handle is not kept. UnsubscribeSection and ReleaseAll know filter subscriptions only, so sections
// that the service still sends reach the module (docs/surprises.md).
bool CTVServiceSubscriber::SubscribeSection(short streamId, const TCSectionCriteriaHelper &criteria, int &handle) {
  return ::SubscribeSection(__func__, *this, streamId, &ISectionSubscriber::SubscribeByCriteria, criteria, handle,
                            false);
}

bool CTVServiceSubscriber::SubscribeSectionByFilter(short streamId, const TCSectionFilterCriteriaHelper &filter,
                                                    int &handle) {
  return ::SubscribeSection(__func__, *this, streamId, &ISectionSubscriber::SubscribeByFilter, filter, handle, true);
}

// Deliberate: a copy keeps only its latest handle. With that, the module's entry of the lowest key goes, whichever
// stream it is for; with an earlier one, none goes. The service is asked in both cases (docs/surprises.md).
bool CTVServiceSubscriber::UnsubscribeSection(int handle) {
  CAutoLock lock(mutex);
  if (!m_pSectionSubscriptions) {
    assert(0 && "m_pSectionSubscriptions is null !!");
  }
  const auto ours = std::find_if(m_pSectionSubscriptions->begin(), m_pSectionSubscriptions->end(),
                                 [handle](const auto &subscription) {
                                   return subscription.second && subscription.second->m_sectionHandle == handle;
                                 });
  if (ours != m_pSectionSubscriptions->end()) {
    // Deliberate: logged before the service is asked. A caller sees this text even if the service then refuses
    // (docs/surprises.md).
    LUMIO_LOG(kTrace, "Unsubscribe section success : sectionHandle = %d !", handle);
    m_pSectionSubscriptions->erase(ours);
  }
  ISectionSubscriber *subscriber = m_pSectionSubscriber;
  lock.Unlock();
  return subscriber->Unsubscribe(handle) > 0;
}

// --- Notifications ---------------------------------------------------------------------------------------------------

namespace {

struct Target {
  Subscriber::SectionCallback callback = nullptr;
  std::string name; // the module's, for the log
};

// Returns a null callback if the module has none, nobody holds the key, or memory is short.
Target TargetOf(int key) {
  Target target;
  try {
    const auto subscriptions = LockOnServiceThread(Subscriber::m_pSectionSubscriptions);
    if (const Subscriber *instance = Find(subscriptions, key)) {
      target.name = instance->m_name; // first, because it may throw
      target.callback = instance->m_sectionCallback;
    }
  } catch (const std::bad_alloc &) {
    LUMIO_LOG_FOR("t_SectionCallback", kError, "No subscriptions !");
  }
  return target;
}

} // namespace

void CTVServiceSubscriber::t_SectionCallback(bool flag, unsigned short number, unsigned char *data, int key) {
  if (!Load(m_pSectionSubscriptions)) {
    LUMIO_LOG(kError, "No subscriptions !");
    return;
  }
  const Target target = TargetOf(key);
  if (target.callback) {
    LUMIO_LOG(kTrace, "Call section callback of '%s'", target.name.c_str());
    // Deliberate: the stream number is cut to unsigned 16 bits. A module that subscribed to -1 sees 65535
    // (docs/surprises.md).
    target.callback(flag, number, data, static_cast<std::uint16_t>(key));
  }
}

// --- The end ---------------------------------------------------------------------------------------------------------

void lumio::tvs::ReleaseSections() {
  if (!Subscriber::m_pSectionSubscriptions) {
    return;
  }
  for (const auto &[key, instance] : *Subscriber::m_pSectionSubscriptions) {
    if (instance && Subscriber::m_pSectionSubscriber) {
      Subscriber::m_pSectionSubscriber->Unsubscribe(instance->m_sectionHandle);
    }
  }
  Discard(Subscriber::m_pSectionSubscriptions);
  TVServiceAPI::DestroySectionSubscriber();
}
