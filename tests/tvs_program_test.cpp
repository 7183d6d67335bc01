// Programme subscriptions: each has a handle, whichever operation made it.
#include <TVServiceSubscriber.h>
#include <lumio-host/testing.h>

#include <gmock/gmock.h>

#include <functional>
#include <thread>

#include "death.h"
#include "fake_dlog.h"
#include "fake_ecore_post.h"
#include "fake_kestrel.h"
#include "fake_tv_service.h"
#include "modules_called.h"
#include "short_memory.h"

using lumio::testing::WaitForServices;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;
using testing::SizeIs;

namespace {

using Module = CTVServiceSubscriber;

constexpr char kAlreadySet[] = R"(0 && "program callback has already been set !")";
constexpr char kNotCreated[] = "ret == 0 && m_pProgramSubscriber != __null";
constexpr char kNotSet[] = R"(0 && "please set program callback before subscribe a program !")";

struct Call {
  int change;
  const TCProgramData *data;
  int arg, handle;
  char module; // which callback
  bool lock_held;
  std::thread::id thread;
};

std::vector<Call> g_calls;
std::function<void()> g_during;

template <char kModule> void OnProgram(EProgramChangeType change, TCProgramData *data, int arg, int handle) {
  g_calls.push_back({change, data, arg, handle, kModule, AnyLockHeld(), std::this_thread::get_id()});
  if (const std::function<void()> during = g_during) {
    during();
  }
}

void Notify(int handle) { Module::t_ProgramCallback(PROGRAM_CHANGE_PRESENT, nullptr, 0, handle); }

// The three operations that subscribe, each with the call that it makes to the service.
struct Form {
  const char *name;
  bool (*subscribe)(Module &module, int &handle);
  const char *call;
  const char *asked;
  bool (Module::*unsubscribe)(int handle);
  const char *unsubscribe_call;
};

bool SubscribeItem(Module &module, int &handle) {
  TCProgramFilteringItem item;
  item.serviceId = 0x100020003ULL;
  item.eventId = 44;
  return module.SubscribeProgram(item, handle);
}

bool SubscribePF(Module &module, int &handle) {
  const TCServiceId service = 0xffffffffffffffffULL;
  return module.SubscribeProgramListPF(-3, service, SUBSCRIBE_TYPE_CHANGES, handle);
}

bool SubscribeList(Module &module, int &handle) {
  const TCServiceId service = 12;
  return module.SubscribeProgramList(5, service, 4000000000U, 7, SUBSCRIBE_TYPE_ONCE, handle);
}

const Form kForms[] = {
    {"Item", SubscribeItem, "program.SubscribeProgram", "program.SubscribeProgram(4295098371, 44) locked",
     &Module::UnSubscribeProgram, "program.UnsubscribeProgram"},
    {"PF", SubscribePF, "program.SubscribeProgramListPF",
     "program.SubscribeProgramListPF(-3, 18446744073709551615, 1) locked", &Module::UnSubscribeProgramList,
     "program.UnsubscribeProgramList"},
    {"List", SubscribeList, "program.SubscribeProgramList",
     "program.SubscribeProgramList(5, 12, 4000000000, 7, 0) locked", &Module::UnSubscribeProgramList,
     "program.UnsubscribeProgramList"},
};

class TvsProgram : public testing::Test {
protected:
  ~TvsProgram() override {
    g_during = nullptr;
    Module::ReleaseAll();
  }

  static Module WithCallback(const char *name, Module::ProgramCallback callback = OnProgram<'a'>) {
    Module module(name);
    module.SetProgramCallback(callback);
    return module;
  }

  // The handle and the module's name of each subscription.
  static std::vector<std::pair<int, std::string>> Subscriptions() {
    std::vector<std::pair<int, std::string>> subscriptions;
    for (const auto &[handle, copy] : *Module::m_pProgramSubscriptions) {
      subscriptions.emplace_back(handle, copy->m_name);
    }
    return subscriptions;
  }

  int handle_ = -1;
};

// --- Setting the callback ---

TEST_F(TvsProgram, SettingTheCallbackSetsUpTheService) {
  const Module module = WithCallback("mod");
  EXPECT_EQ(module.m_programCallback, OnProgram<'a'>);
  EXPECT_THAT(ServiceCalls(), ElementsAre("CreateProgramSubscriber() locked"));
  EXPECT_EQ(fake_tv_service.on_program, Module::t_ProgramCallback);
  EXPECT_EQ(Module::m_pProgramSubscriber, FakeProgramSubscriber());
  EXPECT_THAT(Subscriptions(), IsEmpty());
  EXPECT_EQ(Module::m_pSubscriberInstances, nullptr);
  EXPECT_THAT(LogMessages(), IsEmpty());
  EXPECT_THAT(LockCalls(), ElementsAre("Create", "Lock", "Unlock"));
}

TEST_F(TvsProgram, SettingASecondModulesCallbackUsesWhatIsThere) {
  WithCallback("first");
  const auto *subscriptions = Module::m_pProgramSubscriptions;
  const Module second = WithCallback("second");
  EXPECT_THAT(ServiceCalls(), SizeIs(1));
  EXPECT_EQ(Module::m_pProgramSubscriptions, subscriptions);
  EXPECT_NE(second.m_programCallback, nullptr);
}

TEST_F(TvsProgram, SettingTheCallbackTwiceAborts) {
  Module module = WithCallback("mod");
  EXPECT_ASSERTION(module.SetProgramCallback(OnProgram<'b'>), kAlreadySet);
}

TEST_F(TvsProgram, SettingTheCallbackAbortsWhenTheServiceRefuses) {
  fake_tv_service.answers["CreateProgramSubscriber"] = 1;
  EXPECT_ASSERTION(WithCallback("mod"), kNotCreated);
}

TEST_F(TvsProgram, SettingTheCallbackAbortsWhenTheServiceGivesNothing) {
  fake_tv_service.gives_nothing = true;
  EXPECT_ASSERTION(WithCallback("mod"), kNotCreated);
}

TEST_F(TvsProgram, SettingTheCallbackAfterAReleaseMakesEverythingAnewForANewObject) {
  Module module = WithCallback("mod");
  Module::ReleaseAll();
  EXPECT_ASSERTION(module.SetProgramCallback(OnProgram<'a'>), kAlreadySet);
  ClearServiceCalls();
  WithCallback("mod");
  EXPECT_THAT(ServiceCalls(), ElementsAre("CreateProgramSubscriber() locked"));
}

TEST_F(TvsProgram, SettingTheCallbackFailsWholeWhenMemoryIsShort) {
  Module module(kLongName);
  ThrowAtEachAllocation([&] { module.SetProgramCallback(OnProgram<'a'>); },
                        [&] {
                          EXPECT_EQ(module.m_programCallback, nullptr);
                          EXPECT_EQ(Module::m_pProgramSubscriptions, nullptr);
                        });
  EXPECT_THAT(ServiceCalls(), SizeIs(1));
}

// --- Subscribing and unsubscribing ---

class TvsProgramForm : public TvsProgram, public testing::WithParamInterface<Form> {
protected:
  bool Subscribe(Module &module) { return GetParam().subscribe(module, handle_); }
  bool Unsubscribe(Module &module, int handle) { return (module.*GetParam().unsubscribe)(handle); }
};

INSTANTIATE_TEST_SUITE_P(Forms, TvsProgramForm, testing::ValuesIn(kForms),
                         [](const auto &form) { return std::string(form.param.name); });

TEST_P(TvsProgramForm, AsksTheServiceAndFilesTheModulesCopy) {
  Module module = WithCallback("mod");
  ClearServiceCalls();
  ClearLockCalls();
  EXPECT_TRUE(Subscribe(module));
  EXPECT_EQ(handle_, 100);
  EXPECT_THAT(ServiceCalls(), ElementsAre(GetParam().asked));
  Module *copy = Module::m_GetSubscriber("mod", "program");
  ASSERT_NE(copy, nullptr);
  EXPECT_EQ(copy->m_programCallback, OnProgram<'a'>);
  EXPECT_THAT(*Module::m_pProgramSubscriptions, ElementsAre(Pair(100, copy)));
  EXPECT_THAT(LogMessagesWithLock(), ElementsAre("2 program subscription success : mod locked"));
  EXPECT_THAT(LockCalls(), ElementsAre("Lock", "Unlock"));
}

TEST_P(TvsProgramForm, AbortsBeforeAnyCallbackIsSet) {
  Module module("mod");
  EXPECT_ASSERTION_IN("SubscribeProgram", Subscribe(module), kNotSet);
}

TEST_P(TvsProgramForm, AbortsAfterARelease) {
  Module module = WithCallback("mod");
  Module::ReleaseAll();
  EXPECT_ASSERTION(Subscribe(module), kNotSet);
}

TEST_P(TvsProgramForm, AbortsWithoutAContainer) {
  Module module("mod");
  Module::m_pProgramSubscriber = FakeProgramSubscriber();
  EXPECT_ASSERTION(Subscribe(module), kNotSet);
}

TEST_P(TvsProgramForm, NeedsOnlyAnotherModulesCallback) {
  WithCallback("other");
  Module module("mod");
  EXPECT_TRUE(Subscribe(module));
  EXPECT_EQ(Module::m_GetSubscriber("mod", "program")->m_programCallback, nullptr);
}

TEST_P(TvsProgramForm, IsRefusedWithTheService) {
  Module module = WithCallback("mod");
  fake_tv_service.answers[GetParam().call] = 0;
  EXPECT_FALSE(Subscribe(module));
  EXPECT_EQ(handle_, -1);
  EXPECT_THAT(Subscriptions(), IsEmpty());
  EXPECT_THAT(LogMessagesWithLock(), ElementsAre("16 failed to subscribe program ! locked"));
}

TEST_P(TvsProgramForm, TakesEveryAnswerBut0ForSuccess) {
  Module module = WithCallback("mod");
  fake_tv_service.answers[GetParam().call] = -1;
  handle_ = 55;
  EXPECT_TRUE(Subscribe(module));
  EXPECT_THAT(Subscriptions(), ElementsAre(Pair(55, "mod")));
}

TEST_P(TvsProgramForm, IsRefusedWithoutACopy) {
  Module module = WithCallback("mod");
  Module("other").m_GetCopiedSubscriptionInstance("program");
  (*Module::m_pSubscriberInstances)["mod_program"] = nullptr;
  ClearServiceCalls();
  EXPECT_FALSE(Subscribe(module));
  EXPECT_THAT(ServiceCalls(), IsEmpty());
  EXPECT_THAT(LogMessagesWithLock(), ElementsAre("16 failed to get program subscriber ! locked"));
}

TEST_P(TvsProgramForm, LeavesAHandleThatComesAgainWithItsFirstModule) {
  Module first = WithCallback("first");
  Module second = WithCallback("second");
  EXPECT_TRUE(Subscribe(first));
  fake_tv_service.next_handle = 100;
  EXPECT_TRUE(Subscribe(second));
  EXPECT_EQ(handle_, 100);
  EXPECT_THAT(Subscriptions(), ElementsAre(Pair(100, "first")));
}

TEST_P(TvsProgramForm, FailsBeforeTheServiceIsAskedWhenMemoryIsShort) {
  Module module(kLongName);
  module.SetProgramCallback(OnProgram<'a'>);
  ClearServiceCalls();
  ThrowAtEachAllocation([&] { Subscribe(module); },
                        [&] {
                          EXPECT_THAT(ServiceCalls(), IsEmpty());
                          EXPECT_THAT(Subscriptions(), IsEmpty());
                        });
  EXPECT_THAT(Subscriptions(), SizeIs(1));
}

TEST_P(TvsProgramForm, IsEndedByItsHandle) {
  Module module = WithCallback("mod");
  Subscribe(module);
  Subscribe(module);
  ClearLog();
  ClearLockCalls();
  ClearServiceCalls();
  EXPECT_TRUE(Unsubscribe(module, 100));
  EXPECT_THAT(ServiceCalls(), ElementsAre(GetParam().unsubscribe_call + std::string("(100) locked")));
  EXPECT_THAT(Subscriptions(), ElementsAre(Pair(101, "mod")));
  EXPECT_THAT(LogMessages(), IsEmpty());
  EXPECT_THAT(LockCalls(), ElementsAre("Lock", "Unlock"));
  EXPECT_NE(Module::m_GetSubscriber("mod", "program"), nullptr) << "the copy stays";
}

TEST_P(TvsProgramForm, IsEndedByAnyModule) {
  Module module = WithCallback("mod");
  Subscribe(module);
  Module other("other");
  EXPECT_TRUE(Unsubscribe(other, 100));
  EXPECT_THAT(Subscriptions(), IsEmpty());
  EXPECT_EQ(Module::m_GetSubscriber("other", "program"), nullptr);
}

TEST_P(TvsProgramForm, IsNotEndedWhenTheServiceRefuses) {
  Module module = WithCallback("mod");
  Subscribe(module);
  for (const int answer : {0, -1}) {
    fake_tv_service.answers[GetParam().unsubscribe_call] = answer;
    EXPECT_FALSE(Unsubscribe(module, 100));
  }
  EXPECT_THAT(Subscriptions(), SizeIs(1));
  fake_tv_service.answers[GetParam().unsubscribe_call] = 2;
  EXPECT_TRUE(Unsubscribe(module, 100));
}

TEST_P(TvsProgramForm, WithAnUnknownHandleIsEndedWhenTheServiceAgrees) {
  Module module = WithCallback("mod");
  EXPECT_TRUE(Unsubscribe(module, 77));
}

TEST_P(TvsProgramForm, IsNotEndedBeforeAnythingIsSetUp) {
  Module module("mod");
  EXPECT_FALSE(Unsubscribe(module, 100));
  Module::m_pProgramSubscriber = FakeProgramSubscriber();
  EXPECT_FALSE(Unsubscribe(module, 100)) << "no container";
  EXPECT_THAT(ServiceCalls(), IsEmpty());
  EXPECT_THAT(LogMessages(), IsEmpty());
}

TEST_F(TvsProgram, LogsInTheNameOfWhatIsCalled) {
  Notify(100);
  Module module = WithCallback("mod");
  for (const Form &form : kForms) {
    form.subscribe(module, handle_);
  }
  EXPECT_THAT(LogFunctions(),
              ElementsAre("t_ProgramCallback", "SubscribeProgram", "SubscribeProgramListPF", "SubscribeProgramList"));
  EXPECT_THAT(LogLines(), testing::Each(testing::Field(&LogLine::file, "TVServiceSubscriber.cpp")));
}

TEST_F(TvsProgram, HandlesOfAllFormsLiveSideBySide) {
  Module module = WithCallback("mod");
  for (const Form &form : kForms) {
    EXPECT_TRUE(form.subscribe(module, handle_));
  }
  EXPECT_THAT(Subscriptions(), ElementsAre(Pair(100, "mod"), Pair(101, "mod"), Pair(102, "mod")));
}

// --- Monitoring type ---

TEST_F(TvsProgram, MonitoringTypeIsTheServicesAnswer) {
  Module module = WithCallback("mod");
  EProgramMonitoringType type = PROGRAM_MONITORING_NONE;
  ClearServiceCalls();
  ClearLockCalls();
  EXPECT_TRUE(module.MonitoringType(type));
  EXPECT_EQ(type, PROGRAM_MONITORING_SCHEDULE);
  EXPECT_THAT(ServiceCalls(), ElementsAre("program.GetMonitoringType() locked"));
  EXPECT_THAT(LockCalls(), ElementsAre("Lock", "Unlock"));
  fake_tv_service.answers["program.GetMonitoringType"] = 0;
  EXPECT_FALSE(module.MonitoringType(type));
}

TEST_F(TvsProgram, MonitoringTypeIsUnknownBeforeAnythingIsSetUp) {
  EProgramMonitoringType type = PROGRAM_MONITORING_NONE;
  EXPECT_FALSE(Module("mod").MonitoringType(type));
  EXPECT_EQ(type, PROGRAM_MONITORING_NONE);
  EXPECT_THAT(LogMessages(), IsEmpty());
  EXPECT_THAT(LockCalls(), ElementsAre("Create", "Lock", "Unlock"));
}

// --- Notifications ---

TEST_F(TvsProgram, DropsANotificationWhenNothingIsSetUp) {
  Notify(100);
  EXPECT_THAT(LogMessages(), ElementsAre("16 no subscription for program !"));
  EXPECT_THAT(LockCalls(), IsEmpty());
  WaitForServices();
  EXPECT_EQ(Module::m_eventType[5], 0);
}

TEST_F(TvsProgram, PostsARecordOfTheNotification) {
  WithCallback("mod");
  ClearLockCalls();
  TCProgramData data;
  Module::t_ProgramCallback(PROGRAM_CHANGE_LIST, &data, -8, 100);
  EXPECT_THAT(LogMessages(), IsEmpty());
  EXPECT_THAT(LockCalls(), IsEmpty());
  ASSERT_THAT(EcorePosts(), SizeIs(1));
  const EcorePost post = EcorePosts().front();
  EXPECT_THAT(Module::m_eventType, ElementsAre(0, 0, 0, 0, 0, post.type));
  EXPECT_EQ(post.free_function, nullptr);
  EXPECT_EQ(post.free_data, nullptr);
  const auto *record = static_cast<const TProgramEvent *>(post.event);
  EXPECT_EQ(record->changeType, PROGRAM_CHANGE_LIST);
  EXPECT_EQ(record->arg, -8);
  EXPECT_EQ(record->programData, &data);
  EXPECT_EQ(record->handle, 100);
}

TEST_F(TvsProgram, TellsTheModuleOfTheHandle) {
  Module a = WithCallback("a", OnProgram<'a'>);
  Module b = WithCallback("b", OnProgram<'b'>);
  SubscribeItem(a, handle_);
  SubscribeItem(b, handle_);
  ClearLog();
  ClearLockCalls();
  TCProgramData data;
  std::thread([&] { Module::t_ProgramCallback(PROGRAM_CHANGE_FOLLOWING, &data, 6, 101); }).join();
  EXPECT_THAT(g_calls, IsEmpty());
  WaitForServices();
  ASSERT_THAT(g_calls, SizeIs(1));
  EXPECT_EQ(g_calls[0].module, 'b');
  EXPECT_EQ(g_calls[0].change, PROGRAM_CHANGE_FOLLOWING);
  EXPECT_EQ(g_calls[0].data, &data);
  EXPECT_EQ(g_calls[0].arg, 6);
  EXPECT_EQ(g_calls[0].handle, 101);
  EXPECT_FALSE(g_calls[0].lock_held);
  EXPECT_EQ(g_calls[0].thread, std::this_thread::get_id());
  EXPECT_THAT(LogMessages(), IsEmpty());
  EXPECT_THAT(LockCalls(), ElementsAre("Lock", "Unlock"));
}

TEST_F(TvsProgram, TellsTheFirstModuleOfAHandleThatCameAgain) {
  Module a = WithCallback("a", OnProgram<'a'>);
  Module b = WithCallback("b", OnProgram<'b'>);
  SubscribeItem(a, handle_);
  fake_tv_service.next_handle = 100;
  SubscribeItem(b, handle_);
  Notify(100);
  WaitForServices();
  EXPECT_EQ(ModulesCalled(g_calls), "a");
}

TEST_F(TvsProgram, TellsNobodyOfAnUnknownHandle) {
  Module module = WithCallback("mod");
  Notify(1);
  WaitForServices();
  EXPECT_EQ(ModulesCalled(g_calls), "");
  EXPECT_THAT(LogMessages(), IsEmpty());
}

TEST_F(TvsProgram, TellsNobodyAfterTheEndOfTheSubscription) {
  Module module = WithCallback("mod");
  SubscribeItem(module, handle_);
  Notify(100);
  module.UnSubscribeProgram(100);
  WaitForServices();
  EXPECT_EQ(ModulesCalled(g_calls), "");
}

TEST_F(TvsProgram, GoesOnTellingWhenTheServiceRefusesToEnd) {
  Module module = WithCallback("mod");
  SubscribeItem(module, handle_);
  fake_tv_service.answers["program.UnsubscribeProgram"] = 0;
  module.UnSubscribeProgram(100);
  Notify(100);
  WaitForServices();
  EXPECT_EQ(ModulesCalled(g_calls), "a");
}

TEST_F(TvsProgram, CallsACallbackThatIsNull) {
  WithCallback("other");
  Module module("mod");
  SubscribeItem(module, handle_);
  EXPECT_DEATH(
      {
        Notify(100);
        WaitForServices();
      },
      "");
}

TEST_F(TvsProgram, LetsANotificationThroughWhileTheServiceIsAsked) {
  Module module = WithCallback("mod");
  fake_tv_service.during["program.SubscribeProgram"] = [] { std::thread([] { Notify(100); }).join(); };
  SubscribeItem(module, handle_);
  WaitForServices();
  EXPECT_EQ(ModulesCalled(g_calls), "a") << "delivered after the subscription was complete";
}

TEST_F(TvsProgram, IsSilentAfterARelease) {
  Module module = WithCallback("mod");
  SubscribeItem(module, handle_);
  Notify(100);
  Module::ReleaseAll();
  ClearLog();
  ClearLockCalls();
  WaitForServices();
  EXPECT_EQ(ModulesCalled(g_calls), "");
  EXPECT_THAT(LogMessages(), IsEmpty());
  EXPECT_THAT(LockCalls(), IsEmpty());
}

TEST_F(TvsProgram, IsSilentWhenAllIsReleasedJustBeforeTheLockIsTaken) {
  Module module = WithCallback("mod");
  Module other("other");
  SubscribeItem(module, handle_);
  Notify(100);
  Notify(100);
  BeforeNextLock(Module::ReleaseAll);
  WaitForServices();
  EXPECT_EQ(ModulesCalled(g_calls), "");
}

TEST_F(TvsProgram, IsSilentWhenAllIsReleasedAndTheLockMadeAnewJustBeforeItIsTaken) {
  Module module = WithCallback("mod");
  SubscribeItem(module, handle_);
  Notify(100);
  BeforeNextLock([] {
    Module::ReleaseAll();
    Module("other").SubscribePES(nullptr, nullptr);
  });
  WaitForServices();
  EXPECT_EQ(ModulesCalled(g_calls), "");
}

// ReleaseAll unlocks before it closes the lock. A module that subscribes in between still receives its notifications.
TEST_F(TvsProgram, TellsWhoSubscribedWhileAReleaseClosedTheLock) {
  Module module("mod");
  BeforeNextDestroy([&] {
    module.SetProgramCallback(OnProgram<'a'>);
    SubscribeItem(module, handle_);
  });
  Module::ReleaseAll();
  Notify(100);
  WaitForServices();
  EXPECT_EQ(ModulesCalled(g_calls), "a");
}

TEST_F(TvsProgram, ModuleSubscribesUnsubscribesAndReleasesAllInItsCallback) {
  Module module = WithCallback("mod");
  SubscribeItem(module, handle_);
  g_during = [&] {
    g_during = Module::ReleaseAll;
    SubscribeItem(module, handle_);
    module.UnSubscribeProgram(100);
  };
  Notify(100);
  WaitForServices();
  EXPECT_THAT(Subscriptions(), ElementsAre(Pair(101, "mod")));
  Notify(101);
  Notify(101);
  WaitForServices();
  EXPECT_EQ(ModulesCalled(g_calls), "aa");
}

TEST_F(TvsProgram, IsToldAlthoughTheLockRefusesForAWhile) {
  Module module = WithCallback("mod");
  SubscribeItem(module, handle_);
  for (const int refusals : {1, 100}) {
    Notify(100);
    RefuseLocks(refusals);
    WaitForServices();
  }
  EXPECT_EQ(ModulesCalled(g_calls), "aa");
}

TEST_F(TvsProgram, DropsANotificationWhenTheLockAlwaysRefusesAndTriesTheNextAnew) {
  Module module = WithCallback("mod");
  SubscribeItem(module, handle_);
  ClearLog();
  Notify(100);
  RefuseLocks(kAlways);
  WaitForServices();
  EXPECT_EQ(ModulesCalled(g_calls), "");
  EXPECT_THAT(LogMessages(), ElementsAre("16 no subscription for program !"));
  RefuseLocks(0);
  Notify(100);
  WaitForServices();
  EXPECT_EQ(ModulesCalled(g_calls), "a");
}

TEST_F(TvsProgram, DropsANotificationWhenMemoryIsShort) {
  Module module = WithCallback("mod");
  SubscribeItem(module, handle_);
  // The record, and Ecore's wake-up.
  std::thread([] { FailFirstAllocations(2, [] { Notify(100); }); }).join();
  WaitForServices();
  EXPECT_EQ(ModulesCalled(g_calls), "a");
  EXPECT_EQ(LogCount("16 no subscription for program !"), 2);
}

TEST_F(TvsProgram, DropsAQueuedNotificationThatTheLoopDoesNotTake) {
  Module module = WithCallback("mod");
  std::thread([] { Notify(100); }).join();
  RefuseNextPost();
  WaitForServices();
  EXPECT_THAT(LogMessages(), ElementsAre("16 no subscription for program !"));
}

} // namespace
