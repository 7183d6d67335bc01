// The bridge from the TV service's threads to the modules on the main loop, tested with signals. The suites of the
// other kinds test what they do differently.
#include <TVServiceSubscriber.h>
#include <lumio-host/testing.h>

#include <gmock/gmock.h>

#include <functional>
#include <thread>

#include "fake_dlog.h"
#include "fake_ecore_post.h"
#include "fake_kestrel.h"
#include "fake_memory.h"
#include "fake_tv_service.h"
#include "short_memory.h"

using lumio::testing::TurnLoopUntil;
using lumio::testing::WaitForServices;
using testing::AllOf;
using testing::Each;
using testing::ElementsAre;
using testing::Field;
using testing::Ge;
using testing::IsEmpty;
using testing::Pair;
using testing::SizeIs;

namespace {

using Module = CTVServiceSubscriber;

constexpr auto kType = SIGNAL_TYPE_STRENGTH;

struct Call {
  int form; // number of arguments of the callback
  int type, profile, screen;
  int value, extra;
  void *user_data;
  bool lock_held;
  std::thread::id thread;
};

// The calls of the callbacks so far.
std::vector<Call> g_calls;
// Runs inside each callback.
std::function<void()> g_during;

void During() {
  if (const std::function<void()> during = g_during) { // a copy, because it may replace itself
    during();
  }
}

int OnSignal(ESignalType type, TSSignalData data, void *user_data) {
  g_calls.push_back({3, type, 0, 0, data.value, data.extra, user_data, AnyLockHeld(), std::this_thread::get_id()});
  During();
  return -1;
}

int OnTTSignal(ESignalType type, EProfile profile, unsigned short screen, TSSignalData data, void *user_data) {
  g_calls.push_back(
      {5, type, profile, screen, data.value, data.extra, user_data, AnyLockHeld(), std::this_thread::get_id()});
  During();
  return -1;
}

void OnProgram(EProgramChangeType, TCProgramData *, int, int) {}

int Notify(int value, ESignalType type = kType, EProfile profile = PROFILE_MAIN, unsigned short screen = 0) {
  return Module::t_SignalCallback(type, profile, screen, {value, 0}, nullptr);
}

// Notifies on a thread of the service, and waits for the thread to end.
void NotifyFromAThread(int value) {
  std::thread([value] { Notify(value); }).join();
}

std::vector<int> ValuesTold() {
  std::vector<int> values;
  for (const Call &call : g_calls) {
    values.push_back(call.value);
  }
  return values;
}

class TvsBridge : public testing::Test {
protected:
  ~TvsBridge() override {
    g_during = nullptr;
    Module::ReleaseAll();
  }

  // A module with a three-argument callback. Its user data identifies it.
  static Module Subscribed(const char *name, void *user_data = nullptr) {
    Module module(name);
    module.SetSignalCallback(OnSignal);
    module.SubscribeSignal(kType, user_data, PROFILE_MAIN, 0);
    return module;
  }

  // The user data of the calls so far.
  static std::vector<void *> Told() {
    std::vector<void *> told;
    for (const Call &call : g_calls) {
      told.push_back(call.user_data);
    }
    return told;
  }

  int a_ = 0, b_ = 0; // user data
};

// The library's handlers, without those that Ecore itself adds.
std::vector<EcoreHandler> OwnHandlers() {
  std::vector<EcoreHandler> own;
  for (const EcoreHandler &handler : EcoreHandlers()) {
    if (handler.function == Module::m_DeferredEventHandler) {
      own.push_back(handler);
    }
  }
  return own;
}

// --- On the service's thread ---

TEST_F(TvsBridge, DropsASignalWhenNothingIsSetUp) {
  EXPECT_EQ(Notify(1), 0);
  EXPECT_THAT(LogMessages(), ElementsAre("16 No subscriptions !"));
  EXPECT_THAT(LockCalls(), IsEmpty());
  WaitForServices();
  EXPECT_EQ(Module::m_eventType[0], 0);
}

TEST_F(TvsBridge, PostsARecordOfTheSignal) {
  Module module("mod");
  module.SetSignalCallback(OnSignal);
  ClearLog();
  ClearLockCalls();
  EXPECT_EQ(Module::t_SignalCallback(SIGNAL_TYPE_SCRAMBLED, PROFILE_PIP, 9, {7, 8}, &a_), 1);
  EXPECT_THAT(LogMessages(), ElementsAre("16 eSignalType 4"));
  EXPECT_THAT(LockCalls(), IsEmpty());

  ASSERT_THAT(EcorePosts(), SizeIs(1));
  const EcorePost post = EcorePosts().front();
  EXPECT_EQ(post.type, Module::m_eventType[0]);
  EXPECT_EQ(post.free_function, nullptr);
  EXPECT_EQ(post.free_data, nullptr);
  const auto *record = static_cast<const TSignalEvent *>(post.event);
  EXPECT_EQ(record->signalType, SIGNAL_TYPE_SCRAMBLED);
  EXPECT_EQ(record->signalData.value, 7);
  EXPECT_EQ(record->signalData.extra, 8);
  EXPECT_EQ(record->profile, PROFILE_PIP);
  EXPECT_EQ(record->screenId, 9);
  EXPECT_EQ(record->userData, &a_);
}

TEST(TvsRecords, HaveTheirFieldsInOrder) {
  EXPECT_EQ(offsetof(TSignalEvent, signalType), 0U);
  EXPECT_EQ(offsetof(TSignalEvent, signalData), 4U);
  EXPECT_EQ(offsetof(TSignalEvent, profile), 12U);
  EXPECT_EQ(offsetof(TSignalEvent, screenId), 16U);
  EXPECT_EQ(offsetof(TSignalEvent, userData), 16 + sizeof(void *));
  EXPECT_EQ(offsetof(TProgramEvent, changeType), 0U);
  EXPECT_EQ(offsetof(TProgramEvent, arg), 4U);
  EXPECT_EQ(offsetof(TProgramEvent, programData), 8U);
  EXPECT_EQ(offsetof(TProgramEvent, handle), 8 + sizeof(void *));
  EXPECT_EQ(sizeof(TPesEvent), sizeof(void *));
  EXPECT_EQ(sizeof(TCaptionEvent), sizeof(void *));
}

TEST_F(TvsBridge, CreatesTheEventTypeOnceAndKeepsIt) {
  Module module = Subscribed("mod");
  Notify(1);
  Notify(2);
  const int type = Module::m_eventType[0];
  EXPECT_NE(type, 0);
  EXPECT_THAT(OwnHandlers(), ElementsAre(AllOf(Field(&EcoreHandler::type, type), Field(&EcoreHandler::data, nullptr))));
  EXPECT_THAT(Module::m_eventType, ElementsAre(type, 0, 0, 0, 0, 0));
  Module::ReleaseAll();
  Subscribed("next");
  Notify(3);
  EXPECT_THAT(EcorePosts(), Each(Field(&EcorePost::type, type)));
  EXPECT_THAT(OwnHandlers(), SizeIs(1));
}

TEST_F(TvsBridge, DoesNothingToTheLoopOnAThreadButWakeIt) {
  Module module = Subscribed("mod");
  ClearLockCalls();
  NotifyFromAThread(1);
  EXPECT_EQ(WakeUps(), 1);
  EXPECT_THAT(EcorePosts(), IsEmpty());
  EXPECT_THAT(OwnHandlers(), IsEmpty());
  EXPECT_EQ(Module::m_eventType[0], 0);
  EXPECT_THAT(LockCalls(), IsEmpty());
  WaitForServices();
  EXPECT_THAT(ValuesTold(), ElementsAre(1));
}

TEST_F(TvsBridge, CallsModulesOnTheMainLoopThreadWithTheLockReleased) {
  Module module = Subscribed("mod");
  NotifyFromAThread(1);
  WaitForServices();
  ASSERT_THAT(g_calls, SizeIs(1));
  EXPECT_EQ(g_calls[0].thread, std::this_thread::get_id());
  EXPECT_FALSE(g_calls[0].lock_held);
}

TEST_F(TvsBridge, LogsInTheNameOfWhatIsCalled) {
  Notify(1);
  Module module("mod");
  module.SetSignalCallback(OnSignal);
  module.SetSignalCallback(OnTTSignal);
  module.SubscribeSignal(kType, nullptr, PROFILE_MAIN, 0);
  Notify(2);
  WaitForServices();
  module.UnsubscribeSignal(kType, PROFILE_MAIN, 0);
  Module::ReleaseAll();
  EXPECT_THAT(LogFunctions(),
              ElementsAre("t_SignalCallback", "SetSignalCallback", "SetSignalCallback", "SubscribeSignal",
                          "SubscribeSignal", "t_SignalCallback", "m_DeferredEventHandler", "m_DeferredEventHandler",
                          "UnsubscribeSignal", "UnsubscribeSignal", "ReleaseAll"));
  EXPECT_THAT(LogLines(), Each(Field(&LogLine::file, "TVServiceSubscriber.cpp")));
}

// --- The queue ---

TEST_F(TvsBridge, WakesTheLoopOnceForAllThatIsQueued) {
  Module module = Subscribed("mod");
  std::vector<int> expected;
  std::thread([&] {
    for (int i = 0; i < 1000; ++i) {
      Notify(i);
      expected.push_back(i);
    }
  }).join();
  NotifyFromAThread(1000);
  expected.push_back(1000);
  EXPECT_EQ(WakeUps(), 1);
  WaitForServices();
  EXPECT_EQ(ValuesTold(), expected);

  ClearEcorePosts();
  NotifyFromAThread(1001);
  EXPECT_EQ(WakeUps(), 1) << "one more, for the notification that came afterwards";
  WaitForServices();
  expected.push_back(1001);
  EXPECT_EQ(ValuesTold(), expected);
}

TEST_F(TvsBridge, PostsAtOnceOnTheMainLoopThread) {
  Module module = Subscribed("mod");
  Notify(1);
  EXPECT_EQ(WakeUps(), 0);
  EXPECT_THAT(EcorePosts(), SizeIs(1));
}

TEST_F(TvsBridge, PostsOnTheMainLoopThreadAfterWhatIsQueued) {
  Module module = Subscribed("mod");
  NotifyFromAThread(1);
  NotifyFromAThread(2);
  Notify(3);
  EXPECT_THAT(EcorePosts(), SizeIs(3));
  NotifyFromAThread(4);
  EXPECT_EQ(WakeUps(), 1) << "the pending wake-up serves later notifications too";
  WaitForServices();
  EXPECT_THAT(ValuesTold(), ElementsAre(1, 2, 3, 4));
}

// The service's thread does not wait for the main loop, and its notifications get a wake-up of their own.
TEST_F(TvsBridge, TakesNotificationsFromAThreadWhileTheQueueIsEmptied) {
  Module module = Subscribed("mod");
  NotifyFromAThread(1);
  NotifyFromAThread(2);
  DuringNextPost([] {
    NotifyFromAThread(3);
    NotifyFromAThread(4);
  });
  TurnLoopUntil([] { return g_calls.size() == 4; });
  EXPECT_THAT(ValuesTold(), ElementsAre(1, 2, 3, 4));
  EXPECT_EQ(WakeUps(), 2);
}

TEST_F(TvsBridge, TakesNotificationsFromAThreadWhileTheMainLoopThreadEmptiesTheQueue) {
  Module module = Subscribed("mod");
  NotifyFromAThread(1);
  DuringNextPost([] { NotifyFromAThread(3); });
  Notify(2);
  TurnLoopUntil([] { return g_calls.size() == 3; });
  EXPECT_THAT(ValuesTold(), ElementsAre(1, 2, 3));
  EXPECT_EQ(WakeUps(), 1) << "the pending wake-up serves later notifications too";
}

TEST_F(TvsBridge, KeepsTheOrderOfArrivalAcrossKinds) {
  Module module = Subscribed("mod");
  module.SetProgramCallback(OnProgram);
  std::thread([] {
    Notify(1);
    Module::t_ProgramCallback(PROGRAM_CHANGE_LIST, nullptr, 0, 1);
    Notify(2);
  }).join();
  WaitForServices();
  const int signal = Module::m_eventType[0];
  const int program = Module::m_eventType[5];
  std::vector<int> types;
  for (const EcorePost &post : EcorePosts()) {
    types.push_back(post.type);
  }
  types.pop_back(); // WaitForServices's own
  EXPECT_THAT(types, ElementsAre(signal, program, signal));
}

TEST_F(TvsBridge, TakesNotificationsFromInsideACallback) {
  Module module = Subscribed("mod");
  g_during = [] {
    g_during = nullptr;
    Notify(2);
    NotifyFromAThread(3);
  };
  Notify(1);
  TurnLoopUntil([] { return g_calls.size() == 3; });
  EXPECT_THAT(ValuesTold(), ElementsAre(1, 2, 3));
}

// The loop releases what is still queued when it ends. Leaks and crashes would show at the end of this process.
TEST_F(TvsBridge, MayEndWithNotificationsQueued) {
  Module module = Subscribed("mod");
  NotifyFromAThread(1);
  NotifyFromAThread(2);
}

// --- Delivery ---

TEST_F(TvsBridge, TellsTheThreeArgumentCallback) {
  Module module = Subscribed("mod", &a_);
  ClearLog();
  Module::t_SignalCallback(kType, PROFILE_MAIN, 0, {71, 72}, nullptr);
  WaitForServices();
  ASSERT_THAT(g_calls, SizeIs(1));
  EXPECT_EQ(g_calls[0].form, 3);
  EXPECT_EQ(g_calls[0].type, kType);
  EXPECT_EQ(g_calls[0].value, 71);
  EXPECT_EQ(g_calls[0].extra, 72);
  EXPECT_EQ(g_calls[0].user_data, &a_);
  EXPECT_THAT(LogMessagesWithLock(),
              ElementsAre("16 eSignalType 5", "16 Call signal callback of 'mod', signaltype = 5"));
}

TEST_F(TvsBridge, TellsTheFiveArgumentCallback) {
  Module module("mod");
  module.SetSignalCallback(OnTTSignal);
  module.SubscribeSignal(kType, &a_, PROFILE_PIP, 65535);
  ClearLog();
  Module::t_SignalCallback(kType, PROFILE_PIP, 65535, {71, 72}, nullptr);
  WaitForServices();
  ASSERT_THAT(g_calls, SizeIs(1));
  EXPECT_EQ(g_calls[0].form, 5);
  EXPECT_EQ(g_calls[0].type, kType);
  EXPECT_EQ(g_calls[0].profile, PROFILE_PIP);
  EXPECT_EQ(g_calls[0].screen, 65535);
  EXPECT_EQ(g_calls[0].value, 71);
  EXPECT_EQ(g_calls[0].extra, 72);
  EXPECT_EQ(g_calls[0].user_data, &a_);
  EXPECT_THAT(
      LogMessagesWithLock(),
      ElementsAre("16 eSignalType 5", "16 Call signal callback of 'mod', signaltype = 5 profile: 2, screen id: 65535"));
}

TEST_F(TvsBridge, TellsBothCallbacksTheShorterFirst) {
  Module module("mod");
  module.SetSignalCallback(OnTTSignal);
  module.SetSignalCallback(OnSignal);
  module.SubscribeSignal(kType, &a_, PROFILE_MAIN, 0);
  Notify(1);
  WaitForServices();
  EXPECT_THAT(g_calls, ElementsAre(Field(&Call::form, 3), Field(&Call::form, 5)));
  EXPECT_THAT(Told(), ElementsAre(&a_, &a_));
}

TEST_F(TvsBridge, TellsTheModulesInTheOrderOfTheirSubscriptions) {
  Module first = Subscribed("z", &a_);
  Module second = Subscribed("a", &b_);
  Notify(1);
  WaitForServices();
  EXPECT_THAT(Told(), ElementsAre(&a_, &b_));
}

TEST_F(TvsBridge, TellsAModuleOncePerSubscription) {
  Module module = Subscribed("mod", &a_);
  module.SubscribeSignal(kType, &b_, PROFILE_MAIN, 0);
  Notify(1);
  WaitForServices();
  EXPECT_THAT(Told(), ElementsAre(&b_, &b_)) << "with the latest user data";
}

TEST_F(TvsBridge, TellsOnlySubscribersOfTheKey) {
  Module module = Subscribed("mod", &a_);
  Notify(1, SIGNAL_TYPE_SCRAMBLED);
  Notify(2, kType, PROFILE_PIP);
  Notify(3, kType, PROFILE_MAIN, 1);
  Notify(4, static_cast<ESignalType>(kType + 1));
  WaitForServices();
  EXPECT_THAT(g_calls, IsEmpty());
  EXPECT_THAT(EcorePosts(), SizeIs(Ge(4U))) << "posted, but delivered to nobody";
}

TEST_F(TvsBridge, TellsEachKeysSubscribersTheirOwnUserData) {
  Module module = Subscribed("mod", &a_);
  module.SubscribeSignal(SIGNAL_TYPE_LOCK, &b_, PROFILE_MAIN, 0);
  Notify(1, SIGNAL_TYPE_LOCK);
  Notify(2);
  WaitForServices();
  EXPECT_THAT(Told(), ElementsAre(&b_, &a_));
}

TEST_F(TvsBridge, CallsWhatTheCopyHolds) {
  Module module = Subscribed("mod");
  module.SetSignalCallback(OnTTSignal); // too late
  Notify(1);
  WaitForServices();
  EXPECT_THAT(g_calls, ElementsAre(Field(&Call::form, 3)));
}

TEST_F(TvsBridge, ReportsMissingUserDataAndTellsNull) {
  Module module = Subscribed("mod", &a_);
  Module::m_GetSubscriber("mod", "signal")->m_signalUserData.clear();
  ClearLog();
  Notify(1);
  WaitForServices();
  EXPECT_THAT(Told(), ElementsAre(nullptr));
  EXPECT_THAT(LogMessagesWithLock(),
              ElementsAre("16 eSignalType 5", "16 user data is not set for the signal : 5,profile:1, screen 0",
                          "16 Call signal callback of 'mod', signaltype = 5"));
}

TEST_F(TvsBridge, PassesOverACopyWithoutCallbacksAndASubscriptionWithoutACopy) {
  Module module = Subscribed("mod");
  Module::m_GetSubscriber("mod", "signal")->m_signalCallback = nullptr;
  Module::m_pSignalSubscriptions->emplace(TSignalInfo{kType, PROFILE_MAIN, 0}, nullptr);
  Module other = Subscribed("other", &b_);
  Notify(1);
  WaitForServices();
  EXPECT_THAT(Told(), ElementsAre(&b_));
}

TEST_F(TvsBridge, TakesTheLockWithoutCreatingIt) {
  Module module = Subscribed("mod");
  ClearLockCalls();
  Notify(1);
  WaitForServices();
  const std::vector<std::string> calls = LockCalls();
  ASSERT_GE(calls.size(), 2U);
  EXPECT_EQ(calls.size() % 2, 0U);
  for (size_t i = 0; i < calls.size(); i += 2) {
    EXPECT_EQ(calls[i], "Lock");
    EXPECT_EQ(calls[i + 1], "Unlock");
  }
}

TEST_F(TvsBridge, IsSilentAfterARelease) {
  Module module = Subscribed("mod");
  Notify(1);
  NotifyFromAThread(2);
  Module::ReleaseAll();
  ClearLog();
  ClearLockCalls();
  WaitForServices();
  EXPECT_THAT(g_calls, IsEmpty());
  EXPECT_THAT(LogMessages(), IsEmpty());
  EXPECT_THAT(LockCalls(), IsEmpty());
}

TEST_F(TvsBridge, HandlerReturns0) {
  Module module = Subscribed("mod");
  Notify(1);
  TSignalEvent event = {kType, {2, 0}, PROFILE_MAIN, 0, nullptr};
  EXPECT_EQ(Module::m_DeferredEventHandler(nullptr, Module::m_eventType[0], &event), 0);
  EXPECT_THAT(ValuesTold(), ElementsAre(2)) << "the handler delivers any record, and does not free it";
}

TEST_F(TvsBridge, HandlerIgnoresOtherTypes) {
  Module module = Subscribed("mod");
  TSignalEvent event = {kType, {2, 0}, PROFILE_MAIN, 0, nullptr};
  const int unused = 0; // every type before the first notification
  EXPECT_EQ(Module::m_DeferredEventHandler(nullptr, unused, &event), 0);
  Notify(1);
  for (const int type : {Module::m_eventType[1], Module::m_eventType[2], Module::m_eventType[0] + 1000, -1}) {
    EXPECT_EQ(Module::m_DeferredEventHandler(nullptr, type, &event), 0);
  }
  EXPECT_THAT(g_calls, IsEmpty());
}

// --- What modules do in a callback ---

TEST_F(TvsBridge, ModuleSubscribesInACallback) {
  Module module = Subscribed("mod", &a_);
  g_during = [this] {
    g_during = nullptr;
    Subscribed("other", &b_);
  };
  Notify(1);
  WaitForServices();
  EXPECT_THAT(Told(), ElementsAre(&a_)) << "the other module subscribed too late for this notification";
  Notify(2);
  WaitForServices();
  EXPECT_THAT(Told(), ElementsAre(&a_, &a_, &b_));
}

TEST_F(TvsBridge, ModuleReplacesUserDataInACallback) {
  Module first = Subscribed("first");
  Module second = Subscribed("second", &a_);
  g_during = [this, &second] {
    g_during = nullptr;
    second.SubscribeSignal(kType, &b_, PROFILE_MAIN, 0);
  };
  Notify(1);
  WaitForServices();
  EXPECT_THAT(Told(), ElementsAre(nullptr, &b_));
}

TEST_F(TvsBridge, ModuleUnsubscribesInACallback) {
  Module first = Subscribed("first", &a_);
  Module second = Subscribed("second", &b_);
  g_during = [&] {
    g_during = nullptr;
    first.UnsubscribeSignal(kType, PROFILE_MAIN, 0);
    second.UnsubscribeSignal(kType, PROFILE_MAIN, 0);
  };
  Notify(1);
  WaitForServices();
  EXPECT_THAT(Told(), ElementsAre(&a_, &b_)) << "both were subscribed when the delivery began";
  Notify(2);
  WaitForServices();
  EXPECT_THAT(g_calls, SizeIs(2));
}

TEST_F(TvsBridge, ModuleReleasesAllInACallback) {
  Module first = Subscribed("first", &a_);
  Module second = Subscribed("second", &b_);
  g_during = Module::ReleaseAll;
  Notify(1);
  Notify(2);
  WaitForServices();
  EXPECT_THAT(Told(), ElementsAre(&a_));
}

TEST_F(TvsBridge, ModuleReleasesAllInTheFirstOfItsTwoCallbacks) {
  Module module("mod");
  module.SetSignalCallback(OnSignal);
  module.SetSignalCallback(OnTTSignal);
  module.SubscribeSignal(kType, nullptr, PROFILE_MAIN, 0);
  g_during = Module::ReleaseAll;
  Notify(1);
  WaitForServices();
  EXPECT_THAT(g_calls, ElementsAre(Field(&Call::form, 3)));
}

TEST_F(TvsBridge, ReadsTheFiveArgumentCallbackWhenItsTurnComes) {
  Module module = Subscribed("mod", &a_);
  Module *copy = Module::m_GetSubscriber("mod", "signal");
  g_during = [copy] { copy->m_ttSignalCallback = copy->m_ttSignalCallback ? nullptr : OnTTSignal; };
  Notify(1); // sets it in the first call and clears it in the second
  WaitForServices();
  EXPECT_THAT(g_calls, ElementsAre(Field(&Call::form, 3), Field(&Call::form, 5)));
  EXPECT_THAT(Told(), ElementsAre(&a_, &a_));
  copy->m_ttSignalCallback = OnTTSignal;
  g_calls.clear();
  Notify(2);
  WaitForServices();
  EXPECT_THAT(g_calls, ElementsAre(Field(&Call::form, 3))) << "cleared before its turn";
}

TEST_F(TvsBridge, ReadsTheUserDataOnceForBothCallbacks) {
  Module module = Subscribed("mod", &a_);
  Module::m_GetSubscriber("mod", "signal")->m_ttSignalCallback = OnTTSignal;
  g_during = [this, &module] {
    g_during = nullptr;
    module.SubscribeSignal(kType, &b_, PROFILE_MAIN, 0);
  };
  Notify(1);
  WaitForServices();
  EXPECT_THAT(g_calls, ElementsAre(Field(&Call::form, 3), Field(&Call::form, 5)));
  EXPECT_THAT(Told(), ElementsAre(&a_, &a_));
}

TEST_F(TvsBridge, ModuleReleasesAllAndSubscribesAnewInACallback) {
  Module first = Subscribed("first", &a_);
  Module second = Subscribed("second", &b_);
  Module next("next");
  g_during = [&] {
    g_during = nullptr;
    Module::ReleaseAll();
    next.SetSignalCallback(OnSignal);
    next.SubscribeSignal(kType, &b_, PROFILE_MAIN, 0);
  };
  Notify(1);
  WaitForServices();
  EXPECT_THAT(Told(), ElementsAre(&a_));
  Notify(2);
  WaitForServices();
  EXPECT_THAT(Told(), ElementsAre(&a_, &b_));
}

TEST_F(TvsBridge, ModuleRunsALoopInACallbackInWhichAllIsReleased) {
  Module first = Subscribed("first", &a_);
  Module second = Subscribed("second", &b_);
  const auto release_and_quit = [](void *) -> Eina_Bool {
    Module::ReleaseAll();
    ecore_main_loop_quit();
    return ECORE_CALLBACK_CANCEL;
  };
  g_during = [release_and_quit] {
    ecore_timer_add(0, release_and_quit, nullptr);
    ecore_main_loop_begin();
  };
  Notify(1);
  TurnLoopUntil([] { return !g_calls.empty(); }); // no other event may be queued: Ecore complains about it
  WaitForServices();
  EXPECT_THAT(Told(), ElementsAre(&a_));
}

// --- All is released on another thread while the handler waits for the lock ---

// Runs `call` in the nth Lock() from now on.
void BeforeNthLock(int nth, const std::function<void()> &call) {
  BeforeNextLock(nth == 1 ? call : [nth, call] { BeforeNthLock(nth - 1, call); });
}

class TvsBridgeRelease : public TvsBridge, public testing::WithParamInterface<int> {};

TEST_P(TvsBridgeRelease, BeforeTheLockIsTaken) {
  Module module = Subscribed("mod");
  Notify(1);
  BeforeNthLock(GetParam(), Module::ReleaseAll);
  WaitForServices();
  EXPECT_THAT(g_calls, IsEmpty());
}

TEST_P(TvsBridgeRelease, BeforeTheLockIsTakenThatSomebodyElseMadeAnew) {
  Module module = Subscribed("mod");
  Module other("other");
  Notify(1);
  BeforeNthLock(GetParam(), [&] {
    Module::ReleaseAll();
    other.SetProgramCallback(OnProgram);
  });
  WaitForServices();
  EXPECT_THAT(g_calls, IsEmpty());
}

INSTANTIATE_TEST_SUITE_P(Locks, TvsBridgeRelease, testing::Values(1, 2));

// ReleaseAll unlocks before it closes the lock. A module that subscribes in between still receives its notifications.
TEST_F(TvsBridge, TellsWhoSubscribedWhileAReleaseClosedTheLock) {
  Module module("mod");
  BeforeNextDestroy([&] {
    module.SetSignalCallback(OnSignal);
    module.SubscribeSignal(kType, &a_, PROFILE_MAIN, 0);
  });
  Module::ReleaseAll();
  NotifyFromAThread(1);
  WaitForServices();
  EXPECT_THAT(Told(), ElementsAre(&a_));
}

TEST_F(TvsBridge, PassesOverASignalWhenTheClosedLockCannotBeMadeAgain) {
  Module module("mod");
  BeforeNextDestroy([&] {
    module.SetSignalCallback(OnSignal);
    module.SubscribeSignal(kType, &a_, PROFILE_MAIN, 0);
  });
  Module::ReleaseAll();
  RefuseNextCreate();
  Notify(1);
  WaitForServices();
  EXPECT_THAT(Told(), IsEmpty());
  EXPECT_EQ(LogCount("16 No subscriptions !"), 1);
  Notify(2);
  WaitForServices();
  EXPECT_THAT(Told(), ElementsAre(&a_));
}

// --- A lock that refuses ---

class TvsBridgeRefusals : public TvsBridge, public testing::WithParamInterface<int> {};

TEST_P(TvsBridgeRefusals, DoNotKeepASignalFromItsModules) {
  Module first = Subscribed("first", &a_);
  Module second = Subscribed("second", &b_);
  Notify(1);
  RefuseLocks(GetParam());
  WaitForServices();
  EXPECT_THAT(Told(), ElementsAre(&a_, &b_));
  EXPECT_EQ(LogCount("16 No subscriptions !"), 0);
}

INSTANTIATE_TEST_SUITE_P(Locks, TvsBridgeRefusals, testing::Values(1, 100));

TEST_F(TvsBridge, DropsASignalWhenTheLockAlwaysRefusesAndTriesTheNextAnew) {
  Module module = Subscribed("mod", &a_);
  Notify(1);
  Notify(2);
  RefuseLocks(kAlways);
  WaitForServices();
  EXPECT_THAT(Told(), IsEmpty());
  EXPECT_EQ(LogCount("16 No subscriptions !"), 2);
  RefuseLocks(0);
  Notify(3);
  WaitForServices();
  EXPECT_THAT(ValuesTold(), ElementsAre(3));
}

TEST_F(TvsBridge, DropsTheRestOfASignalWhenTheLockRefusesFromACallbackOn) {
  Module first = Subscribed("first", &a_);
  Module second = Subscribed("second", &b_);
  g_during = [] { RefuseLocks(kAlways); };
  Notify(1);
  WaitForServices();
  RefuseLocks(0);
  EXPECT_THAT(Told(), ElementsAre(&a_));
  EXPECT_EQ(LogCount("16 No subscriptions !"), 1);
}

// --- Short memory ---

TEST_F(TvsBridge, DropsASignalOnAThreadWhenMemoryIsShort) {
  Module module = Subscribed("mod");
  ClearLog();
  std::vector<int> answers;
  // The record, and Ecore's wake-up, which does not report its failure.
  std::thread([&] {
    FailFirstAllocations(2, [&] { answers.push_back(Notify(static_cast<int>(answers.size()))); });
  }).join();
  EXPECT_THAT(answers, ElementsAre(0, 0, 1));
  WaitForServices();
  EXPECT_THAT(ValuesTold(), ElementsAre(2));
  EXPECT_EQ(LogCount("16 No subscriptions !"), 2);
}

TEST_F(TvsBridge, DropsASignalOnTheMainLoopThreadWhenMemoryIsShort) {
  Module module = Subscribed("mod");
  ClearLog();
  int failures = 0, answer = -1;
  size_t accepted = 0;
  const auto notify = [&] {
    answer = Notify(1);
    accepted += static_cast<size_t>(answer);
  };
  FailEachAllocation(notify, [&](int) { ++failures; });
  EXPECT_EQ(answer, 1) << "the last run had enough memory";
  EXPECT_GE(failures, 3) << "the record, Ecore's event type and its handler";
  EXPECT_EQ(LogCount("16 No subscriptions !") + static_cast<int>(accepted), failures + 1);
  EXPECT_GE(LogCount("16 No subscriptions !"), 3);
  WaitForServices();
  EXPECT_THAT(g_calls, SizeIs(accepted));
}

TEST_F(TvsBridge, DropsASignalThatTheLoopDoesNotTake) {
  Module module = Subscribed("mod");
  RefuseNextPost();
  EXPECT_EQ(Notify(1), 0);
  EXPECT_EQ(Notify(2), 1);
  WaitForServices();
  EXPECT_THAT(ValuesTold(), ElementsAre(2));
  EXPECT_EQ(LogCount("16 No subscriptions !"), 1);
}

TEST_F(TvsBridge, DropsAQueuedSignalThatTheLoopDoesNotTake) {
  Module module = Subscribed("mod");
  NotifyFromAThread(1);
  NotifyFromAThread(2);
  RefuseNextPost();
  WaitForServices();
  EXPECT_THAT(ValuesTold(), ElementsAre(2));
  EXPECT_EQ(LogCount("16 No subscriptions !"), 1);
}

TEST_F(TvsBridge, DropsASignalInTheHandlerWhenMemoryIsShort) {
  Module module = Subscribed(kLongName);
  Notify(1);
  WaitForServices();
  g_calls.clear();
  ClearLog();
  TSignalEvent event = {kType, {2, 0}, PROFILE_MAIN, 0, nullptr};
  int failures = 0;
  g_calls.reserve(1);
  FailEachAllocation([&] { EXPECT_EQ(Module::m_DeferredEventHandler(nullptr, Module::m_eventType[0], &event), 0); },
                     [&](int) {
                       ++failures;
                       EXPECT_EQ(LogCount("16 No subscriptions !"), failures);
                       EXPECT_FALSE(AnyLockHeld());
                     });
  EXPECT_EQ(failures, 2) << "the targets, the module's name";
  EXPECT_THAT(ValuesTold(), ElementsAre(2));
}

} // namespace
