#include "subscriptions.h"

#include <TVServiceSubscriber.h>

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <map>
#include <mutex>
#include <utility>
#include <vector>

#include "checks.h"
#include "next.h"
#include "session.h"
#include "symbols.h"

namespace lumio::trace {

namespace {

struct Subscription {
  TvKind kind;
  std::string module;
  std::string what;
  int handle;
  int number; // see SubscriptionName
};

struct Filed {
  const void *object;
  const void *callback;
};

struct Subscriptions {
  std::vector<Subscription> all;
  std::map<std::pair<std::string, std::string>, Filed> callbacks; // by module and stream
  bool refused[kTvKinds] = {};
  std::map<std::pair<TvKind, std::string>, int> made; // subscriptions that each module has made so far
};

Subscriptions &g_subscriptions = *new Subscriptions; // never destroyed: modules unsubscribe as late as at exit

// never destroyed: the services' threads outlive the end of main
std::mutex &g_subscribing_mutex = *new std::mutex;
std::condition_variable &g_subscribed = *new std::condition_variable;
int g_subscribing = 0;
thread_local int g_subscribing_here = 0;

// A service may have its own reasons not to go on before this thread does.
void AwaitSubscriptions() {
  constexpr auto kPatience = std::chrono::seconds(1);
  std::unique_lock<std::mutex> lock(g_subscribing_mutex);
  g_subscribed.wait_for(lock, kPatience, [] { return g_subscribing == g_subscribing_here; });
}

template <class Predicate> bool EndFirst(Predicate predicate) {
  auto &all = g_subscriptions.all;
  const auto found = std::find_if(all.begin(), all.end(), predicate);
  if (found == all.end()) {
    return false;
  }
  const TvKind kind = found->kind;
  all.erase(found);
  if (std::none_of(all.begin(), all.end(), [kind](const Subscription &one) { return one.kind == kind; })) {
    g_subscriptions.refused[static_cast<int>(kind)] = false;
  }
  return true;
}

} // namespace

const char *NameOf(TvKind kind) {
  static constexpr const char *kNames[kTvKinds] = {"signal", "program", "section", "pes", "caption", "dsm"};
  return kNames[static_cast<int>(kind)];
}

Subscribing::Subscribing() {
  const std::lock_guard<std::mutex> lock(g_subscribing_mutex);
  ++g_subscribing;
  ++g_subscribing_here;
}

Subscribing::~Subscribing() {
  {
    const std::lock_guard<std::mutex> lock(g_subscribing_mutex);
    --g_subscribing;
    --g_subscribing_here;
  }
  g_subscribed.notify_all();
}

void NoteSubscription(TvKind kind, const std::string &module, const std::string &what, int handle, int stream) {
  const Lock lock;
  auto &all = g_subscriptions.all;
  const bool is_one_for_all = kind == TvKind::kPes || kind == TvKind::kCaption;
  const bool known = is_one_for_all && std::any_of(all.begin(), all.end(), [&](const Subscription &one) {
                       return one.kind == kind && one.module == module;
                     });
  if (!known) {
    const int ordinal = g_subscriptions.made[{kind, module}]++;
    all.push_back({kind, module, what, handle, stream < 0 ? ordinal : stream});
  }
}

bool EndSubscription(TvKind kind, const std::string &module, const std::string &what) {
  const Lock lock;
  return EndFirst(
      [&](const Subscription &one) { return one.kind == kind && one.module == module && one.what == what; });
}

bool EndIf(bool ended, TvKind kind, int handle) {
  if (ended) {
    const Lock lock;
    EndFirst([&](const Subscription &one) { return one.kind == kind && one.handle == handle; });
  }
  return ended;
}

void EndAllSubscriptions() {
  const Lock lock;
  g_subscriptions.all.clear();
  g_subscriptions.callbacks.clear();
  std::fill(std::begin(g_subscriptions.refused), std::end(g_subscriptions.refused), false);
}

std::string OwnerOf(TvKind kind, int handle) {
  const Lock lock;
  for (const Subscription &one : g_subscriptions.all) {
    if (one.kind == kind && one.handle == handle) {
      return one.module;
    }
  }
  return "";
}

SubscriptionName NameOfHandle(TvKind kind, int handle) {
  AwaitSubscriptions();
  const Lock lock;
  for (const Subscription &one : g_subscriptions.all) {
    if (one.kind == kind && one.handle == handle) {
      return {one.module, one.number};
    }
  }
  return {};
}

SubscriptionName NameOfSection(int key) {
  static Next<CTVServiceSubscriber *(std::string, std::string)> get_subscriber(
      "_ZN20CTVServiceSubscriber15m_GetSubscriberENSt7__cxx1112basic_stringIcSt11char_traitsIcESaIcEEES5_");
  const int stream = key & 0xffff;
  AwaitSubscriptions();
  const Lock lock;
  for (const Subscription &one : g_subscriptions.all) {
    const auto address = reinterpret_cast<std::uintptr_t>(
        one.kind == TvKind::kSection && one.number == stream ? get_subscriber(one.module, "section") : nullptr);
    if (address != 0 && static_cast<std::uint32_t>(address << 16) == (static_cast<std::uint32_t>(key) & 0xffff0000)) {
      return {one.module, stream};
    }
  }
  return {};
}

int HandleOf(TvKind kind, const SubscriptionName &name) {
  const Lock lock;
  for (const Subscription &one : g_subscriptions.all) {
    if (one.kind == kind && one.module == name.module && one.number == name.number) {
      return one.handle;
    }
  }
  return -1;
}

void NoteRefusal(TvKind kind) {
  const Lock lock;
  g_subscriptions.refused[static_cast<int>(kind)] = true;
}

bool WasRefused(TvKind kind) {
  const Lock lock;
  return g_subscriptions.refused[static_cast<int>(kind)];
}

std::string OtherCallback(const std::string &module, const char *stream, const void *object, const void *callback) {
  Filed filed;
  {
    const Lock lock;
    const auto [entry, is_new] = g_subscriptions.callbacks.try_emplace({module, stream}, Filed{object, callback});
    if (is_new || entry->second.callback == callback) {
      return "";
    }
    filed = entry->second;
  }
  return Describe(SymbolOf(filed.callback)) + (filed.object == object ? "" : " of another object");
}

bool HasCallback(const std::string &module, const char *stream) {
  const Lock lock;
  return g_subscriptions.callbacks.count({module, stream}) != 0;
}

void CheckSubscriptionsEnded(const void *caller) {
  std::vector<Subscription> left;
  {
    const Lock lock;
    left = g_subscriptions.all;
  }
  for (const Subscription &one : left) {
    Report({"ecore_shutdown", NameOf(one.kind), one.what.empty() ? "subscribed" : one.what, one.module,
            "this is still subscribed, and a notification after this call crashes: unsubscribe, or call "
            "CTVServiceSubscriber::ReleaseAll(), and end the service's threads before"},
           caller);
  }
}

void PrintSubscriptions(Text &text) {
  for (const Subscription &one : g_subscriptions.all) {
    if (TheOptions().json) {
      text.Append("{\"event\":\"state\",\"subscription\":\"%s\",\"module\":", NameOf(one.kind));
      text.AppendQuoted(one.module.c_str());
      text.Append(",\"what\":");
      text.AppendQuoted(one.what.c_str());
      text.Append("}\n");
    } else {
      text.Append("%s%-9s ", kMore, NameOf(one.kind));
      text.AppendColumn(one.module.c_str(), 18);
      text.Append(" %s\n", one.what.c_str());
    }
    Put(text);
  }
}

} // namespace lumio::trace
