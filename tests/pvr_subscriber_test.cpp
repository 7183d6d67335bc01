// Recording results and states: the calls to the service, the callbacks, the lock and the log.
#include <PvrServiceSubscriber.h>

#include <gmock/gmock.h>

#include <algorithm>
#include <climits>
#include <cstring>
#include <functional>
#include <memory>
#include <new>
#include <optional>
#include <stdexcept>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

#include "fake_dlog.h"
#include "fake_kestrel.h"
#include "fake_memory.h"
#include "fake_pvr.h"

using testing::AnyOf;
using testing::Each;
using testing::ElementsAre;
using testing::Field;
using testing::IsEmpty;
using testing::Pair;
using testing::SizeIs;

namespace {

const ps_result_thirdpart kResult = {1, 2, 77, 4, 5, 6, 7};
constexpr pvr_state_e kState = PVR_STATE_DISK_FULL;

struct Call {
  int which; // the number of the callback
  void *user_data;
  bool locked;
  bool operator==(const Call &other) const {
    return which == other.which && user_data == other.user_data && locked == other.locked;
  }
};

std::vector<Call> g_calls;
std::function<void()> g_action; // callback 0 runs it
bool g_state_answer = false;    // the state callbacks return it

void Note(int which, void *user_data) {
  g_calls.push_back({which, user_data, AnyLockHeld()});
  if (which == 0 && g_action) {
    g_action();
  }
}

template <int Which> void NoteResult(ps_result_thirdpart result, void *user_data) {
  EXPECT_EQ(memcmp(&result, &kResult, sizeof result), 0);
  Note(Which, user_data);
}

template <int Which> bool NoteState(pvr_state_e state, void *user_data) {
  EXPECT_EQ(state, kState);
  Note(Which, user_data);
  return g_state_answer;
}

// The two kinds of notification, with everything in which they differ.
struct Results {
  using Callback = CPvrServiceSubscriber::PvrResultCallback;
  static constexpr char kName[] = "result";
  static constexpr char kRegisterFunction[] = "RegisterPvrCb";
  static constexpr char kUnregisterFunction[] = "UnRegisterPvrCb";
  static constexpr char kTrampolineFunction[] = "t_PvrResultCB";
  static constexpr char kNobodyRegistered[] = "16 m_PvrResultCBMap is empty";
  static constexpr char kReceived[] = "16 t_PvrResultCB, Result:[77]";
  static constexpr char kNobodyToTell[] = "16 m_PvrResultCBVector is empty";
  static constexpr char kTold[] = "16 pvr result callback function point is [";

  static std::vector<Callback> Callbacks() { return {NoteResult<0>, NoteResult<1>, NoteResult<2>}; }
  static auto &Map() { return CPvrServiceSubscriber::m_PvrResultCBMap; }
  static Callback Trampoline() { return CPvrServiceSubscriber::t_PvrResultCB; }
  static Callback Registered() { return fake_pvr.result_cb; }
  static int Register(CPvrServiceSubscriber &module, Callback callback, void *user_data) {
    return module.RegisterPvrCb(callback, user_data);
  }
  static int Unregister(CPvrServiceSubscriber &module, Callback callback) { return module.UnRegisterPvrCb(callback); }
  static std::optional<bool> Send(Callback trampoline, void *user_data) {
    trampoline(kResult, user_data);
    return std::nullopt;
  }
};

struct States {
  using Callback = CPvrServiceSubscriber::PvrStateCallback;
  static constexpr char kName[] = "state";
  static constexpr char kRegisterFunction[] = "RegisterPvrStateCb";
  static constexpr char kUnregisterFunction[] = "UnRegisterPvrStateCb";
  static constexpr char kTrampolineFunction[] = "t_PvrStateCB";
  static constexpr char kNobodyRegistered[] = "16 m_pvrStateCallbackMap is empty";
  static constexpr char kReceived[] = "16 Result:[2]";
  static constexpr char kNobodyToTell[] = "16 m_pvrStateCallbackMap is empty";
  static constexpr char kTold[] = "16 pvr state callback function point is [";

  static std::vector<Callback> Callbacks() { return {NoteState<0>, NoteState<1>, NoteState<2>}; }
  static auto &Map() { return CPvrServiceSubscriber::m_pvrStateCallbackMap; }
  static Callback Trampoline() { return CPvrServiceSubscriber::t_PvrStateCB; }
  static Callback Registered() { return fake_pvr.state_cb; }
  static int Register(CPvrServiceSubscriber &module, Callback callback, void *user_data) {
    return module.RegisterPvrStateCb(callback, user_data);
  }
  static int Unregister(CPvrServiceSubscriber &module, Callback callback) {
    return module.UnRegisterPvrStateCb(callback);
  }
  static std::optional<bool> Send(Callback trampoline, void *user_data) { return trampoline(kState, user_data); }
};

template <class Kind> using Other = std::conditional_t<std::is_same<Kind, Results>::value, States, Results>;

template <class Kind> class Pvr : public testing::Test {
protected:
  using Callback = typename Kind::Callback;

  Pvr() {
    fake_pvr.on_call = [] { EXPECT_TRUE(AnyLockHeld()); };
  }
  ~Pvr() override {
    EXPECT_FALSE(AnyLockHeld());
    EXPECT_THAT(LogLines(), Each(Field(&LogLine::lock_held, true)));
    EXPECT_THAT(LogLines(), Each(Field(&LogLine::function, AnyOf(Kind::kRegisterFunction, Kind::kUnregisterFunction,
                                                                 Kind::kTrampolineFunction))));
  }

  int Register(Callback callback, void *data = nullptr) { return Kind::Register(module, callback, data); }
  int Unregister(Callback callback) { return Kind::Unregister(module, callback); }

  // Clears the records and sends a notification as the service does.
  std::optional<bool> Notify() { return Send(Kind::Registered(), fake_pvr.user_data); }
  std::optional<bool> Send(Callback trampoline, void *data) {
    g_calls.clear();
    ClearLog();
    return Kind::Send(trampoline, data);
  }

  // Clears the records.
  void Forget() {
    fake_pvr.calls.clear();
    ClearLog();
  }

  const std::vector<Callback> callbacks = Kind::Callbacks();
  const std::string connect = "init";
  const std::string join = std::string("register ") + Kind::kName;
  const std::string leave = std::string("unregister ") + Kind::kName;
  CPvrServiceSubscriber module{"guide"};
  CPvrServiceSubscriber other_module{"recorder"};
  int user_data[3] = {};
};

using Kinds = testing::Types<Results, States>;
TYPED_TEST_SUITE(Pvr, Kinds);

const char kUnknown[] = "16 registered did not exist, should not unregister";
const char kLastOneGone[] = "16 m_PvrResultCBVector is empty now unregister pvr result";
const char kLeaving[] = "16 m_moduleName is guide unregister";
const char kNull[] = "16 can not register null";

} // namespace

static_assert(!std::is_polymorphic<CPvrServiceSubscriber>::value, "objects are only a name");
static_assert(sizeof(CPvrServiceSubscriber) == sizeof(std::string), "objects are only a name");

TYPED_TEST(Pvr, LogsInTheNameOfTheExportedFunction) {
  this->Register(this->callbacks[0]);
  this->Notify();
  this->Register(nullptr);
  this->Unregister(this->callbacks[0]);
  EXPECT_THAT(LogLines(), Each(AllOf(Field(&LogLine::log_id, 0), Field(&LogLine::tag, "lumio-kevent"),
                                     Field(&LogLine::file, "PvrServiceSubscriber.cpp"))));
  std::vector<std::string> functions;
  for (const LogLine &line : LogLines()) {
    functions.push_back(line.function);
  }
  EXPECT_THAT(functions,
              ElementsAre(TypeParam::kTrampolineFunction, TypeParam::kTrampolineFunction, TypeParam::kRegisterFunction,
                          TypeParam::kUnregisterFunction, TypeParam::kUnregisterFunction));
}

// --- Registering -----------------------------------------------------------------------------------------------------

TYPED_TEST(Pvr, TheFirstCallbackConnectsAndJoins) {
  EXPECT_EQ(this->Register(this->callbacks[0], this->user_data), 0);
  EXPECT_THAT(fake_pvr.calls, ElementsAre(this->connect, this->join));
  EXPECT_EQ(TypeParam::Registered(), TypeParam::Trampoline());
  EXPECT_EQ(fake_pvr.user_data, &this->module);
  EXPECT_THAT(LogMessages(),
              ElementsAre("16 m_moduleName is guide register, function point is [" + Shown(this->callbacks[0]) + "]"));
  EXPECT_THAT(TypeParam::Map(), ElementsAre(Pair(this->callbacks[0], this->user_data)));
}

// The process joins before it registers the first callback, and leaves after it unregisters the last.
TYPED_TEST(Pvr, TheServiceIsCalledWhileNobodyIsRegistered) {
  fake_pvr.on_call = [] { EXPECT_THAT(TypeParam::Map(), IsEmpty()); };
  this->Register(this->callbacks[0]);
  this->Unregister(this->callbacks[0]);
  EXPECT_THAT(fake_pvr.calls, ElementsAre(this->connect, this->join, this->leave));
}

TYPED_TEST(Pvr, TheNextCallbackNeedsNoService) {
  this->Register(this->callbacks[0]);
  this->Forget();
  EXPECT_EQ(TypeParam::Register(this->other_module, this->callbacks[1], nullptr), 0);
  EXPECT_THAT(fake_pvr.calls, IsEmpty());
  EXPECT_EQ(fake_pvr.user_data, &this->module);
  EXPECT_THAT(TypeParam::Map(), SizeIs(2));
}

TYPED_TEST(Pvr, AConnectionServesBothKinds) {
  Other<TypeParam>::Register(this->module, Other<TypeParam>::Callbacks()[0], nullptr);
  this->Forget();
  EXPECT_EQ(this->Register(this->callbacks[0]), 0);
  EXPECT_THAT(fake_pvr.calls, ElementsAre(this->join));
}

TYPED_TEST(Pvr, FailsWithoutTheService) {
  for (const int answer : {0, -1, 2, INT_MIN}) {
    this->Forget();
    fake_pvr.init_answer = answer;
    EXPECT_EQ(this->Register(this->callbacks[0]), -2);
    EXPECT_THAT(fake_pvr.calls, ElementsAre(this->connect));
    EXPECT_THAT(LogMessages(), ElementsAre("16 Create PVR Service failed, " + std::to_string(answer)));
    EXPECT_THAT(TypeParam::Map(), IsEmpty());
  }
}

TYPED_TEST(Pvr, FailsWhenTheServiceRefuses) {
  for (const int answer : {-1, 1, INT_MIN}) {
    this->Forget();
    fake_pvr.register_answer = answer;
    EXPECT_EQ(this->Register(this->callbacks[0]), -2);
    EXPECT_THAT(fake_pvr.calls, ElementsAre(this->connect, this->join));
    EXPECT_THAT(LogMessages(), ElementsAre("16 call pvr register cb failed, " + std::to_string(answer)));
    EXPECT_THAT(TypeParam::Map(), IsEmpty());
  }
}

TYPED_TEST(Pvr, ANullCallbackIsRefusedOnlyAfterTheServiceWasCalled) {
  for (int time = 0; time < 2; ++time) {
    this->Forget();
    EXPECT_EQ(this->Register(nullptr, this->user_data), -2);
    EXPECT_THAT(fake_pvr.calls, ElementsAre(this->connect, this->join));
    EXPECT_THAT(LogMessages(), ElementsAre(kNull));
    EXPECT_THAT(TypeParam::Map(), IsEmpty());
  }
  this->Register(this->callbacks[0]);
  this->Forget();
  EXPECT_EQ(this->Register(nullptr, this->user_data), -2);
  EXPECT_THAT(fake_pvr.calls, IsEmpty());
  EXPECT_THAT(LogMessages(), ElementsAre(kNull));
}

TYPED_TEST(Pvr, TheFirstRegistrationOfACallbackStays) {
  this->Register(this->callbacks[0], &this->user_data[0]);
  for (CPvrServiceSubscriber *again : {&this->module, &this->other_module}) {
    this->Forget();
    EXPECT_EQ(TypeParam::Register(*again, this->callbacks[0], &this->user_data[1]), -2);
    EXPECT_THAT(LogMessages(), ElementsAre("16 registered alreadly success"));
    EXPECT_THAT(fake_pvr.calls, IsEmpty());
  }
  EXPECT_THAT(TypeParam::Map(), ElementsAre(Pair(this->callbacks[0], &this->user_data[0])));
}

TYPED_TEST(Pvr, ShortMemoryPassesThroughAndGivesTheLockBack) {
  bool thrown = false;
  int failures = 0;
  FailEachAllocation(
      [&] {
        thrown = false;
        this->Forget();
        try {
          this->Register(this->callbacks[0]);
        } catch (const std::bad_alloc &) {
          thrown = true;
        }
      },
      [&](int) {
        ++failures;
        EXPECT_TRUE(thrown);
        EXPECT_FALSE(AnyLockHeld());
        EXPECT_THAT(TypeParam::Map(), IsEmpty());
        EXPECT_THAT(LogMessages(), SizeIs(1));                               // logged before the map changes
        EXPECT_THAT(fake_pvr.calls, ElementsAre(this->connect, this->join)); // nothing is undone
      });
  EXPECT_EQ(failures, 1);
  EXPECT_THAT(TypeParam::Map(), SizeIs(1));
}

TYPED_TEST(Pvr, OnlyRegisteringNeedsMemory) {
  this->Register(this->callbacks[0]);
  g_calls.reserve(1);
  const auto use = [this] {
    TypeParam::Send(TypeParam::Trampoline(), &this->module);
    this->Unregister(this->callbacks[0]);
    this->Register(nullptr);
  };
  FailEachAllocation(use, [](int nth) { ADD_FAILURE() << "allocation " << nth; });
}

// --- Unregistering ---------------------------------------------------------------------------------------------------

TYPED_TEST(Pvr, TheLastCallbackLeaves) {
  this->Register(this->callbacks[0]);
  this->Register(this->callbacks[1]);
  this->Forget();
  EXPECT_EQ(TypeParam::Unregister(this->other_module, this->callbacks[0]), 0);
  EXPECT_THAT(LogMessages(), ElementsAre("16 m_moduleName is recorder unregister"));
  EXPECT_THAT(fake_pvr.calls, IsEmpty());

  this->Forget();
  EXPECT_EQ(this->Unregister(this->callbacks[1]), 0);
  EXPECT_THAT(LogMessages(), ElementsAre(kLeaving, kLastOneGone));
  EXPECT_THAT(fake_pvr.calls, ElementsAre(this->leave));

  this->Forget();
  EXPECT_EQ(this->Register(this->callbacks[1]), 0);
  EXPECT_THAT(fake_pvr.calls, ElementsAre(this->connect, this->join));
}

TYPED_TEST(Pvr, LeavingIsOfItsKindOnly) {
  this->Register(this->callbacks[0]);
  Other<TypeParam>::Register(this->module, Other<TypeParam>::Callbacks()[0], nullptr);
  this->Forget();
  EXPECT_EQ(this->Unregister(this->callbacks[0]), 0);
  EXPECT_THAT(fake_pvr.calls, ElementsAre(this->leave));
  EXPECT_THAT(Other<TypeParam>::Map(), SizeIs(1));
  EXPECT_EQ(this->Register(this->callbacks[0]), 0);
  EXPECT_THAT(fake_pvr.calls, ElementsAre(this->leave, this->join));
}

TYPED_TEST(Pvr, TheCallbackIsGoneAlsoWhenTheServiceDoesNotLetGo) {
  fake_pvr.unregister_answer = -1;
  this->Register(this->callbacks[0]);
  this->Forget();
  EXPECT_EQ(this->Unregister(this->callbacks[0]), 0);
  EXPECT_THAT(LogMessages(), ElementsAre(kLeaving, kLastOneGone, "16 call pvr unregister cb failed"));
  EXPECT_THAT(TypeParam::Map(), IsEmpty());
}

TYPED_TEST(Pvr, UnregisteringFromNothingIsRefused) {
  Other<TypeParam>::Register(this->module, Other<TypeParam>::Callbacks()[0], nullptr);
  for (const auto callback : {this->callbacks[0], typename TypeParam::Callback()}) {
    this->Forget();
    EXPECT_EQ(this->Unregister(callback), -2);
    EXPECT_THAT(LogMessages(), ElementsAre(TypeParam::kNobodyRegistered));
    EXPECT_THAT(fake_pvr.calls, IsEmpty());
  }
}

TYPED_TEST(Pvr, UnregisteringAnUnknownCallbackIsRefused) {
  this->Register(this->callbacks[0]);
  for (const auto callback : {this->callbacks[1], typename TypeParam::Callback()}) {
    this->Forget();
    EXPECT_EQ(this->Unregister(callback), -2);
    EXPECT_THAT(LogMessages(), ElementsAre(kUnknown));
    EXPECT_THAT(fake_pvr.calls, IsEmpty());
  }
  EXPECT_THAT(TypeParam::Map(), SizeIs(1));
}

// --- Notifications ---------------------------------------------------------------------------------------------------

TYPED_TEST(Pvr, TellsInOrderOfTheCallbacksAddressesUnderTheLock) {
  std::vector<int> order = {0, 1, 2};
  std::sort(order.begin(), order.end(),
            [this](int a, int b) { return std::less<>()(this->callbacks[a], this->callbacks[b]); });
  const std::vector<int> registrations[] = {order, {order.rbegin(), order.rend()}};
  for (const std::vector<int> &registration : registrations) {
    for (const int which : registration) {
      this->Register(this->callbacks[which], &this->user_data[which]);
    }
    EXPECT_NE(this->Notify(), false);
    std::vector<Call> calls;
    std::vector<std::string> messages = {TypeParam::kReceived};
    for (const int which : order) {
      calls.push_back({which, &this->user_data[which], true});
      messages.push_back(TypeParam::kTold + Shown(this->callbacks[which]) + "]");
    }
    EXPECT_EQ(g_calls, calls);
    EXPECT_EQ(LogMessages(), messages);
    for (const int which : registration) {
      this->Unregister(this->callbacks[which]);
    }
  }
}

TYPED_TEST(Pvr, LogsEachCallBeforeItIsMade) {
  this->Register(this->callbacks[0]);
  std::vector<std::string> messages;
  g_action = [&] { messages = LogMessages(); };
  this->Notify();
  EXPECT_THAT(messages, ElementsAre(TypeParam::kReceived, TypeParam::kTold + Shown(this->callbacks[0]) + "]"));
}

TYPED_TEST(Pvr, TellsOfItsKindOnly) {
  this->Register(this->callbacks[0]);
  Other<TypeParam>::Register(this->module, Other<TypeParam>::Callbacks()[1], nullptr);
  this->Notify();
  EXPECT_THAT(g_calls, ElementsAre(Field(&Call::which, 0)));
}

TYPED_TEST(Pvr, TellsNobodyWithoutTheServicesUserData) {
  this->Register(this->callbacks[0]);
  EXPECT_NE(this->Send(TypeParam::Registered(), nullptr), true);
  EXPECT_THAT(g_calls, IsEmpty());
  EXPECT_THAT(LogMessages(), ElementsAre(TypeParam::kReceived));
}

TYPED_TEST(Pvr, TellsNobodyWhenNobodyIsRegistered) {
  EXPECT_NE(this->Send(TypeParam::Trampoline(), nullptr), true);
  EXPECT_THAT(LogMessages(), ElementsAre(TypeParam::kReceived));
  EXPECT_NE(this->Send(TypeParam::Trampoline(), &this->module), true);
  EXPECT_THAT(LogMessages(), ElementsAre(TypeParam::kReceived, TypeParam::kNobodyToTell));
}

TYPED_TEST(Pvr, TheRegistrationOutlivesTheObject) {
  auto passing = std::make_unique<CPvrServiceSubscriber>("passing");
  TypeParam::Register(*passing, this->callbacks[0], nullptr);
  passing.reset();
  EXPECT_NE(this->Notify(), false);
  EXPECT_THAT(g_calls, SizeIs(1));
}

TYPED_TEST(Pvr, GivesTheLockBackWhenACallbackThrows) {
  this->Register(this->callbacks[0]);
  g_action = [] { throw std::runtime_error("module"); };
  EXPECT_THROW(this->Notify(), std::runtime_error);
  EXPECT_FALSE(AnyLockHeld());
}

// A callback runs with the lock held, so it may use the guarded maps.
TYPED_TEST(Pvr, ACallbackMayChangeTheMap) {
  for (const auto callback : this->callbacks) {
    this->Register(callback);
  }
  g_action = [this] {
    TypeParam::Map().erase(this->callbacks[0]);
    TypeParam::Map().erase(this->callbacks[1]);
  };
  this->Notify();
  EXPECT_THAT(g_calls, Contains(Field(&Call::which, 0)));
  EXPECT_THAT(g_calls, Contains(Field(&Call::which, 2)));
  this->Notify();
  EXPECT_THAT(g_calls, ElementsAre(Field(&Call::which, 2)));
}

TEST(PvrResult, TheResultCodeIsTheThirdWord) {
  CPvrServiceSubscriber::t_PvrResultCB({1, 2, INT_MIN, 4, 5, 6, 7}, nullptr);
  EXPECT_THAT(LogMessages(), ElementsAre("16 t_PvrResultCB, Result:[-2147483648]"));
}

TEST(PvrState, TheServiceHearsWhetherAnybodyWasTold) {
  CPvrServiceSubscriber module("guide");
  EXPECT_FALSE(CPvrServiceSubscriber::t_PvrStateCB(kState, &module));
  module.RegisterPvrStateCb(NoteState<0>, nullptr);
  for (const bool answer : {false, true}) {
    g_state_answer = answer;
    EXPECT_TRUE(fake_pvr.state_cb(kState, &module));
    EXPECT_FALSE(fake_pvr.state_cb(kState, nullptr));
  }
}

// --- The lock --------------------------------------------------------------------------------------------------------

// Another thread registers the callback just before an operation takes the lock.
TYPED_TEST(Pvr, TheMapsAreLookedAtUnderTheLockOnly) {
  const auto callback = this->callbacks[0];
  const auto register_first = [callback] { TypeParam::Map()[callback] = nullptr; };
  BeforeNextLock(register_first);
  EXPECT_EQ(this->Unregister(callback), 0);
  this->Forget();
  BeforeNextLock(register_first);
  EXPECT_EQ(this->Register(callback), -2);
  EXPECT_THAT(fake_pvr.calls, IsEmpty());
  TypeParam::Map().clear();
  BeforeNextLock(register_first);
  EXPECT_NE(this->Send(TypeParam::Trampoline(), &this->module), false);
  EXPECT_THAT(g_calls, SizeIs(1));
}

TYPED_TEST(Pvr, TheFirstOperationCreatesTheLockAndEachTakesIt) {
  EXPECT_FALSE(pvrMutex.IsCreated());
  const auto callback = this->callbacks[0];
  ExpectEachLocksOnce({
      [&] { this->Unregister(callback); },
      [&] { TypeParam::Send(TypeParam::Trampoline(), &this->module); },
      [&] { this->Register(nullptr); },
      [&] { this->Register(callback); },
      [&] { this->Register(callback); },
      [&] { TypeParam::Send(TypeParam::Trampoline(), &this->module); },
      [&] { TypeParam::Send(TypeParam::Trampoline(), nullptr); },
      [&] { this->Unregister(nullptr); },
      [&] { this->Unregister(callback); },
      [&] { fake_pvr.init_answer = 0, this->Register(callback); },
      [&] { fake_pvr.init_answer = 1, fake_pvr.register_answer = -1, this->Register(callback); },
  });
  EXPECT_TRUE(pvrMutex.IsCreated());
}
