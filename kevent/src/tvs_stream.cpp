#include "tvs_stream.h"

#include <memory>
#include <new>
#include <set>
#include <string>
#include <utility>

#include "tvs_bridge.h"
#include "tvs_shared.h"

using namespace lumio::tvs;

namespace {

// What distinguishes the streams. Everything else in this file is the same for both.

struct Pes {
  using Data = TSPESData;
  using Event = TPesEvent;
  using Callback = Subscriber::PesCallback;
  using Service = IPESDataSubscriber;
  static constexpr EventIndex kIndex = kPes;
  static constexpr char kWord[] = "pes";
  static constexpr Callback Subscriber::*kCallback = &Subscriber::m_pesCallback;
  static constexpr std::set<std::string> *&kNames = Subscriber::m_pPesSubscriptions;
  static constexpr Service *&kService = Subscriber::m_pPESDataSubscriber;
  static constexpr int &kHandle = Subscriber::m_pesSubscriptionHandle;
  static constexpr auto kCreate = TVServiceAPI::CreatePESDataSubscriber;
  static constexpr auto kDestroy = TVServiceAPI::DestroyPESDataSubscriber;
  static constexpr auto kNotify = Subscriber::t_PesDataCallback;
};

struct Caption {
  using Data = TSCaption;
  using Event = TCaptionEvent;
  using Callback = Subscriber::CaptionCallback;
  using Service = IDataSubscriber;
  static constexpr EventIndex kIndex = kCaption;
  static constexpr char kWord[] = "caption";
  static constexpr Callback Subscriber::*kCallback = &Subscriber::m_captionCallback;
  static constexpr std::set<std::string> *&kNames = Subscriber::m_pCaptionSubscriptions;
  static constexpr Service *&kService = Subscriber::m_pCaptionSubscriber;
  static constexpr int &kHandle = Subscriber::m_captionSubscriptionHandle;
  static constexpr auto kCreate = TVServiceAPI::CreateDataSubscriber;
  static constexpr auto kDestroy = TVServiceAPI::DestroyDataSubscriber;
  static constexpr auto kNotify = Subscriber::t_CaptionCallback;
};

// --- Subscribing -----------------------------------------------------------------------------------------------------

template <class Stream>
bool Subscribe(const char *function, Subscriber &object, typename Stream::Callback cb, void *user_data) {
  CAutoLock lock(mutex);
  if (!Stream::kService) {
    Stream::kCreate(Subscriber::m_profile, Subscriber::m_group, &Stream::kService);
  }
  if (!Stream::kService) {
    LUMIO_LOG_FOR(function, kError, "failed to subscribe %s : %s", Stream::kWord, object.m_name.c_str());
    return false;
  }
  Subscriber *instance = object.m_GetCopiedSubscriptionInstance(Stream::kWord);
  if (!instance) {
    LUMIO_LOG_FOR(function, kError, "failed to get %s subscriber !", Stream::kWord);
    return false;
  }
  // Allocate before anything else changes, so that running out of memory leaves everything as it was.
  std::set<std::string> name{object.m_name};
  const bool is_first = !Stream::kNames;
  CreateIfMissing(Stream::kNames);

  // Deliberate: the latest call's callback and user data count, even if the service refuses (docs/surprises.md).
  instance->m_pUserData = user_data;
  instance->*Stream::kCallback = cb;
  if (is_first && Stream::kService->Subscribe(Stream::kNotify, nullptr, &Stream::kHandle) == 0) {
    // Deliberate: the empty set stays, so the stream counts as subscribed. Further calls return true without asking the
    // service, and nothing is delivered (docs/surprises.md).
    LUMIO_LOG_FOR(function, kError, "failed to subscribe %s !", Stream::kWord);
    return false;
  }
  LUMIO_LOG_FOR(function, kTrace, "subscription success : %s", object.m_name.c_str());
  Stream::kNames->merge(name);
  return true;
}

// Deliberate: the set is gone before the service is asked. If the service refuses, the caller sees false, and false
// again if it repeats the call (docs/surprises.md).
template <class Stream> bool Unsubscribe(const char *function, const Subscriber &object) {
  CAutoLock lock(mutex);
  if (!Stream::kNames || !Stream::kService) {
    LUMIO_LOG_FOR(function, kError, "No subscriptions !!");
    return false;
  }
  if (Stream::kNames->erase(object.m_name) == 0) {
    return false;
  }
  if (!Stream::kNames->empty()) {
    return true;
  }
  Discard(Stream::kNames);
  return Stream::kService->Unsubscribe(Stream::kHandle) > 0;
}

// --- Notifications ---------------------------------------------------------------------------------------------------

// Sends a copy of the data to the main loop.
template <class Stream> void PostData(const typename Stream::Data &data) {
  if (Load(Stream::kNames) && Load(Subscriber::m_pSubscriberInstances)) {
    try {
      auto copy = std::make_unique<typename Stream::Data>(data);
      if (Post(Stream::kIndex, typename Stream::Event{copy.get()})) {
        static_cast<void>(copy.release()); // the handler deletes it
        return;
      }
    } catch (const std::bad_alloc &) {
      // Fall through: the notification is dropped.
    }
  }
  LogDropped(Stream::kIndex);
}

template <class Stream> std::set<std::string> NamesOf() {
  const auto names = LockInHandler(Stream::kNames);
  return names ? *names : std::set<std::string>();
}

template <class Stream> struct Target {
  typename Stream::Callback callback = nullptr;
  void *user_data = nullptr;
};

// Returns a null callback if the module has none, or no copy.
template <class Stream> Target<Stream> TargetOf(const std::string &name) {
  const auto instances = LockInHandler(Subscriber::m_pSubscriberInstances);
  const Subscriber *instance = instances ? Subscriber::m_GetSubscriber(name, Stream::kWord) : nullptr;
  return instance ? Target<Stream>{instance->*Stream::kCallback, instance->m_pUserData} : Target<Stream>();
}

// Calls each module with the same data. The set of names is that of the beginning, but each name is looked up when its
// turn comes: a module that subscribed anew after a release is called too.
//
// A notification that was queued when the last module unsubscribed finds no names and reaches nobody.
template <class Stream> void HandleData(const typename Stream::Event &event) {
  std::unique_ptr<typename Stream::Data> posted(event.data);
  typename Stream::Data data = std::move(*posted);
  posted.reset();
  for (const std::string &name : NamesOf<Stream>()) {
    const auto target = TargetOf<Stream>(name);
    if (target.callback) {
      target.callback(data, target.user_data);
    } else {
      // Deliberate: a null callback is reported like a missing copy. A caller sees this text at each notification for a
      // module that subscribed without a callback (docs/surprises.md).
      LUMIO_LOG_FOR(kHandler, kError, "failed to find %s subscription instance : name = %s", Stream::kWord,
                    name.c_str());
    }
  }
}

// --- The end ---------------------------------------------------------------------------------------------------------

// Deliberate: the service's subscription is not ended, and its subscriber stays in use (docs/surprises.md).
template <class Stream> void Release() {
  if (Stream::kNames) {
    Discard(Stream::kNames);
    Stream::kDestroy();
  }
}

} // namespace

bool CTVServiceSubscriber::SubscribePES(PesCallback cb, void *userData) {
  return Subscribe<Pes>(__func__, *this, cb, userData);
}
bool CTVServiceSubscriber::UnsubscribePES() { return Unsubscribe<Pes>(__func__, *this); }
void CTVServiceSubscriber::t_PesDataCallback(TSPESData &data, void *) { PostData<Pes>(data); }
void lumio::tvs::HandlePes(const TPesEvent &event) { HandleData<Pes>(event); }
void lumio::tvs::ReleasePes() { Release<Pes>(); }

bool CTVServiceSubscriber::SubscribeCaption(CaptionCallback cb, void *userData) {
  return Subscribe<Caption>(__func__, *this, cb, userData);
}
bool CTVServiceSubscriber::UnsubscribeCaption() { return Unsubscribe<Caption>(__func__, *this); }
void CTVServiceSubscriber::t_CaptionCallback(TSCaption &data, void *) { PostData<Caption>(data); }
void lumio::tvs::HandleCaption(const TCaptionEvent &event) { HandleData<Caption>(event); }
void lumio::tvs::ReleaseCaptions() { Release<Caption>(); }
