// The host's TV service. Each kind of notification has a subscriber object, a table of subscriptions and a thread.
#pragma once

#include <TVServiceAPI.h>
#include <lumio-host/tv-control.h>

#include <atomic>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include "call_plan.h"
#include "delivery_thread.h"

namespace lumio::tv {

// Results of the operations of the subscriber objects.
constexpr int kDone = 1;
constexpr int kFailed = 0;

// Returns a new positive handle, unique across all kinds.
int NextHandle();

// Carries out one call of an operation as the test or demo has planned it.
int Carry(Operation operation, const std::function<int()> &perform);

// Called after each change of the subscriptions, on the thread that made it and without a lock. Whoever finds out what
// to tell from the subscriptions sets it; null at first.
inline std::atomic<void (*)()> g_on_change{nullptr};

inline void AnnounceChange() {
  if (void (*const on_change)() = g_on_change) {
    on_change();
  }
}

// The subscriptions of one kind. `Details` is what a delivery needs of its subscription.
template <class Key, class Details> class SubscriptionTable {
public:
  using Deliver = std::function<void(const Details &)>;

  explicit SubscriptionTable(Kind kind) : kind_(kind) {}

  // A key that is already subscribed continues with the new details.
  void Add(const Key &key, int handle, const Details &details, void *user_data, const std::string &description) {
    {
      const std::lock_guard<std::mutex> lock(mutex_);
      const auto entry = entries_.insert({key, {{kind_, handle, nullptr, "", 0}, details}}).first;
      entry->second.details = details;
      entry->second.shown.userData = user_data;
      entry->second.shown.description = description;
    }
    AnnounceChange();
  }

  int Remove(const Key &key) {
    return RemoveIf(key, [](const Details &) { return true; });
  }

  int RemoveIf(const Key &key, const std::function<bool(const Details &)> &allowed) {
    {
      const std::lock_guard<std::mutex> lock(mutex_);
      const auto entry = entries_.find(key);
      if (entry == entries_.end() || !allowed(entry->second.details)) {
        return kFailed;
      }
      entries_.erase(entry);
    }
    AnnounceChange();
    return kDone;
  }

  void Clear() {
    {
      const std::lock_guard<std::mutex> lock(mutex_);
      entries_.clear();
    }
    AnnounceChange();
  }

  // each(int handle, const Key &, const Details &) for each subscription, which it must not change.
  template <class Each> void ForEach(Each each) {
    const std::lock_guard<std::mutex> lock(mutex_);
    for (const auto &[key, entry] : entries_) {
      each(entry.shown.handle, key, entry.details);
    }
  }

  int EmitTo(const Key &key, Deliver deliver) {
    const std::lock_guard<std::mutex> lock(mutex_);
    const auto entry = entries_.find(key);
    if (entry == entries_.end()) {
      return 0;
    }
    Post(key, entry->second.shown.handle, std::make_shared<const Deliver>(std::move(deliver)));
    return 1;
  }

  int EmitToEach(const std::function<bool(const Details &)> &chosen, Deliver deliver) {
    const auto shared = std::make_shared<const Deliver>(std::move(deliver));
    const std::lock_guard<std::mutex> lock(mutex_);
    int count = 0;
    for (const auto &[key, entry] : entries_) {
      if (chosen(entry.details)) {
        Post(key, entry.shown.handle, shared);
        ++count;
      }
    }
    return count;
  }

  void List(std::vector<Subscription> &list) {
    const std::lock_guard<std::mutex> lock(mutex_);
    for (const auto &[key, entry] : entries_) {
      list.push_back(entry.shown);
    }
  }

  DeliveryThread thread;

private:
  struct Entry {
    Subscription shown;
    Details details;
  };

  // The caller holds the lock, so that deliveries have the order of the emissions. The callback runs without the lock,
  // since a caller that subscribes or unsubscribes may hold a lock of its own that the callback waits for. What it
  // delivers may be large; all subscriptions share it.
  void Post(const Key &key, int handle, std::shared_ptr<const Deliver> deliver) {
    thread.Post([this, key, handle, deliver = std::move(deliver)] {
      std::unique_lock<std::mutex> lock(mutex_);
      const auto entry = entries_.find(key);
      if (entry == entries_.end() || entry->second.shown.handle != handle) {
        return; // unsubscribed meanwhile
      }
      ++entry->second.shown.delivered;
      const Details details = entry->second.details;
      lock.unlock();
      (*deliver)(details);
    });
  }

  const Kind kind_;
  std::mutex mutex_;
  std::map<Key, Entry> entries_;
};

struct SignalService final : ISignalSubscriber {
  using Callback = int (*)(ESignalType, EProfile, unsigned short, TSSignalData, void *);

  int Subscribe(ESignalType type, void *userData, EProfile profile, unsigned short screenId) override;
  int Unsubscribe(ESignalType type, EProfile profile, unsigned short screenId) override;

  using Key = std::tuple<ESignalType, EProfile, unsigned short>;
  SubscriptionTable<Key, void *> subscriptions{Kind::Signal};
  std::atomic<Callback> callback{nullptr};
};

struct ProgramService final : IProgramSubscriber {
  using Callback = void (*)(EProgramChangeType, TCProgramData *, int, int);
  enum class Form { Program, PresentFollowing, List };
  // What is subscribed: one programme, or those of a service that are present and following or begin in a range.
  struct Details {
    Form form;
    TCServiceId service;
    ESubscribeType type;
    unsigned short event;
    unsigned int first;
    unsigned int second;
  };

  int SubscribeProgram(const TCProgramFilteringItem &item, int &handle) override;
  int UnsubscribeProgram(int handle) override;
  int SubscribeProgramListPF(int arg, const TCServiceId &serviceId, ESubscribeType type, int &handle) override;
  int SubscribeProgramList(int arg, const TCServiceId &serviceId, unsigned int first, unsigned int second,
                           ESubscribeType type, int &handle) override;
  int UnsubscribeProgramList(int handle) override;
  bool GetMonitoringType(EProgramMonitoringType &type) override;

  TCProgramData *Keep(const TCProgramData &data);

  SubscriptionTable<int, Details> subscriptions{Kind::Program};
  std::atomic<Callback> callback{nullptr};
  std::atomic<EProgramMonitoringType> monitoring_type{PROGRAM_MONITORING_PRESENT_FOLLOWING};

private:
  int Add(const Details &details, const std::string &description, int &handle);

  std::deque<TCProgramData> kept_; // used by the delivery thread only; a deque does not move its elements
};

struct SectionService final : ISectionSubscriber {
  using Callback = void (*)(bool, unsigned short, unsigned char *, int);
  struct Details {
    int key;
    TCSectionFilterCriteriaHelper filter; // criteria are a filter over the first byte
  };

  int SubscribeByCriteria(int key, const TCSectionCriteriaHelper &criteria, int &handle) override;
  int SubscribeByFilter(int key, const TCSectionFilterCriteriaHelper &filter, int &handle) override;
  int Unsubscribe(int handle) override;

  SubscriptionTable<int, Details> subscriptions{Kind::Section};
  std::atomic<Callback> callback{nullptr};

private:
  int Add(const Details &details, int &handle);
};

// PES packets and captions differ only in their data.
template <class Interface, class Data, Kind kind, Operation subscribe, Operation unsubscribe>
struct DataService final : Interface {
  using Callback = void (*)(Data &, void *);
  struct Details {
    Callback callback;
    void *user_data;
  };

  int Subscribe(Callback callback, void *userData, int *handle) override {
    return Carry(subscribe, [&] {
      if (!callback || !handle) {
        return kFailed;
      }
      *handle = NextHandle();
      subscriptions.Add(*handle, *handle, {callback, userData}, userData, "of the current service");
      return kDone;
    });
  }

  int Unsubscribe(int handle) override {
    return Carry(unsubscribe, [&] { return subscriptions.Remove(handle); });
  }

  int Emit(const Data &data) {
    return subscriptions.EmitToEach([](const Details &) { return true; },
                                    [data](const Details &details) {
                                      Data copy = data;
                                      details.callback(copy, details.user_data);
                                    });
  }

  SubscriptionTable<int, Details> subscriptions{kind};
};

using PesService =
    DataService<IPESDataSubscriber, TSPESData, Kind::Pes, Operation::SubscribePES, Operation::UnsubscribePES>;
using CaptionService =
    DataService<IDataSubscriber, TSCaption, Kind::Caption, Operation::SubscribeCaption, Operation::UnsubscribeCaption>;

struct DsmService final : IDsm {
  using Callback = void (*)(TSDsmMessage &);

  int Attach(unsigned int &sessionHandle, const std::vector<unsigned char> &target, EDsmDataServiceType serviceType,
             EDsmAttachType attachType, void *userData, bool flag) override;
  int Detach(unsigned int sessionHandle) override;

  struct Details {
    std::string target;
    EDsmAttachType attach_type;
  };
  SubscriptionTable<int, Details> subscriptions{Kind::Dsm};
  std::atomic<Callback> callback{nullptr};
};

// As EmitProgram, but with the callback's own pointer: `data` stays there to the process's end.
int TellProgram(int handle, EProgramChangeType change, TCProgramData *data, int position);

// The whole service.
struct Service {
  static Service &Get();

  void Flush();
  void Stop();

  // In the order of `Kind`.
  template <class Action> void ForEachKind(Action action) {
    action(signal.subscriptions);
    action(program.subscriptions);
    action(section.subscriptions);
    action(pes.subscriptions);
    action(caption.subscriptions);
    action(dsm.subscriptions);
  }

  CallPlan<Operation> plan;
  SignalService signal;
  ProgramService program;
  SectionService section;
  PesService pes;
  CaptionService caption;
  DsmService dsm;

private:
  Service();
};

} // namespace lumio::tv
