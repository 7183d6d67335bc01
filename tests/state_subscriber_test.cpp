// State changes of the viewer: the callbacks, their order, the lock and the log.
#include <LumioStateSubscriber.h>

#include <gmock/gmock.h>

#include <algorithm>
#include <climits>
#include <functional>
#include <new>
#include <stdexcept>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

#include "fake_dlog.h"
#include "fake_kestrel.h"
#include "fake_memory.h"

using testing::Each;
using testing::ElementsAre;
using testing::Field;
using testing::IsEmpty;
using testing::Pair;
using testing::SizeIs;
using testing::StartsWith;

// The values that the header leaves to the application.
enum ELUMIO_STATE : int { kStarting = 0, kRunning = 7, kLowest = INT_MIN, kHighest = INT_MAX };

namespace {

using Callback = CLumioStateSubscriber::StateChangedCallback;

struct Call {
  Callback callback;
  ELUMIO_STATE state;
  void *user_data;
  bool locked;
  bool operator==(const Call &other) const {
    return callback == other.callback && state == other.state && user_data == other.user_data && locked == other.locked;
  }
};

std::vector<Call> g_calls;
std::function<void()> g_action; // Noted<0> runs it

template <int Which> void Noted(ELUMIO_STATE state, void *user_data) {
  g_calls.push_back({Noted<Which>, state, user_data, AnyLockHeld()});
  if (Which == 0 && g_action) {
    g_action();
  }
}

auto &g_callbacks = CLumioStateSubscriber::m_StateChangedCBMap;
auto &g_requesters = CLumioStateSubscriber::m_StateChangedCBRequesterMap;

const char kMissing[] = "16 registered did not exist, should not unregister";

class ViewerState : public testing::Test {
protected:
  ~ViewerState() override {
    EXPECT_FALSE(AnyLockHeld());
    EXPECT_THAT(LogLines(), Each(Field(&LogLine::lock_held, true)));
  }

  // Clears the records and announces a state.
  void Tell(ELUMIO_STATE state = kRunning) {
    g_calls.clear();
    ClearLog();
    CLumioStateSubscriber::HandleStateChanged(state);
  }

  CLumioStateSubscriber module{"guide"};
  CLumioStateSubscriber other_module{"recorder"};
  int user_data[2] = {};
};

} // namespace

static_assert(!std::is_polymorphic<CLumioStateSubscriber>::value, "objects are only a name");
static_assert(sizeof(CLumioStateSubscriber) == sizeof(std::string), "objects are only a name");

TEST_F(ViewerState, LogsWithTheLibrarysTagFromItsOwnFile) {
  module.RegisterLumioStateChangeCb(Noted<1>, nullptr);
  Tell();
  EXPECT_THAT(LogLines(), Each(AllOf(Field(&LogLine::log_id, 0), Field(&LogLine::tag, "lumio-kevent"),
                                     Field(&LogLine::file, "LumioStateSubscriber.cpp"),
                                     Field(&LogLine::function, "HandleStateChanged"))));
}

// --- Telling ---------------------------------------------------------------------------------------------------------

TEST_F(ViewerState, TellsNobodyWhenNobodyIsRegistered) {
  Tell();
  EXPECT_THAT(LogMessages(), ElementsAre("16 State[7]", "16 map is empty"));
}

TEST_F(ViewerState, TellsTheStateAndTheUserDataUnderTheLock) {
  module.RegisterLumioStateChangeCb(Noted<1>, user_data);
  for (const ELUMIO_STATE state : {kStarting, kRunning, kLowest, kHighest}) {
    Tell(state);
    EXPECT_THAT(g_calls, ElementsAre(Call{Noted<1>, state, user_data, true}));
    EXPECT_EQ(LogMessages().front(), "16 State[" + std::to_string(state) + "]");
  }
}

TEST_F(ViewerState, TellsInOrderOfTheCallbacksAddresses) {
  std::vector<Callback> sorted = {Noted<1>, Noted<2>, Noted<3>, Noted<4>};
  std::sort(sorted.begin(), sorted.end(), std::less<>());
  const std::vector<Callback> orders[] = {sorted, {sorted.rbegin(), sorted.rend()}};
  for (const std::vector<Callback> &order : orders) {
    for (const Callback callback : order) {
      EXPECT_TRUE(module.RegisterLumioStateChangeCb(callback, nullptr));
    }
    Tell();
    EXPECT_THAT(g_calls, ElementsAre(Field(&Call::callback, sorted[0]), Field(&Call::callback, sorted[1]),
                                     Field(&Call::callback, sorted[2]), Field(&Call::callback, sorted[3])));
    for (const Callback callback : order) {
      EXPECT_TRUE(module.UnregisterLumioStateChangeCb(callback));
    }
  }
}

TEST_F(ViewerState, LogsTheNameBeforeEachCallAndWhereTheNameIsAfterIt) {
  const auto [first, second] = std::minmax<Callback>({Noted<0>, Noted<1>}, std::less<>());
  module.RegisterLumioStateChangeCb(first, nullptr);
  other_module.RegisterLumioStateChangeCb(second, nullptr);
  size_t lines_before_the_call = 0;
  g_action = [&] { lines_before_the_call = LogMessages().size(); };
  Tell();
  EXPECT_THAT(LogMessages(),
              ElementsAre("16 State[7]", "16 before [guide]",
                          "16 after [" + Shown(g_requesters.at(first).c_str()) + "]", "16 before [recorder]",
                          "16 after [" + Shown(g_requesters.at(second).c_str()) + "]"));
  EXPECT_EQ(lines_before_the_call, first == Noted<0> ? 2 : 4);
}

TEST_F(ViewerState, SkipsACallbackWithoutARequester) {
  g_callbacks[Noted<1>] = user_data;
  module.RegisterLumioStateChangeCb(Noted<2>, nullptr);
  Tell();
  EXPECT_THAT(g_calls, ElementsAre(Field(&Call::callback, Noted<2>)));
  EXPECT_EQ(LogCount(kMissing), 1);
  EXPECT_THAT(LogMessages(), SizeIs(4));
}

TEST_F(ViewerState, GivesTheLockBackWhenACallbackThrows) {
  module.RegisterLumioStateChangeCb(Noted<0>, nullptr);
  g_action = [] { throw std::runtime_error("module"); };
  EXPECT_THROW(Tell(), std::runtime_error);
  EXPECT_FALSE(AnyLockHeld());
}

// A callback runs with the lock held, so it may use the guarded maps.
TEST_F(ViewerState, ACallbackMayChangeTheMaps) {
  std::vector<Callback> sorted = {Noted<0>, Noted<1>, Noted<2>};
  std::sort(sorted.begin(), sorted.end(), std::less<>());
  for (const Callback callback : sorted) {
    module.RegisterLumioStateChangeCb(callback, nullptr);
  }
  g_action = [&] {
    for (const Callback callback : {Noted<0>, Noted<1>}) {
      g_callbacks.erase(callback);
      g_requesters.erase(callback);
    }
  };
  Tell();
  EXPECT_THAT(g_calls, Contains(Field(&Call::callback, Noted<0>)));
  EXPECT_THAT(g_calls, Contains(Field(&Call::callback, Noted<2>)));
  Tell();
  EXPECT_THAT(g_calls, ElementsAre(Field(&Call::callback, Noted<2>)));
}

// --- Registering -----------------------------------------------------------------------------------------------------

TEST_F(ViewerState, RegistersUnderTheModulesName) {
  EXPECT_TRUE(module.RegisterLumioStateChangeCb(Noted<1>, user_data));
  EXPECT_THAT(LogMessages(),
              ElementsAre("16 m_moduleName is guide register, function point is [" + Shown(Noted<1>) + "]"));
  EXPECT_THAT(g_callbacks, ElementsAre(Pair(Noted<1>, user_data)));
  EXPECT_THAT(g_requesters, ElementsAre(Pair(Noted<1>, "guide")));
}

TEST_F(ViewerState, RefusesANullCallback) {
  EXPECT_FALSE(module.RegisterLumioStateChangeCb(nullptr, user_data));
  EXPECT_THAT(LogMessages(), ElementsAre("16 can not register null"));
  EXPECT_THAT(g_callbacks, IsEmpty());
  EXPECT_THAT(g_requesters, IsEmpty());
}

TEST_F(ViewerState, TheFirstRegistrationOfACallbackStays) {
  module.RegisterLumioStateChangeCb(Noted<1>, &user_data[0]);
  for (CLumioStateSubscriber *again : {&module, &other_module}) {
    ClearLog();
    EXPECT_FALSE(again->RegisterLumioStateChangeCb(Noted<1>, &user_data[1]));
    EXPECT_THAT(LogMessages(), ElementsAre("16 registered alreadly success"));
  }
  EXPECT_THAT(g_requesters, ElementsAre(Pair(Noted<1>, "guide")));
  Tell();
  EXPECT_THAT(g_calls, ElementsAre(Call{Noted<1>, kRunning, &user_data[0], true}));
}

TEST_F(ViewerState, ANameThatIsLeftOverStays) {
  g_requesters[Noted<1>] = "leftover";
  EXPECT_TRUE(module.RegisterLumioStateChangeCb(Noted<1>, nullptr));
  Tell();
  EXPECT_EQ(LogCount("16 before [leftover]"), 1);
  EXPECT_THAT(g_calls, SizeIs(1));
}

TEST_F(ViewerState, TheRegistrationOutlivesTheObject) {
  CLumioStateSubscriber("passing").RegisterLumioStateChangeCb(Noted<1>, nullptr);
  Tell();
  EXPECT_EQ(LogCount("16 before [passing]"), 1);
  EXPECT_THAT(g_calls, SizeIs(1));
}

TEST_F(ViewerState, TheNameIsTheOneAtTheTimeOfTheCall) {
  module.m_moduleName = "renamed";
  module.RegisterLumioStateChangeCb(Noted<1>, nullptr);
  module.m_moduleName = "renamed again";
  Tell();
  EXPECT_EQ(LogCount("16 before [renamed]"), 1);
}

TEST_F(ViewerState, ShortMemoryPassesThroughAndGivesTheLockBack) {
  CLumioStateSubscriber long_name(std::string(100, 'n')); // too long to be stored without an allocation
  bool thrown = false;
  std::vector<size_t> half_registered;
  FailEachAllocation(
      [&] {
        thrown = false;
        ClearLog();
        try {
          long_name.RegisterLumioStateChangeCb(Noted<1>, nullptr);
        } catch (const std::bad_alloc &) {
          thrown = true;
        }
      },
      [&](int) {
        EXPECT_TRUE(thrown);
        EXPECT_FALSE(AnyLockHeld());
        EXPECT_THAT(LogMessages(), ElementsAre(StartsWith("16 m_moduleName is nnn"))); // logged before the maps change
        half_registered.push_back(g_callbacks.size());
        EXPECT_THAT(g_requesters, IsEmpty());
        Tell();
        EXPECT_THAT(g_calls, IsEmpty());
        EXPECT_FALSE(long_name.UnregisterLumioStateChangeCb(Noted<1>));
      });
  EXPECT_THAT(half_registered, ElementsAre(0, 1, 1)); // without memory for the entry, the requester's entry, its name
  EXPECT_FALSE(thrown);
  Tell();
  EXPECT_THAT(g_calls, SizeIs(1));
}

TEST_F(ViewerState, OnlyRegisteringNeedsMemory) {
  g_calls.reserve(1);
  const auto use = [this] {
    CLumioStateSubscriber::HandleStateChanged(kRunning);
    module.UnregisterLumioStateChangeCb(Noted<1>);
    module.RegisterLumioStateChangeCb(nullptr, nullptr);
  };
  module.RegisterLumioStateChangeCb(Noted<1>, nullptr);
  FailEachAllocation(use, [](int nth) { ADD_FAILURE() << "allocation " << nth; });
}

// --- Unregistering ---------------------------------------------------------------------------------------------------

TEST_F(ViewerState, UnregistersThroughAnyObject) {
  module.RegisterLumioStateChangeCb(Noted<1>, nullptr);
  ClearLog();
  EXPECT_TRUE(other_module.UnregisterLumioStateChangeCb(Noted<1>));
  EXPECT_THAT(LogMessages(), ElementsAre("16 m_moduleName is recorder unregister"));
  EXPECT_THAT(g_requesters, IsEmpty());
  Tell();
  EXPECT_THAT(g_calls, IsEmpty());
  EXPECT_TRUE(module.RegisterLumioStateChangeCb(Noted<1>, nullptr));
  Tell();
  EXPECT_THAT(g_calls, SizeIs(1));
}

TEST_F(ViewerState, UnregisteringLeavesTheOthers) {
  module.RegisterLumioStateChangeCb(Noted<1>, nullptr);
  module.RegisterLumioStateChangeCb(Noted<2>, nullptr);
  EXPECT_TRUE(module.UnregisterLumioStateChangeCb(Noted<1>));
  Tell();
  EXPECT_THAT(g_calls, ElementsAre(Field(&Call::callback, Noted<2>)));
}

TEST_F(ViewerState, UnregisteringFromNothingIsRefused) {
  for (const Callback callback : {Callback(Noted<1>), Callback(nullptr)}) {
    ClearLog();
    EXPECT_FALSE(module.UnregisterLumioStateChangeCb(callback));
    EXPECT_THAT(LogMessages(), ElementsAre("16 m_PvrResultCBMap is empty"));
  }
}

TEST_F(ViewerState, UnregisteringAnUnknownCallbackIsRefused) {
  module.RegisterLumioStateChangeCb(Noted<1>, nullptr);
  g_requesters[Noted<2>] = "leftover"; // a name alone is no registration
  for (const Callback callback : {Callback(Noted<2>), Callback(nullptr)}) {
    ClearLog();
    EXPECT_FALSE(module.UnregisterLumioStateChangeCb(callback));
    EXPECT_THAT(LogMessages(), ElementsAre(kMissing));
  }
  EXPECT_THAT(g_requesters, SizeIs(2));
  Tell();
  EXPECT_THAT(g_calls, SizeIs(1));
}

TEST_F(ViewerState, UnregisteringACallbackWithoutARequesterFailsButErasesIt) {
  g_callbacks[Noted<1>] = nullptr;
  EXPECT_FALSE(module.UnregisterLumioStateChangeCb(Noted<1>));
  EXPECT_THAT(LogMessages(), ElementsAre("16 m_moduleName is guide unregister", kMissing));
  EXPECT_THAT(g_callbacks, IsEmpty());
}

// --- The lock --------------------------------------------------------------------------------------------------------

// Another thread registers the callback just before an operation takes the lock.
TEST_F(ViewerState, TheMapsAreLookedAtUnderTheLockOnly) {
  const auto register_first = [] {
    g_callbacks[Noted<1>] = nullptr;
    g_requesters[Noted<1>] = "another thread";
  };
  BeforeNextLock(register_first);
  EXPECT_TRUE(module.UnregisterLumioStateChangeCb(Noted<1>));
  BeforeNextLock(register_first);
  EXPECT_FALSE(module.RegisterLumioStateChangeCb(Noted<1>, nullptr));
  g_callbacks.clear();
  BeforeNextLock(register_first);
  Tell();
  EXPECT_THAT(g_calls, SizeIs(1));
}

TEST_F(ViewerState, TheFirstOperationCreatesTheLockAndEachTakesIt) {
  EXPECT_FALSE(viewerMutex.IsCreated());
  const auto half_register = [] { g_callbacks[Noted<2>] = nullptr; };
  ExpectEachLocksOnce({
      [] { CLumioStateSubscriber::HandleStateChanged(kRunning); },
      [this] { module.UnregisterLumioStateChangeCb(Noted<1>); },
      [this] { module.RegisterLumioStateChangeCb(nullptr, nullptr); },
      [this] { module.RegisterLumioStateChangeCb(Noted<1>, nullptr); },
      [this] { module.RegisterLumioStateChangeCb(Noted<1>, nullptr); },
      [] { CLumioStateSubscriber::HandleStateChanged(kRunning); },
      [this] { module.UnregisterLumioStateChangeCb(Noted<2>); },
      [&] { half_register(), module.UnregisterLumioStateChangeCb(Noted<2>); },
      [this] { module.UnregisterLumioStateChangeCb(Noted<1>); },
  });
  EXPECT_TRUE(viewerMutex.IsCreated());
}
