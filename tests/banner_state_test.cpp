// Banner states: the stored word, the callbacks and the log.
#include <lumio-banner-state.h>

#include <gmock/gmock.h>

#include <dlfcn.h>

#include <climits>
#include <cstdint>
#include <cstdlib>
#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "fake_dlog.h"
#include "fake_memory.h"
#include "fake_vconf.h"

using testing::Each;
using testing::ElementsAre;
using testing::Field;
using testing::IsEmpty;
using testing::Pair;

namespace {

const char kKey[] = "memory/lumio/lumio_banner_state_1";
const std::string kGet = std::string("get ") + kKey;

std::string Set(int value) { return std::string("set ") + kKey + " " + std::to_string(value); }

void *NewData() { return calloc(1, sizeof(int)); }

// The arguments of the callbacks, in order of the calls.
std::vector<std::pair<int, void *>> g_calls;
// Act runs this on its first call.
std::function<void()> g_action;

void Note(int banner_id, void *data) { g_calls.emplace_back(banner_id, data); }
void NoteToo(int banner_id, void *data) { g_calls.emplace_back(banner_id, data); }

void Act(int banner_id, void *data) {
  Note(banner_id, data);
  if (const auto action = std::exchange(g_action, nullptr)) {
    action();
  }
}

class Banner : public testing::Test {
protected:
  Banner() { fake_vconf.values[kKey] = 0; }
  ~Banner() override {
    for (int id = 0; id < 32; ++id) {
      for (const lumio_banner_state_cb cb : {Note, NoteToo, Act}) {
        lumio_banner_state_cb_del(id, cb);
      }
    }
  }

  // Registers the callback with new data, and returns the data.
  void *Add(int banner_id, lumio_banner_state_cb cb = Note) {
    void *data = NewData();
    lumio_banner_state_cb_add(banner_id, cb, data);
    return data;
  }

  // Shows the banner as if all banners were hidden, and forgets the calls and lines before it.
  int Show(int banner_id) {
    fake_vconf.values[kKey] = 0;
    fake_vconf.calls.clear();
    g_calls.clear();
    ClearLog();
    return lumio_set_banner_state(banner_id, 1);
  }

  int &Word() { return fake_vconf.values[kKey]; }
};

class BannerOutOfRange : public Banner, public testing::WithParamInterface<int> {};
INSTANTIATE_TEST_SUITE_P(Ids, BannerOutOfRange, testing::Values(32, -1, INT_MAX, INT_MIN));

class BannerBadState : public Banner, public testing::WithParamInterface<int> {};
INSTANTIATE_TEST_SUITE_P(States, BannerBadState, testing::Values(2, -1, INT_MAX, INT_MIN));

} // namespace

TEST(BannerExports, HaveCNames) {
  for (const char *name : {"lumio_banner_init", "lumio_banner_state_cb_add", "lumio_banner_state_cb_del",
                           "lumio_set_banner_state", "lumio_get_banner_state"}) {
    EXPECT_NE(dlsym(RTLD_DEFAULT, name), nullptr) << name;
  }
}

TEST_F(Banner, LogsWithTheLibrarysTagFromItsOwnFile) {
  lumio_banner_init();
  lumio_set_banner_state(3, 1);
  EXPECT_THAT(LogLines(), Each(AllOf(Field(&LogLine::log_id, 0), Field(&LogLine::tag, "lumio-kevent"),
                                     Field(&LogLine::file, "lumio-banner-state.cpp"))));
  EXPECT_EQ(LogLines().front().function, "lumio_banner_init");
  EXPECT_EQ(LogLines().back().function, "lumio_set_banner_state");
}

// --- Init ------------------------------------------------------------------------------------------------------------

TEST_F(Banner, InitOnlyLogs) {
  void *data = Add(3);
  ClearLog();
  lumio_banner_init();
  EXPECT_THAT(LogMessages(), ElementsAre("2 init"));
  EXPECT_THAT(fake_vconf.calls, IsEmpty());
  Show(3);
  EXPECT_THAT(g_calls, ElementsAre(Pair(3, data)));
}

// --- Setting ---------------------------------------------------------------------------------------------------------

TEST_F(Banner, SetStoresTheBitAndCallsInOrderOfRegistration) {
  void *first = Add(3, NoteToo);
  void *second = Add(3, Note);
  void *third = Add(3, NoteToo);
  ClearLog();
  EXPECT_EQ(lumio_set_banner_state(3, 1), 0);
  EXPECT_EQ(Word(), 8);
  EXPECT_THAT(fake_vconf.calls, ElementsAre(kGet, Set(8)));
  EXPECT_THAT(g_calls, ElementsAre(Pair(3, first), Pair(3, second), Pair(3, third)));
  EXPECT_THAT(LogMessages(), ElementsAre("2 Set banner [3]  to state [1]", "2 value changed,should call cb",
                                         "2 callback", "2 callback", "2 callback"));
}

TEST_F(Banner, SetWritesBeforeItCalls) {
  Add(3, Act);
  g_action = [this] { EXPECT_EQ(Word(), 8); };
  Show(3);
  EXPECT_FALSE(g_action);
}

TEST_F(Banner, SetWithoutCallbacksStillTellsOfTheChange) {
  EXPECT_EQ(lumio_set_banner_state(3, 1), 0);
  EXPECT_THAT(LogMessages(), ElementsAre("2 Set banner [3]  to state [1]", "2 value changed,should call cb"));
}

TEST_F(Banner, SetAgainWritesButCallsNobody) {
  Add(3);
  Word() = 8;
  ClearLog();
  EXPECT_EQ(lumio_set_banner_state(3, 1), 0);
  EXPECT_THAT(fake_vconf.calls, ElementsAre(kGet, Set(8)));
  EXPECT_THAT(g_calls, IsEmpty());
  EXPECT_THAT(LogMessages(), ElementsAre("2 Set banner [3]  to state [1]"));
}

TEST_F(Banner, HidingWritesTheWordUnchanged) {
  Add(3);
  Word() = 8;
  ClearLog();
  EXPECT_EQ(lumio_set_banner_state(3, 0), 0);
  EXPECT_THAT(fake_vconf.calls, ElementsAre(kGet, Set(8)));
  EXPECT_THAT(g_calls, IsEmpty());
  EXPECT_THAT(LogMessages(), ElementsAre("2 Set banner [3]  to state [0]"));
  int state = -1;
  EXPECT_EQ(lumio_get_banner_state(3, &state), 0);
  EXPECT_EQ(state, 1);
}

TEST_F(Banner, HidingAHiddenBannerKeepsTheOthers) {
  Word() = 5;
  EXPECT_EQ(lumio_set_banner_state(3, 0), 0);
  EXPECT_THAT(fake_vconf.calls, ElementsAre(kGet, Set(5)));
}

TEST_F(Banner, EachHasABitOfItsOwn) {
  for (int id = 0; id < 32; ++id) {
    SCOPED_TRACE(id);
    const int bit = static_cast<int>(1U << id);
    int state = -1;
    Word() = ~bit;
    EXPECT_EQ(lumio_get_banner_state(id, &state), 0);
    EXPECT_EQ(state, 0);
    EXPECT_EQ(lumio_set_banner_state(id, 1), 0);
    EXPECT_EQ(Word(), -1);
    Word() = bit;
    EXPECT_EQ(lumio_get_banner_state(id, &state), 0);
    EXPECT_EQ(state, 1);
  }
}

TEST_F(Banner, EachCallsItsOwnCallbacksOnly) {
  std::vector<void *> data;
  data.reserve(32);
  for (int id = 0; id < 32; ++id) {
    data.push_back(Add(id));
  }
  for (int id = 0; id < 32; ++id) {
    EXPECT_EQ(Show(id), 0);
    EXPECT_THAT(g_calls, ElementsAre(Pair(id, data[id])));
  }
}

TEST_F(Banner, TheLastBannerIsTheSignBit) {
  EXPECT_EQ(lumio_set_banner_state(31, 1), 0);
  EXPECT_EQ(Word(), INT_MIN);
  int state = -1;
  EXPECT_EQ(lumio_get_banner_state(31, &state), 0);
  EXPECT_EQ(state, 1);
}

TEST_P(BannerOutOfRange, SetRefusesTheIdBeforeTheState) {
  for (const int state : {0, 1, 2}) {
    ClearLog();
    EXPECT_EQ(lumio_set_banner_state(GetParam(), state), -1);
    EXPECT_THAT(LogMessages(), ElementsAre("2 Set banner [" + std::to_string(GetParam()) + "]  to state [" +
                                               std::to_string(state) + "]",
                                           "16 banner id out of range"));
  }
  EXPECT_THAT(fake_vconf.calls, IsEmpty());
}

TEST_P(BannerBadState, SetRefusesIt) {
  EXPECT_EQ(lumio_set_banner_state(3, GetParam()), -1);
  EXPECT_THAT(LogMessages(), ElementsAre("2 Set banner [3]  to state [" + std::to_string(GetParam()) + "]",
                                         "16 banner state out of control"));
  EXPECT_THAT(fake_vconf.calls, IsEmpty());
}

TEST_F(Banner, SetFailsWithoutTheKey) {
  Add(3);
  fake_vconf.values.clear();
  ClearLog();
  EXPECT_EQ(lumio_set_banner_state(3, 1), -1);
  EXPECT_THAT(fake_vconf.calls, ElementsAre(kGet));
  EXPECT_THAT(g_calls, IsEmpty());
  EXPECT_THAT(LogMessages(), ElementsAre("2 Set banner [3]  to state [1]", "16 vconf get banner1 status failed. "));
}

TEST_F(Banner, SetFailsWhenTheWriteDoes) {
  void *data = Add(3);
  fake_vconf.set_fails = true;
  ClearLog();
  EXPECT_EQ(lumio_set_banner_state(3, 1), -1);
  EXPECT_THAT(fake_vconf.calls, ElementsAre(kGet, Set(8)));
  EXPECT_THAT(g_calls, IsEmpty());
  EXPECT_THAT(LogMessages(), ElementsAre("2 Set banner [3]  to state [1]", "16 vconf set banner1 status failed."));

  fake_vconf.set_fails = false;
  EXPECT_EQ(lumio_set_banner_state(3, 1), 0);
  EXPECT_THAT(g_calls, ElementsAre(Pair(3, data)));
}

TEST_F(Banner, SetFailsWhenTheWriteOfAnUnchangedWordDoes) {
  fake_vconf.set_fails = true;
  EXPECT_EQ(lumio_set_banner_state(3, 0), -1);
}

// --- Reading ---------------------------------------------------------------------------------------------------------

class BannerGet : public Banner, public testing::WithParamInterface<int> {};
INSTANTIATE_TEST_SUITE_P(States, BannerGet, testing::Values(0, 1));

TEST_P(BannerGet, ReadsTheBitAndLogsWhereItWasStored) {
  Word() = GetParam() << 4;
  int state = -1;
  EXPECT_EQ(lumio_get_banner_state(4, &state), 0);
  EXPECT_EQ(state, GetParam());
  EXPECT_THAT(fake_vconf.calls, ElementsAre(kGet));
  const int address = static_cast<int>(reinterpret_cast<std::intptr_t>(&state));
  EXPECT_THAT(LogMessages(),
              ElementsAre("2 get banner [4] state", GetParam() ? "2 banner [4] show" : "2 banner [4] hide",
                          "2 banner [4] state is [" + std::to_string(address) + "]"));
}

TEST_P(BannerOutOfRange, GetRefusesIt) {
  int state = 77;
  EXPECT_EQ(lumio_get_banner_state(GetParam(), &state), -1);
  EXPECT_EQ(state, 77);
  EXPECT_THAT(fake_vconf.calls, IsEmpty());
  EXPECT_THAT(LogMessages(),
              ElementsAre("2 get banner [" + std::to_string(GetParam()) + "] state", "16 banner id out of range"));
}

TEST_F(Banner, GetFailsWhenTheReadDoes) {
  fake_vconf.get_fails = true;
  int state = 77;
  EXPECT_EQ(lumio_get_banner_state(3, &state), -1);
  EXPECT_EQ(state, 77);
  EXPECT_THAT(LogMessages(), ElementsAre("2 get banner [3] state", "16 vconf get banner1 status failed. "));
}

// --- Registering -----------------------------------------------------------------------------------------------------

TEST_F(Banner, AddLogsOneLine) {
  Add(3);
  EXPECT_THAT(LogMessages(), ElementsAre("2 banner state cb add"));
}

TEST_F(Banner, AddRefusesWhatItCannotCallAndLeavesTheDataToItsOwner) {
  struct {
    int banner_id;
    lumio_banner_state_cb cb;
    bool with_data;
  } const refused[] = {
      {3, nullptr, true}, {3, Note, false},      {3, nullptr, false},   {32, Note, true},
      {-1, Note, true},   {INT_MAX, Note, true}, {INT_MIN, Note, true},
  };
  void *data = NewData();
  const ReleaseWatch watch(data);
  for (const auto &arguments : refused) {
    ClearLog();
    lumio_banner_state_cb_add(arguments.banner_id, arguments.cb, arguments.with_data ? data : nullptr);
    EXPECT_THAT(LogMessages(), ElementsAre("2 banner state cb add", "16 Invalid Argument"));
  }
  Show(3);
  EXPECT_THAT(g_calls, IsEmpty());
  EXPECT_EQ(watch.Count(), 0);
  free(data);
}

TEST_F(Banner, TheSameCallbackRunsOncePerRegistration) {
  void *first = Add(3);
  void *second = Add(3);
  Show(3);
  EXPECT_THAT(g_calls, ElementsAre(Pair(3, first), Pair(3, second)));
}

TEST_F(Banner, AddTellsOfShortMemoryAndLeavesTheDataToItsOwner) {
  const int banners[] = {3, 4}; // the first link of a list makes more allocations than later ones
  Add(4);
  for (const int banner_id : banners) {
    void *data = NewData();
    int failures = 0;
    FailEachAllocation([&] { ClearLog(), lumio_banner_state_cb_add(banner_id, NoteToo, data); },
                       [&](int) {
                         ++failures;
                         EXPECT_THAT(LogMessages(), ElementsAre("2 banner state cb add", "16 Calloc failed"));
                       });
    EXPECT_GE(failures, 2); // the record and its link
    Show(banner_id);
    EXPECT_EQ(g_calls.back(), std::make_pair(banner_id, data));
    EXPECT_EQ(g_calls.size(), banner_id == 4 ? 2 : 1);
  }
}

TEST_F(Banner, NothingButAddNeedsMemory) {
  Add(3);
  const auto use_all = [] {
    int state = 0;
    lumio_banner_init();
    lumio_set_banner_state(3, 0);
    lumio_get_banner_state(3, &state);
    lumio_banner_state_cb_del(3, Note);
    lumio_set_banner_state(3, 1);
  };
  FailEachAllocation(use_all, [](int nth) { ADD_FAILURE() << "allocation " << nth; });
}

// --- Deleting --------------------------------------------------------------------------------------------------------

TEST_F(Banner, DeleteTreatsAllRegistrationsOfTheCallback) {
  const ReleaseWatch first(Add(3));
  const ReleaseWatch second(Add(3));
  void *other = Add(3, NoteToo);
  const ReleaseWatch third(Add(3));
  ClearLog();
  lumio_banner_state_cb_del(3, Note);
  const int released[] = {first.Count(), second.Count(), third.Count()};
  EXPECT_THAT(released, ElementsAre(1, 1, 1));
  EXPECT_THAT(LogMessages(), ElementsAre("2 lumio_banner_state_handler_del"));
  Show(3);
  EXPECT_THAT(g_calls, ElementsAre(Pair(3, other)));
  EXPECT_THAT(LogMessages(),
              ElementsAre("2 Set banner [3]  to state [1]", "2 value changed,should call cb", "2 callback"));
}

TEST_F(Banner, DeleteReleasesDataAndRecordAndKeepsTheLink) {
  Add(3);
  const ReleaseWatch everything;
  lumio_banner_state_cb_del(3, Note);
  EXPECT_EQ(everything.Count(), 2);
}

TEST_F(Banner, DeleteOfOneBannerKeepsTheCallbackOfAnother) {
  Add(3);
  void *data = Add(4);
  lumio_banner_state_cb_del(3, Note);
  Show(4);
  EXPECT_THAT(g_calls, ElementsAre(Pair(4, data)));
}

TEST_F(Banner, DeleteOfAnUnknownCallbackOnlyLogs) {
  void *data = Add(3);
  ClearLog();
  lumio_banner_state_cb_del(3, NoteToo);
  lumio_banner_state_cb_del(4, Note); // an empty list
  EXPECT_THAT(LogMessages(), ElementsAre("2 lumio_banner_state_handler_del", "2 lumio_banner_state_handler_del"));
  Show(3);
  EXPECT_THAT(g_calls, ElementsAre(Pair(3, data)));
}

TEST_F(Banner, DeleteTwiceReleasesOnce) {
  const ReleaseWatch watch(Add(3));
  lumio_banner_state_cb_del(3, Note);
  lumio_banner_state_cb_del(3, Note);
  EXPECT_EQ(watch.Count(), 1);
}

TEST_F(Banner, DeleteRefusesANullCallback) {
  void *data = Add(3);
  ClearLog();
  lumio_banner_state_cb_del(3, nullptr);
  EXPECT_THAT(LogMessages(), ElementsAre("2 lumio_banner_state_handler_del", "16 Invalid argument"));
  Show(3);
  EXPECT_THAT(g_calls, ElementsAre(Pair(3, data)));
}

TEST_P(BannerOutOfRange, DeleteRefusesIt) {
  lumio_banner_state_cb_del(GetParam(), Note);
  EXPECT_THAT(LogMessages(), ElementsAre("2 lumio_banner_state_handler_del", "16 Invalid argument"));
}

TEST_F(Banner, AddsAgainAfterADelete) {
  Add(3);
  void *kept = Add(3, NoteToo);
  lumio_banner_state_cb_del(3, Note);
  void *again = Add(3);
  Show(3);
  EXPECT_THAT(g_calls, ElementsAre(Pair(3, kept), Pair(3, again)));
}

TEST_F(Banner, SharedDataGoesWithItsLastRegistration) {
  void *data = NewData();
  const ReleaseWatch watch(data);
  lumio_banner_state_cb_add(3, Note, data);
  lumio_banner_state_cb_add(3, Note, data);
  lumio_banner_state_cb_add(5, NoteToo, data);
  lumio_banner_state_cb_del(3, Note);
  EXPECT_EQ(watch.Count(), 0);
  Show(5);
  EXPECT_THAT(g_calls, ElementsAre(Pair(5, data)));
  lumio_banner_state_cb_del(5, NoteToo);
  EXPECT_EQ(watch.Count(), 1);
}

// --- From inside a callback ------------------------------------------------------------------------------------------

TEST_F(Banner, ACallbackMayDeleteItself) {
  void *data = Add(3, Act);
  void *after = Add(3);
  const ReleaseWatch watch(data);
  g_action = [&] {
    lumio_banner_state_cb_del(3, Act);
    EXPECT_EQ(watch.Count(), 1);
  };
  Show(3);
  EXPECT_THAT(g_calls, ElementsAre(Pair(3, data), Pair(3, after)));
  Show(3);
  EXPECT_THAT(g_calls, ElementsAre(Pair(3, after)));
}

TEST_F(Banner, ACallbackMayDeleteTheOnesAfterIt) {
  void *data = Add(3, Act);
  Add(3, Note);
  Add(3, Note);
  void *last = Add(3, NoteToo);
  g_action = [] { lumio_banner_state_cb_del(3, Note); };
  Show(3);
  EXPECT_THAT(g_calls, ElementsAre(Pair(3, data), Pair(3, last)));
}

TEST_F(Banner, ACallbackMayDeleteThoseOfAnotherBanner) {
  Add(3, Act);
  const ReleaseWatch watch(Add(4));
  g_action = [] { lumio_banner_state_cb_del(4, Note); };
  Show(3);
  EXPECT_EQ(watch.Count(), 1);
  Show(4);
  EXPECT_THAT(g_calls, IsEmpty());
}

TEST_F(Banner, ACallbackAddedToTheSameBannerStillRuns) {
  void *data = Add(3, Act);
  void *added = nullptr;
  g_action = [&] { added = Add(3); };
  Show(3);
  EXPECT_THAT(g_calls, ElementsAre(Pair(3, data), Pair(3, added)));
}

TEST_F(Banner, ACallbackAddedToAnotherBannerWaitsForItsChange) {
  void *data = Add(3, Act);
  void *added = nullptr;
  g_action = [&] { added = Add(4); };
  Show(3);
  EXPECT_THAT(g_calls, ElementsAre(Pair(3, data)));
  Show(4);
  EXPECT_THAT(g_calls, ElementsAre(Pair(4, added)));
}

TEST_F(Banner, ACallbackMayShowAnotherBanner) {
  void *data = Add(3, Act);
  void *after = Add(3);
  void *other = Add(4);
  g_action = [] { EXPECT_EQ(lumio_set_banner_state(4, 1), 0); };
  Show(3);
  EXPECT_EQ(Word(), 8 | 16);
  EXPECT_THAT(g_calls, ElementsAre(Pair(3, data), Pair(4, other), Pair(3, after)));
}

TEST_F(Banner, ACallbackMaySetItsOwnBanner) {
  void *data = Add(3, Act);
  g_action = [] {
    EXPECT_EQ(lumio_set_banner_state(3, 1), 0);
    EXPECT_EQ(lumio_set_banner_state(3, 0), 0);
  };
  Show(3);
  EXPECT_THAT(g_calls, ElementsAre(Pair(3, data)));
  EXPECT_EQ(Word(), 8);
}

// The inner walk, after another process has reset the key, deletes the registration that the outer walk is at.
TEST_F(Banner, ANestedChangeMayDeleteTheRunningCallback) {
  void *data = Add(3, Act);
  Add(3, Note);
  void *last = Add(3, NoteToo);
  g_action = [this] {
    g_action = [] {
      lumio_banner_state_cb_del(3, Act);
      lumio_banner_state_cb_del(3, Note);
    };
    Word() = 0;
    EXPECT_EQ(lumio_set_banner_state(3, 1), 0);
  };
  Show(3);
  EXPECT_THAT(g_calls, ElementsAre(Pair(3, data), Pair(3, data), Pair(3, last), Pair(3, last)));
}
