// Wraps the functions of lumio-banner-state.h. The library identifies a callback by its address, so each callback has
// one thunk, whichever module registers it.
#include <lumio-banner-state.h>

#include <algorithm>
#include <cstdio>
#include <vector>

#include "checks.h"
#include "heap.h"
#include "next.h"
#include "notification.h"
#include "player.h"
#include "record.h"
#include "rooms.h"
#include "session.h"

using namespace lumio::trace;

namespace {

constexpr char kAdd[] = "lumio_banner_state_cb_add";
constexpr char kDel[] = "lumio_banner_state_cb_del";
constexpr char kSet[] = "lumio_set_banner_state";
constexpr char kGet[] = "lumio_get_banner_state";
constexpr int kBanners = 32;
constexpr char kWord[] = "memory/lumio/lumio_banner_state_1"; // a bit for each banner

struct Registration {
  int banner;
  lumio_banner_state_cb cb;
  void *data;
  Symbol symbol;
};

struct Banners {
  std::vector<Registration> registrations;
  unsigned shown = 0; // one bit for each banner that this process has shown
};

Banners &g_banners = *new Banners; // never destroyed: modules delete their callbacks as late as at exit

Next<void()> g_init("lumio_banner_init");
Next<void(int, lumio_banner_state_cb, void *)> g_add(kAdd);
Next<void(int, lumio_banner_state_cb)> g_del(kDel);
Next<int(int, int)> g_set(kSet);
Next<int(int, int *)> g_get(kGet);
Next<int(const char *, int *)> g_vconf_get_int("vconf_get_int");
Next<int(const char *, int)> g_vconf_set_int("vconf_set_int");

struct CallBanner {
  static void Run(ThunkTarget &target, lumio_banner_state_cb function, int banner, void *data) {
    const NotifiedCall call(target);
    function(banner, data);
  }
};
using BannerThunks = Thunks<CallBanner, lumio_banner_state_cb>;

bool IsBanner(int banner) { return banner >= 0 && banner < kBanners; }

// The module of a banner's callback is the object that contains it: a registration has no name.
lumio_banner_state_cb ThunkOf(lumio_banner_state_cb cb) {
  const Lock lock;
  return cb ? BannerThunks::For(SymbolOf(cb).object, cb) : nullptr;
}

void CheckBanner(const char *function, int banner, const void *caller) {
  CheckEina(function, caller);
  CheckMainLoop(function, "", caller);
  if (!IsBanner(banner)) {
    Report({function, "banner_id", std::to_string(banner), "", "there is no such banner: use 0 to 31"}, caller);
  }
}

void CheckAdd(int banner, lumio_banner_state_cb cb, void *data, const void *caller) {
  CheckBanner(kAdd, banner, caller);
  if (!cb) {
    Report({kAdd, "cb", "null", "", "nothing was registered, because a registration needs a callback"}, caller);
  }
  if (!data) {
    Report({kAdd, "data", "null", "",
            "nothing was registered, because a registration needs data: pass memory from malloc(), which the library "
            "frees"},
           caller);
  } else if (const char *kind = WhyNotFromHeap(data)) {
    Report({kAdd, "data", Pointer(data), "",
            std::string("this is ") + kind +
                ", and the library frees it when the callback is deleted: pass memory from malloc()"},
           caller);
  }
}

void CheckDel(int banner, lumio_banner_state_cb cb, const void *caller) {
  CheckBanner(kDel, banner, caller);
  if (!cb) {
    Report({kDel, "cb", "null", "", "there is no such callback: nothing was deleted"}, caller);
  } else if (IsBanner(banner)) {
    bool known = false;
    {
      const Lock lock;
      known = std::any_of(g_banners.registrations.begin(), g_banners.registrations.end(),
                          [&](const Registration &one) { return one.banner == banner && one.cb == cb; });
    }
    if (!known) {
      Report({kDel, "cb", Describe(SymbolOf(cb)), "",
              "this callback is not registered for banner " + std::to_string(banner) + ": nothing was deleted"},
             caller);
    }
  }
}

// What earlier programs have shown decides which of the first changes are changes. A recording begins with it, and a
// replay gives it to the program.
void BeginWithTheSameBanners() {
  static bool begun = false; // used on the main-loop thread only
  if (begun || (!IsRecording() && !IsReplaying())) {
    return;
  }
  begun = true;
  int word = 0;
  if (IsReplaying()) {
    g_vconf_set_int(kWord, RecordedBanners());
  }
  if (g_vconf_get_int(kWord, &word) == 0) {
    RecordBanners(word);
  }
}

bool IsRegisteredData(const void *data) {
  return std::any_of(g_banners.registrations.begin(), g_banners.registrations.end(),
                     [data](const Registration &one) { return one.data == data; });
}

void Forget(int banner, lumio_banner_state_cb cb) {
  const Lock lock;
  auto &all = g_banners.registrations;
  const auto gone = std::stable_partition(
      all.begin(), all.end(), [&](const Registration &one) { return one.banner != banner || one.cb != cb; });
  std::vector<void *> data;
  for (auto one = gone; one != all.end(); ++one) {
    data.push_back(one->data);
  }
  all.erase(gone, all.end());
  for (void *one : data) {
    if (!IsRegisteredData(one)) {
      LibraryFrees(one);
    }
  }
}

} // namespace

extern "C" {

void lumio_banner_init(void) { g_init(); }

void lumio_banner_state_cb_add(int banner_id, lumio_banner_state_cb cb, void *data) {
  CheckAdd(banner_id, cb, data, __builtin_return_address(0));
  if (cb && data && IsBanner(banner_id)) {
    const Lock lock;
    g_banners.registrations.push_back({banner_id, cb, data, SymbolOf(cb)});
    LibraryOwns(data);
  }
  g_add(banner_id, ThunkOf(cb), data);
}

void lumio_banner_state_cb_del(int banner_id, lumio_banner_state_cb cb) {
  CheckDel(banner_id, cb, __builtin_return_address(0));
  Forget(banner_id, cb);
  g_del(banner_id, ThunkOf(cb));
}

int lumio_set_banner_state(int banner_id, int state) {
  const void *caller = __builtin_return_address(0);
  CheckBanner(kSet, banner_id, caller);
  if (state != 0 && state != 1) {
    Report({kSet, "state", std::to_string(state), "", "nothing was set, because there is no such state: use 0 or 1"},
           caller);
  }
  Words words;
  words.Set(TheOptions().json ? "\"banner\":%d,\"change\":\"%s\",\"object\":\"%.60s\"" : "%d %s by %.60s", banner_id,
            state ? "shown" : "hidden", SymbolOf(caller).object.c_str());
  BeginWithTheSameBanners();
  BeginOwn();
  RecordBanner(banner_id, state);
  Notification notification("banner", words);
  const int result = g_set(banner_id, state);
  if (result != 0) {
    notification.ToldNobody("refused");
  } else if (notification.Count() == 0) {
    notification.ToldNobody(BannerThunks::IsExhausted() ? "delivered to callbacks that are not traced" : "no callback");
  }
  if (result == 0 && state == 1) {
    const Lock lock;
    g_banners.shown |= 1u << banner_id;
  }
  return result;
}

int lumio_get_banner_state(int banner_id, int *state) {
  const void *caller = __builtin_return_address(0);
  CheckBanner(kGet, banner_id, caller);
  if (!state) {
    Report({kGet, "state", "null", "", "the pointer for the state is null: pass the address of an int"}, caller);
  }
  BeginWithTheSameBanners();
  return g_get(banner_id, state);
}

} // extern "C"

namespace lumio::trace {

void VisitBannerCallbacks(const CallbackVisitor &visit) {
  for (const Registration &one : g_banners.registrations) {
    visit("banner callback", "", one.symbol, reinterpret_cast<const void *>(one.cb));
  }
}

void PrintBannerState(Text &text) {
  const bool json = TheOptions().json;
  text.Append("%s%s", json ? "" : kMore,
              json ? "{\"event\":\"state\",\"banners\":[" : "banners that this program has shown:");
  const char *separator = "";
  for (int banner = 0; banner < kBanners; ++banner) {
    if (g_banners.shown >> banner & 1) {
      text.Append(json ? "%s%d" : "%s %d", separator, banner);
      separator = json ? "," : "";
    }
  }
  text.Append("%s", json ? "]}\n" : g_banners.shown ? "\n" : " none\n");
  Put(text);
}

} // namespace lumio::trace
