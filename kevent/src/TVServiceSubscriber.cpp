// TV-service subscriptions: one subscriber object of each kind, shared by all modules, and the way of its notifications
// to the modules.
//
// Everything shared is guarded by `mutex`. Notifications test the containers' pointers before they take it, so these
// are written atomically, and tested again under the lock. No callback runs with the lock held. What a delivery needs
// of a module's copy is copied while the lock is held: once it is given back, another thread or the callback itself may
// release everything.
#include "TVServiceSubscriber.h"

#include <Ecore.h>
#include <Kestrel/CAutoLock.h>
#include <Kestrel/TCMutex.h>

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <cstdlib>
#include <iostream> // its initialiser comes before the lock: the standard streams outlive it
#include <iterator>
#include <memory>
#include <new>
#include <optional>
#include <utility>
#include <vector>

#include "log.h"
#include "main_loop_queue.h"

// Modules rely on the preconditions being checked in release builds too.
#undef NDEBUG
#include <cassert>

using lumio::kError;
using lumio::kTrace;
using Subscriber = CTVServiceSubscriber;

EProfile Subscriber::m_profile = static_cast<EProfile>(1);
int Subscriber::m_group;
int Subscriber::m_captionSubscriptionHandle;
int Subscriber::m_pesSubscriptionHandle;
int Subscriber::m_eventType[6];
std::map<std::string, Subscriber *> *Subscriber::m_pSubscriberInstances;
std::multimap<TSignalInfo, Subscriber *> *Subscriber::m_pSignalSubscriptions;
std::map<int, Subscriber *> *Subscriber::m_pProgramSubscriptions;
std::map<int, Subscriber *> *Subscriber::m_pSectionSubscriptions;
std::map<int, Subscriber *> *Subscriber::m_pDsmSubscriptions;
std::set<std::string> *Subscriber::m_pPesSubscriptions;
std::set<std::string> *Subscriber::m_pCaptionSubscriptions;
ISignalSubscriber *Subscriber::m_pSignalSubscriber;
IProgramSubscriber *Subscriber::m_pProgramSubscriber;
ISectionSubscriber *Subscriber::m_pSectionSubscriber;
IPESDataSubscriber *Subscriber::m_pPESDataSubscriber;
IDataSubscriber *Subscriber::m_pCaptionSubscriber;
IDsm *Subscriber::m_pDsm;

namespace {

Kestrel::TCMutex mutex;

// How often everything was released. A pointer to a copy is good as long as this has not changed.
std::atomic<unsigned> g_releases{0};

// --- Shared pointers -------------------------------------------------------------------------------------------------

// Reads a pointer without the lock.
template <class T> T *Load(T *&pointer) { return __atomic_load_n(&pointer, __ATOMIC_ACQUIRE); }

// Writes, with the lock held, a pointer that is read without it.
template <class T> void Store(T *&pointer, T *value) { __atomic_store_n(&pointer, value, __ATOMIC_RELEASE); }

template <class Container> void CreateUnlessThere(Container *&container) {
  if (!container) {
    Store(container, new Container);
  }
}

template <class Container> void Discard(Container *&container) {
  const std::unique_ptr<Container> discarded(container);
  Store<Container>(container, nullptr);
}

// Thrown when the event handler cannot have the lock. The handler then drops the notification.
struct LockRefused {};

// How often the event handler asks for the lock before it drops the notification. One refusal means that another thread
// closed the lock just then; this many in a row mean that the lock is broken, and the main loop must go on.
constexpr int kMostRefusals = 1000;

// The lock as the event handler takes it, to look into `container`. Not held when there is no such container.
//
// Whoever made the container has created the lock. It is missing all the same when another thread releases everything:
// the lock is closed after it was given back, and what somebody subscribes in between must not be passed over until the
// lock happens to be created again.
class HandlerLock {
public:
  template <class Container> explicit HandlerLock(Container *&container) {
    for (int refusals = 0; !held_ && Load(container); ++refusals) {
      if (refusals == kMostRefusals || !(mutex.IsCreated() || mutex.Create())) {
        throw LockRefused();
      }
      held_ = mutex.Lock();
    }
  }
  ~HandlerLock() {
    if (held_) {
      mutex.Unlock();
    }
  }
  HandlerLock(const HandlerLock &) = delete;
  HandlerLock &operator=(const HandlerLock &) = delete;

  explicit operator bool() const { return held_; }

private:
  bool held_ = false;
};

// The copy that `key` stands for, or null.
Subscriber *Find(const std::map<int, Subscriber *> *subscriptions, int key) {
  if (!subscriptions) {
    return nullptr;
  }
  const auto found = subscriptions->find(key);
  return found == subscriptions->end() ? nullptr : found->second;
}

// --- The way to the main loop ----------------------------------------------------------------------------------------

// Places in m_eventType. Sections and DSM messages have none: they are delivered on the service's thread.
enum { kSignal = 0, kPes = 3, kCaption = 4, kProgram = 5 };

// Logs, in the name of what the service calls, a notification that has no subscribers, or no memory.
void LogDropped(int index) {
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

// In whose name the main loop's side logs.
constexpr char kHandler[] = "m_DeferredEventHandler";

// A record that is posted, and behind it what the queue needs. The event loop releases both with one free().
template <class Event> struct Record {
  Event event;
  lumio::QueuedEvent queued;
};

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

bool Deliver(lumio::QueuedEvent *queued) {
  return CreateEventType(queued->index) &&
         ecore_event_add(Subscriber::m_eventType[queued->index], queued->event, nullptr, nullptr);
}

void Drop(lumio::QueuedEvent *queued) {
  LogDropped(queued->index);
  if (queued->index == kPes) {
    delete static_cast<TPesEvent *>(queued->event)->data;
  } else if (queued->index == kCaption) {
    delete static_cast<TCaptionEvent *>(queued->event)->data;
  }
  free(queued->event);
}

lumio::MainLoopQueue g_queue(Deliver, Drop);

// Sends a record to m_DeferredEventHandler. Returns false when memory is short.
template <class Event> bool Post(int index, const Event &event) {
  void *memory = malloc(sizeof(Record<Event>));
  if (!memory) {
    return false;
  }
  auto *record = new (memory) Record<Event>{event, {nullptr, index, memory}};
  if (!g_queue.Push(&record->queued)) {
    free(memory);
    return false;
  }
  return true;
}

} // namespace

// --- Registry --------------------------------------------------------------------------------------------------------

CTVServiceSubscriber::CTVServiceSubscriber(const std::string &name)
    : m_name(name), m_signalCallback(nullptr), m_ttSignalCallback(nullptr), m_sectionCallback(nullptr),
      m_dsmCallback(nullptr), m_pesCallback(nullptr), m_captionCallback(nullptr), m_programCallback(nullptr),
      m_pUserData(nullptr), m_sectionHandle(0) {}

CTVServiceSubscriber *CTVServiceSubscriber::m_GetSubscriber(std::string name, std::string stream) {
  const auto *instances = Load(m_pSubscriberInstances);
  if (!instances) {
    return nullptr;
  }
  const auto found = instances->find(name + "_" + stream);
  return found == instances->end() ? nullptr : found->second;
}

// A copy that exists is not brought up to date, which is meant: a module sees that callbacks set after its first
// subscription to a stream are not called.
CTVServiceSubscriber *CTVServiceSubscriber::m_GetCopiedSubscriptionInstance(std::string stream) {
  CreateUnlessThere(m_pSubscriberInstances);
  const std::string key = m_name + "_" + stream;
  const auto found = m_pSubscriberInstances->find(key);
  if (found != m_pSubscriberInstances->end()) {
    return found->second;
  }
  auto copy = std::make_unique<CTVServiceSubscriber>(*this);
  m_pSubscriberInstances->emplace(key, copy.get());
  return copy.release();
}

// --- Signals ---------------------------------------------------------------------------------------------------------

bool operator==(const TSignalInfo &a, const TSignalInfo &b) {
  return a.signalType == b.signalType && a.profile == b.profile && a.screenId == b.screenId;
}

// The reverse of the order of the fields, which is meant: it decides how long the service's subscriptions are kept (see
// UnsubscribeSignal).
bool operator<(const TSignalInfo &a, const TSignalInfo &b) {
  if (a.screenId != b.screenId) {
    return a.screenId < b.screenId;
  }
  if (a.profile != b.profile) {
    return a.profile < b.profile;
  }
  return a.signalType < b.signalType;
}

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
  CreateUnlessThere(Subscriber::m_pSignalSubscriptions);
  object.*field = cb;
}

} // namespace

void CTVServiceSubscriber::SetSignalCallback(SignalCallback cb) {
  ::SetSignalCallback(*this, &CTVServiceSubscriber::m_signalCallback, cb);
}

void CTVServiceSubscriber::SetSignalCallback(TTSignalCallback cb) {
  ::SetSignalCallback(*this, &CTVServiceSubscriber::m_ttSignalCallback, cb);
}

bool CTVServiceSubscriber::SubscribeSignal(ESignalType type, void *userData, EProfile profile,
                                           unsigned short screenId) {
  CAutoLock lock(mutex);
  if ((!m_signalCallback && !m_ttSignalCallback) || !m_pSignalSubscriptions) {
    assert(0 && "signal callback should be registered before subscription !!");
  }
  const TSignalInfo key{type, profile, screenId};
  CTVServiceSubscriber *instance = m_GetCopiedSubscriptionInstance("signal");
  // Made before the service is asked: afterwards nothing may fail for want of memory.
  std::multimap<TSignalInfo, CTVServiceSubscriber *> subscription{{key, instance}};
  std::map<TSignalInfo, void *> user_data{{key, nullptr}};

  if (m_pSignalSubscriptions->find(key) == m_pSignalSubscriptions->end()) {
    ISignalSubscriber *subscriber = m_pSignalSubscriber;
    const unsigned releases = g_releases;
    lock.Unlock(); // a notification that the service waits for must get through
    LUMIO_LOG(kError, "Actual Subscription to TVS for the signal : %d profile: %d, screenid :%d", type, profile,
              screenId);
    subscriber->Subscribe(type, instance, profile, screenId);
    lock.Lock();
    if (g_releases != releases) {
      return true; // released meanwhile, this subscription with it, as if it had come first
    }
  }
  m_pSignalSubscriptions->merge(subscription);
  instance->m_signalUserData.merge(user_data);
  instance->m_signalUserData.find(key)->second = userData;
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
  // Looks for this key and all greater ones, which is meant: as long as a greater key has a subscriber the service
  // keeps a subscription that nobody holds, and its notifications reach nobody. The user data stays with the copy.
  if (m_pSignalSubscriptions->lower_bound(key) == m_pSignalSubscriptions->end()) {
    ISignalSubscriber *subscriber = m_pSignalSubscriber;
    lock.Unlock();
    LUMIO_LOG(kTrace, "Actual Unsubscription to TVS for the signal : %d", type);
    subscriber->Unsubscribe(type, profile, screenId);
  }
  LUMIO_LOG(kTrace, "Unsubscription Success(%s subscribed signal : %d)", m_name.c_str(), type);
  return true;
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

} // namespace

void *CTVServiceSubscriber::m_GetUserDataOfSignalCallback(const TSignalInfo &key) {
  return UserDataOrReport(FindUserData(*this, key), key);
}

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

// The copies that are subscribed to one signal, and the release count that they belong to.
struct SignalTargets {
  std::vector<const Subscriber *> instances;
  unsigned releases = 0;
};

SignalTargets TargetsOf(const TSignalInfo &key) {
  SignalTargets targets;
  HandlerLock lock(Subscriber::m_pSignalSubscriptions);
  if (!lock || !Subscriber::m_pSignalSubscriptions) {
    return targets;
  }
  targets.releases = g_releases;
  const auto [first, last] = Subscriber::m_pSignalSubscriptions->equal_range(key);
  for (auto subscription = first; subscription != last; ++subscription) {
    if (subscription->second) {
      targets.instances.push_back(subscription->second);
    }
  }
  return targets;
}

// What a call of one of the copy's callbacks needs. The name is that of the module, for the log.
template <class Callback> struct SignalCall {
  Callback callback = nullptr;
  std::string name;
  std::optional<void *> user_data;
};

// Reads a copy's callback when its turn comes, or nothing when the copy is gone.
template <class Callback>
std::optional<SignalCall<Callback>> CallOf(const Subscriber *instance, Callback Subscriber::*field,
                                           const TSignalInfo &key, unsigned releases) {
  if (g_releases != releases) {
    return std::nullopt;
  }
  HandlerLock lock(Subscriber::m_pSignalSubscriptions);
  if (!lock || g_releases != releases) {
    return std::nullopt;
  }
  SignalCall<Callback> call;
  call.callback = instance->*field;
  if (call.callback) {
    call.name = instance->m_name;
  }
  call.user_data = FindUserData(*instance, key);
  return call;
}

void HandleSignal(const TSignalEvent &event) {
  const TSignalInfo key{event.signalType, event.profile, event.screenId};
  const SignalTargets targets = TargetsOf(key);
  for (const Subscriber *instance : targets.instances) {
    const auto short_call = CallOf(instance, &Subscriber::m_signalCallback, key, targets.releases);
    if (!short_call) {
      return;
    }
    void *user_data = UserDataOrReport(short_call->user_data, key);
    if (short_call->callback) {
      LUMIO_LOG_FOR(kHandler, kError, "Call signal callback of '%s', signaltype = %d", short_call->name.c_str(),
                    event.signalType);
      short_call->callback(event.signalType, event.signalData, user_data);
    }
    const auto long_call = CallOf(instance, &Subscriber::m_ttSignalCallback, key, targets.releases);
    if (!long_call) {
      return;
    }
    if (long_call->callback) {
      LUMIO_LOG_FOR(kHandler, kError, "Call signal callback of '%s', signaltype = %d profile: %d, screen id: %d",
                    long_call->name.c_str(), event.signalType, event.profile, event.screenId);
      long_call->callback(event.signalType, event.profile, event.screenId, event.signalData, user_data);
    }
  }
}

} // namespace

// --- Programmes ------------------------------------------------------------------------------------------------------

void CTVServiceSubscriber::SetProgramCallback(ProgramCallback cb) {
  CAutoLock lock(mutex);
  if (m_programCallback) {
    assert(0 && "program callback has already been set !");
  }
  if (!m_pProgramSubscriber) {
    const int ret = TVServiceAPI::CreateProgramSubscriber(t_ProgramCallback, &m_pProgramSubscriber);
    assert(ret == 0 && m_pProgramSubscriber != __null);
  }
  CreateUnlessThere(m_pProgramSubscriptions);
  m_programCallback = cb;
}

namespace {

// `ask` subscribes at the service and returns its answer. The lock is held all the while.
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
  // Made before the service is asked: afterwards nothing may fail for want of memory.
  std::map<int, Subscriber *> entry{{0, instance}};
  auto subscription = entry.extract(entry.begin());
  if (ask(*Subscriber::m_pProgramSubscriber) == 0) {
    LUMIO_LOG_FOR(function, kError, "failed to subscribe program !");
    return false;
  }
  LUMIO_LOG_FOR(function, kTrace, "program subscription success : %s", object.m_name.c_str());
  subscription.key() = handle;
  Subscriber::m_pProgramSubscriptions->insert(std::move(subscription)); // the first module of a handle keeps it
  return true;
}

bool UnsubscribeProgram(int (IProgramSubscriber::*unsubscribe)(int), int handle) {
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
  return UnsubscribeProgram(&IProgramSubscriber::UnsubscribeProgram, handle);
}

bool CTVServiceSubscriber::UnSubscribeProgramList(int handle) {
  return UnsubscribeProgram(&IProgramSubscriber::UnsubscribeProgramList, handle);
}

bool CTVServiceSubscriber::MonitoringType(EProgramMonitoringType &type) {
  CAutoLock lock(mutex);
  return m_pProgramSubscriber && m_pProgramSubscriber->GetMonitoringType(type);
}

void CTVServiceSubscriber::t_ProgramCallback(EProgramChangeType changeType, TCProgramData *data, int arg, int handle) {
  if (!Load(m_pProgramSubscriptions) || !Post(kProgram, TProgramEvent{changeType, arg, data, handle})) {
    LogDropped(kProgram);
  }
}

namespace {

void HandleProgram(const TProgramEvent &event) {
  Subscriber::ProgramCallback callback = nullptr;
  {
    HandlerLock lock(Subscriber::m_pProgramSubscriptions);
    const Subscriber *instance = lock ? Find(Subscriber::m_pProgramSubscriptions, event.handle) : nullptr;
    if (!instance) {
      return;
    }
    callback = instance->m_programCallback;
  }
  // Not tested for null, which is meant: a module that subscribed without having set a callback crashes here.
  callback(event.changeType, event.programData, event.arg, event.handle);
}

} // namespace

// --- Sections --------------------------------------------------------------------------------------------------------

void CTVServiceSubscriber::SetSectionCallback(SectionCallback cb) {
  CAutoLock lock(mutex);
  if (m_sectionCallback) {
    assert(0 && "section callback has already been set !");
  }
  if (!m_pSectionSubscriber) {
    const int ret = TVServiceAPI::CreateSectionSubscriber(t_SectionCallback, m_profile, m_group, &m_pSectionSubscriber);
    assert(ret == 0 && m_pSectionSubscriber != __null);
  }
  CreateUnlessThere(m_pSectionSubscriptions);
  m_sectionCallback = cb;
}

// Made from the low half of the copy's address, which is meant: a stream gets a key of its own for each module, save
// for the rare pair of modules whose addresses agree there.
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
  // Made before the service is asked: afterwards nothing may fail for want of memory.
  std::map<int, Subscriber *> subscription{{key, instance}};
  ISectionSubscriber *subscriber = Subscriber::m_pSectionSubscriber;
  const unsigned releases = g_releases;
  lock.Unlock(); // a notification that the service waits for must get through
  const bool subscribed = (subscriber->*subscribe)(key, criteria, handle) > 0;
  lock.Lock();
  // There is no map, or another one, when everything was released since the object set its callback.
  if (subscribed && Subscriber::m_pSectionSubscriptions && g_releases == releases) {
    Subscriber::m_pSectionSubscriptions->merge(subscription); // the first module of a key keeps it
    if (keep_handle) {
      instance->m_sectionHandle = handle;
    }
  }
  return subscribed;
}

} // namespace

// Keeps no handle, which is meant: UnsubscribeSection and ReleaseAll know filter subscriptions only.
bool CTVServiceSubscriber::SubscribeSection(short streamId, const TCSectionCriteriaHelper &criteria, int &handle) {
  return ::SubscribeSection(__func__, *this, streamId, &ISectionSubscriber::SubscribeByCriteria, criteria, handle,
                            false);
}

bool CTVServiceSubscriber::SubscribeSectionByFilter(short streamId, const TCSectionFilterCriteriaHelper &filter,
                                                    int &handle) {
  return ::SubscribeSection(__func__, *this, streamId, &ISectionSubscriber::SubscribeByFilter, filter, handle, true);
}

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
    LUMIO_LOG(kTrace, "Unsubscribe section success : sectionHandle = %d !", handle);
    m_pSectionSubscriptions->erase(ours);
  }
  ISectionSubscriber *subscriber = m_pSectionSubscriber;
  lock.Unlock();
  return subscriber->Unsubscribe(handle) > 0;
}

void CTVServiceSubscriber::t_SectionCallback(bool flag, unsigned short number, unsigned char *data, int key) {
  if (!Load(m_pSectionSubscriptions)) {
    LUMIO_LOG(kError, "No subscriptions !");
    return;
  }
  std::string name;
  SectionCallback callback = nullptr;
  try {
    CAutoLock lock(mutex);
    if (const CTVServiceSubscriber *instance = Find(m_pSectionSubscriptions, key)) {
      name = instance->m_name;
      callback = instance->m_sectionCallback;
    }
  } catch (const std::bad_alloc &) {
    LUMIO_LOG(kError, "No subscriptions !");
  }
  if (callback) {
    LUMIO_LOG(kTrace, "Call section callback of '%s'", name.c_str());
    callback(flag, number, data, static_cast<std::uint16_t>(key));
  }
}

// --- PES packets and captions ----------------------------------------------------------------------------------------

namespace {

// What tells the one stream from the other; they are alike in all else.
template <class StreamData, class Service, class StreamEvent> struct Stream {
  using Data = StreamData;
  using Event = StreamEvent;
  using Callback = void (*)(Data &, void *);

  const char *word;
  int index; // in m_eventType
  Callback Subscriber::*callback;
  Service **service;
  std::set<std::string> **names;
  int *handle;
  int (*create)(EProfile, int, Service **);
  int (*destroy)();
  Callback notify;
};

constexpr Stream<TSPESData, IPESDataSubscriber, TPesEvent> kPesStream = {
    "pes",
    kPes,
    &Subscriber::m_pesCallback,
    &Subscriber::m_pPESDataSubscriber,
    &Subscriber::m_pPesSubscriptions,
    &Subscriber::m_pesSubscriptionHandle,
    TVServiceAPI::CreatePESDataSubscriber,
    TVServiceAPI::DestroyPESDataSubscriber,
    Subscriber::t_PesDataCallback,
};

constexpr Stream<TSCaption, IDataSubscriber, TCaptionEvent> kCaptionStream = {
    "caption",
    kCaption,
    &Subscriber::m_captionCallback,
    &Subscriber::m_pCaptionSubscriber,
    &Subscriber::m_pCaptionSubscriptions,
    &Subscriber::m_captionSubscriptionHandle,
    TVServiceAPI::CreateDataSubscriber,
    TVServiceAPI::DestroyDataSubscriber,
    Subscriber::t_CaptionCallback,
};

template <class Stream>
bool SubscribeStream(const char *function, const Stream &stream, Subscriber &object, typename Stream::Callback cb,
                     void *user_data) {
  CAutoLock lock(mutex);
  if (!*stream.service) {
    stream.create(Subscriber::m_profile, Subscriber::m_group, stream.service);
  }
  if (!*stream.service) {
    LUMIO_LOG_FOR(function, kError, "failed to subscribe %s : %s", stream.word, object.m_name.c_str());
    return false;
  }
  Subscriber *instance = object.m_GetCopiedSubscriptionInstance(stream.word);
  if (!instance) {
    LUMIO_LOG_FOR(function, kError, "failed to get %s subscriber !", stream.word);
    return false;
  }
  std::set<std::string> name{object.m_name};
  const bool is_first = !*stream.names;
  CreateUnlessThere(*stream.names); // the last that may fail for want of memory

  instance->m_pUserData = user_data;
  instance->*stream.callback = cb;
  if (is_first && (*stream.service)->Subscribe(stream.notify, nullptr, stream.handle) == 0) {
    // The empty set stays, which is meant: to everybody else the stream now looks subscribed.
    LUMIO_LOG_FOR(function, kError, "failed to subscribe %s !", stream.word);
    return false;
  }
  LUMIO_LOG_FOR(function, kTrace, "subscription success : %s", object.m_name.c_str());
  (*stream.names)->merge(name);
  return true;
}

template <class Stream> bool UnsubscribeStream(const char *function, const Stream &stream, const Subscriber &object) {
  CAutoLock lock(mutex);
  if (!*stream.names || !*stream.service) {
    LUMIO_LOG_FOR(function, kError, "No subscriptions !!");
    return false;
  }
  if ((*stream.names)->erase(object.m_name) == 0) {
    return false;
  }
  if (!(*stream.names)->empty()) {
    return true;
  }
  Discard(*stream.names);
  return (*stream.service)->Unsubscribe(*stream.handle) > 0;
}

template <class Stream> void ReleaseStream(const Stream &stream) {
  if (*stream.names) {
    Discard(*stream.names);
    stream.destroy();
  }
}

// Takes a copy of the data to the main loop.
template <class Stream> void PostData(const Stream &stream, const typename Stream::Data &data) {
  if (Load(*stream.names) && Load(Subscriber::m_pSubscriberInstances)) {
    try {
      auto copy = std::make_unique<typename Stream::Data>(data);
      if (Post(stream.index, typename Stream::Event{copy.get()})) {
        static_cast<void>(copy.release()); // the handler deletes it
        return;
      }
    } catch (const std::bad_alloc &) {
      // Dropped, too.
    }
  }
  LogDropped(stream.index);
}

// The names of the modules that are subscribed to one stream.
template <class Stream> std::set<std::string> NamesOf(const Stream &stream) {
  HandlerLock lock(*stream.names);
  return lock && *stream.names ? **stream.names : std::set<std::string>();
}

// Callback and user data of the module of that name; null when it has none, or no copy.
template <class Stream>
std::pair<typename Stream::Callback, void *> TargetOf(const Stream &stream, const std::string &name) {
  HandlerLock lock(Subscriber::m_pSubscriberInstances);
  const Subscriber *instance = lock ? Subscriber::m_GetSubscriber(name, stream.word) : nullptr;
  if (!instance) {
    return {};
  }
  return {instance->*stream.callback, instance->m_pUserData};
}

// Every module gets the same data, one after the other. A module is looked up by its name when its turn comes, so that
// one that subscribed anew after everything was released is called too.
template <class Stream> void HandleData(const Stream &stream, const typename Stream::Event &event) {
  std::unique_ptr<typename Stream::Data> posted(event.data);
  typename Stream::Data data = std::move(*posted);
  posted.reset();
  for (const std::string &name : NamesOf(stream)) {
    const auto [callback, user_data] = TargetOf(stream, name);
    if (callback) {
      callback(data, user_data);
    } else {
      LUMIO_LOG_FOR(kHandler, kError, "failed to find %s subscription instance : name = %s", stream.word, name.c_str());
    }
  }
}

} // namespace

bool CTVServiceSubscriber::SubscribePES(PesCallback cb, void *userData) {
  return SubscribeStream(__func__, kPesStream, *this, cb, userData);
}

bool CTVServiceSubscriber::UnsubscribePES() { return UnsubscribeStream(__func__, kPesStream, *this); }

void CTVServiceSubscriber::t_PesDataCallback(TSPESData &data, void *) { PostData(kPesStream, data); }

bool CTVServiceSubscriber::SubscribeCaption(CaptionCallback cb, void *userData) {
  return SubscribeStream(__func__, kCaptionStream, *this, cb, userData);
}

bool CTVServiceSubscriber::UnsubscribeCaption() { return UnsubscribeStream(__func__, kCaptionStream, *this); }

void CTVServiceSubscriber::t_CaptionCallback(TSCaption &data, void *) { PostData(kCaptionStream, data); }

// --- DSM -------------------------------------------------------------------------------------------------------------

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
  CreateUnlessThere(m_pDsmSubscriptions);
  // Before the service agrees, and for good, which is meant: an object attaches once in its life.
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
    m_pDsm->Detach(sessionHandle); // nobody would hear of it
    throw;
  }
}

bool CTVServiceSubscriber::DetachDsm(unsigned int sessionHandle) {
  CAutoLock lock(mutex);
  if (!m_pDsmSubscriptions) {
    assert(0 && "no subscriptions !!");
  }
  // A module that detaches before it attaches files a copy without a callback here, which is meant.
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

void CTVServiceSubscriber::t_DsmCallback(TSDsmMessage &message) {
  if (!Load(m_pDsmSubscriptions)) {
    LUMIO_LOG(kError, "No subscriptions !");
    return;
  }
  DsmCallback callback = nullptr;
  {
    CAutoLock lock(mutex);
    const CTVServiceSubscriber *instance = Find(m_pDsmSubscriptions, message.sessionHandle);
    if (!instance) {
      LUMIO_LOG(kError, "Failed to find a subscription with the given handle : %d !", message.sessionHandle);
      return;
    }
    callback = instance->m_dsmCallback;
  }
  // Not tested for null, which is meant: see DetachDsm.
  callback(message);
}

// --- On the main loop ------------------------------------------------------------------------------------------------

namespace {

void Handle(int index, const void *event) {
  switch (index) {
  case kSignal:
    return HandleSignal(*static_cast<const TSignalEvent *>(event));
  case kPes:
    return HandleData(kPesStream, *static_cast<const TPesEvent *>(event));
  case kCaption:
    return HandleData(kCaptionStream, *static_cast<const TCaptionEvent *>(event));
  case kProgram:
    return HandleProgram(*static_cast<const TProgramEvent *>(event));
  default:
    return;
  }
}

} // namespace

Eina_Bool CTVServiceSubscriber::m_DeferredEventHandler(void *, int type, void *event) {
  if (type == ECORE_EVENT_NONE) { // what the table holds for types that are not there yet
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

// --- The end ---------------------------------------------------------------------------------------------------------

namespace {

void ReleaseSignals() {
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

void ReleaseSections() {
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

void ReleaseDsm() {
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

void ReleasePrograms() {
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

void ReleaseInstances() {
  if (!Subscriber::m_pSubscriberInstances) {
    return;
  }
  for (const auto &[key, instance] : *Subscriber::m_pSubscriberInstances) {
    delete instance;
  }
  Discard(Subscriber::m_pSubscriberInstances);
}

} // namespace

// Resets only the DSM object and the programme subscriber, which is meant: the other kinds go on with the service's
// object of before.
void CTVServiceSubscriber::ReleaseAll() {
  LUMIO_LOG(kTrace, "Release All TVS subscriptions !!");
  CAutoLock lock(mutex, CAutoLock::DESTROY_ON_RELEASE);
  ++g_releases;
  ReleaseSignals();
  ReleaseSections();
  ReleaseDsm();
  ReleaseStream(kPesStream);
  ReleaseStream(kCaptionStream);
  ReleasePrograms();
  ReleaseInstances();
}
