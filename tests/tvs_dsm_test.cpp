// Sessions with DSM data services: one attachment per object, delivery on the TV service's thread.
#include <TVServiceSubscriber.h>

#include <gmock/gmock.h>

#include <algorithm>
#include <functional>
#include <thread>

#include "death.h"
#include "fake_dlog.h"
#include "fake_kestrel.h"
#include "fake_tv_service.h"
#include "modules_called.h"
#include "short_memory.h"

using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;
using testing::SizeIs;

namespace {

using Module = CTVServiceSubscriber;

constexpr char kAlreadySet[] = R"(0 && "dsm callback has already been set !")";
constexpr char kNotCreated[] = R"(0 && "Failed to create DSM")";
constexpr char kNothing[] = R"(0 && "no subscriptions !!")";

struct Call {
  char module; // which callback
  const TSDsmMessage *message;
  bool lock_held;
  std::thread::id thread;
};

std::vector<Call> g_calls;
std::function<void()> g_during;

template <char kModule> void OnDsm(TSDsmMessage &message) {
  g_calls.push_back({kModule, &message, AnyLockHeld(), std::this_thread::get_id()});
  if (const std::function<void()> during = g_during) {
    during();
  }
}

void Notify(int session) {
  TSDsmMessage message = {};
  message.sessionHandle = session;
  Module::t_DsmCallback(message);
}

class TvsDsm : public testing::Test {
protected:
  ~TvsDsm() override {
    g_during = nullptr;
    Module::ReleaseAll();
  }

  bool Attach(Module &module, Module::DsmCallback callback = OnDsm<'a'>, const std::string &target = "dsm://1.2.3") {
    return module.AttachDsm(callback, session_, target, DSM_DATA_SERVICE_DATA_CAROUSEL, DSM_ATTACH_CACHED, &session_,
                            true);
  }

  static Module *CopyOf(const char *name) { return Module::m_GetSubscriber(name, "dsm"); }

  unsigned session_ = 0;
};

// --- Attaching ---

TEST_F(TvsDsm, FirstAttachmentSetsUpTheServiceAndAsksIt) {
  Module module("mod");
  EXPECT_TRUE(Attach(module));
  EXPECT_EQ(session_, 100U);
  EXPECT_THAT(ServiceCalls(), ElementsAre("CreateDsm() locked", "dsm.Attach(dsm://1.2.3, 1, 1, 1) locked"));
  EXPECT_EQ(fake_tv_service.dsm_user_data, &session_);
  EXPECT_EQ(fake_tv_service.on_dsm, Module::t_DsmCallback);
  EXPECT_EQ(Module::m_pDsm, FakeDsm());
  EXPECT_EQ(module.m_dsmCallback, OnDsm<'a'>);
  ASSERT_NE(CopyOf("mod"), nullptr);
  EXPECT_EQ(CopyOf("mod")->m_dsmCallback, OnDsm<'a'>);
  EXPECT_THAT(*Module::m_pDsmSubscriptions, ElementsAre(Pair(100, CopyOf("mod"))));
  EXPECT_THAT(LogMessages(), IsEmpty());
  EXPECT_THAT(LockCalls(), ElementsAre("Create", "Lock", "Unlock"));
}

TEST_F(TvsDsm, SecondModuleUsesWhatIsThere) {
  Module a("a"), b("b");
  Attach(a);
  ClearServiceCalls();
  EXPECT_TRUE(Attach(b, OnDsm<'b'>));
  EXPECT_THAT(ServiceCalls(), SizeIs(1));
  EXPECT_THAT(*Module::m_pDsmSubscriptions, ElementsAre(Pair(100, CopyOf("a")), Pair(101, CopyOf("b"))));
}

TEST_F(TvsDsm, TargetIsPassedWithAllItsBytesAndNoMore) {
  fake_tv_service.answers["dsm.Attach"] = 1;
  Module empty("empty"), zero("zero");
  Attach(empty, OnDsm<'a'>, "");
  Attach(zero, OnDsm<'a'>, std::string("a\0b", 3));
  EXPECT_THAT(ServiceCalls(), ElementsAre("CreateDsm() locked", "dsm.Attach(, 1, 1, 1) locked",
                                          "dsm.Attach(" + std::string("a\0b", 3) + ", 1, 1, 1) locked"));
}

TEST_F(TvsDsm, AttachingTwiceAborts) {
  Module module("mod");
  Attach(module);
  EXPECT_ASSERTION(Attach(module), kAlreadySet);
}

TEST_F(TvsDsm, AttachingAgainAfterADetachAborts) {
  Module module("mod");
  Attach(module);
  module.DetachDsm(session_);
  EXPECT_EQ(module.m_dsmCallback, OnDsm<'a'>);
  EXPECT_ASSERTION(Attach(module), kAlreadySet);
}

TEST_F(TvsDsm, AttachingAbortsWhenThereIsNoDsmObject) {
  fake_tv_service.answers["CreateDsm"] = -1;
  Module module("mod");
  EXPECT_ASSERTION(Attach(module), kNotCreated);
}

TEST_F(TvsDsm, AttachingAbortsWhenTheServiceGivesNothing) {
  fake_tv_service.gives_nothing = true;
  Module module("mod");
  EXPECT_ASSERTION(Attach(module), kNotCreated);
}

TEST_F(TvsDsm, RefusedAttachmentUsesTheObjectUp) {
  fake_tv_service.answers["dsm.Attach"] = 0;
  Module module("mod"), other("other");
  EXPECT_FALSE(Attach(module));
  fake_tv_service.answers["dsm.Attach"] = -1;
  EXPECT_FALSE(Attach(other));
  EXPECT_THAT(LogMessagesWithLock(), ElementsAre("16 Failed to attach ! locked", "16 Failed to attach ! locked"));
  EXPECT_THAT(*Module::m_pDsmSubscriptions, IsEmpty());
  EXPECT_EQ(CopyOf("mod"), nullptr);
  EXPECT_EQ(module.m_dsmCallback, OnDsm<'a'>);
  EXPECT_ASSERTION(Attach(module), kAlreadySet);
}

TEST_F(TvsDsm, CallbackIsStoredBeforeTheServiceIsAsked) {
  Module module("mod");
  fake_tv_service.during["dsm.Attach"] = [&] { EXPECT_EQ(module.m_dsmCallback, OnDsm<'a'>); };
  Attach(module);
  fake_tv_service.during.clear();
}

TEST_F(TvsDsm, AttachmentIsRefusedWithoutACopy) {
  Module module("mod");
  Module("other").m_GetCopiedSubscriptionInstance("dsm");
  (*Module::m_pSubscriberInstances)["mod_dsm"] = nullptr;
  EXPECT_FALSE(Attach(module));
  EXPECT_THAT(ServiceCalls(), SizeIs(2)) << "the service agreed before that";
  EXPECT_THAT(LogMessagesWithLock(), ElementsAre("16 failed to get dsm subscriber ! locked"));
  EXPECT_THAT(*Module::m_pDsmSubscriptions, IsEmpty());
}

TEST_F(TvsDsm, SessionThatComesAgainStaysWithItsFirstModule) {
  Module a("a"), b("b");
  Attach(a);
  fake_tv_service.next_handle = 100;
  EXPECT_TRUE(Attach(b, OnDsm<'b'>));
  EXPECT_THAT(*Module::m_pDsmSubscriptions, ElementsAre(Pair(100, CopyOf("a"))));
}

TEST_F(TvsDsm, AfterAReleaseEverythingIsMadeAnewForANewObject) {
  Module module("mod"), next("next");
  Attach(module);
  Module::ReleaseAll();
  EXPECT_ASSERTION(Attach(module), kAlreadySet);
  ClearServiceCalls();
  EXPECT_TRUE(Attach(next));
  EXPECT_THAT(ServiceCalls(), SizeIs(2));
}

TEST_F(TvsDsm, AttachingLeavesNoSessionBehindWhenMemoryIsShort) {
  const auto attach = [this] {
    Module module(kLongName); // a new object for each attempt, since an object attaches once
    Attach(module, OnDsm<'a'>, "a target that needs memory of its own");
  };
  int ended = 0;
  ThrowAtEachAllocation(attach, [&] {
    EXPECT_TRUE(!Module::m_pDsmSubscriptions || Module::m_pDsmSubscriptions->empty());
    const std::vector<std::string> calls = ServiceCalls();
    const auto count = [&calls](const char *name) {
      return std::count_if(calls.begin(), calls.end(), [name](const auto &call) { return call.rfind(name, 0) == 0; });
    };
    ended = static_cast<int>(count("dsm.Detach"));
    EXPECT_EQ(count("dsm.Attach"), ended);
  });
  EXPECT_GE(ended, 3) << "the copy, its name, the entry";
  EXPECT_THAT(*Module::m_pDsmSubscriptions, SizeIs(1));
}

// --- Detaching ---

TEST_F(TvsDsm, DetachingEndsTheSession) {
  Module module("mod");
  Attach(module);
  ClearLockCalls();
  ClearServiceCalls();
  EXPECT_TRUE(module.DetachDsm(100));
  EXPECT_THAT(ServiceCalls(), ElementsAre("dsm.Detach(100) locked"));
  EXPECT_THAT(*Module::m_pDsmSubscriptions, IsEmpty());
  EXPECT_THAT(LogMessages(), IsEmpty());
  EXPECT_THAT(LockCalls(), ElementsAre("Lock", "Unlock"));
  EXPECT_NE(CopyOf("mod"), nullptr) << "the copy stays";
}

TEST_F(TvsDsm, DetachingIsTheServicesAnswer) {
  Module module("mod");
  Attach(module);
  fake_tv_service.answers["dsm.Detach"] = 0;
  EXPECT_FALSE(module.DetachDsm(100));
  EXPECT_THAT(*Module::m_pDsmSubscriptions, IsEmpty()) << "forgotten although the service refused";
  fake_tv_service.answers["dsm.Detach"] = -1;
  EXPECT_FALSE(module.DetachDsm(0xffffffff));
  EXPECT_THAT(LogMessagesWithLock(), ElementsAre("16 failed to detach dsm for sessionHandle(100) ! locked",
                                                 "16 failed to detach dsm for sessionHandle(-1) ! locked"));
  fake_tv_service.answers["dsm.Detach"] = 2;
  EXPECT_TRUE(module.DetachDsm(100)) << "even for an unknown session";
}

TEST_F(TvsDsm, SessionIsForgottenBeforeTheServiceIsAsked) {
  Module module("mod");
  Attach(module);
  fake_tv_service.during["dsm.Detach"] = [] { EXPECT_THAT(*Module::m_pDsmSubscriptions, IsEmpty()); };
  module.DetachDsm(100);
  fake_tv_service.during.clear();
}

TEST_F(TvsDsm, AnyModuleMayDetachASessionAndThenHasACopy) {
  Module a("a"), b("b");
  Attach(a);
  EXPECT_TRUE(b.DetachDsm(100));
  EXPECT_THAT(*Module::m_pDsmSubscriptions, IsEmpty());
  ASSERT_NE(CopyOf("b"), nullptr);
  EXPECT_EQ(CopyOf("b")->m_dsmCallback, nullptr);
}

TEST_F(TvsDsm, DetachingIsRefusedWithoutACopy) {
  Module module("mod");
  Attach(module);
  (*Module::m_pSubscriberInstances)["other_dsm"] = nullptr;
  ClearServiceCalls();
  EXPECT_FALSE(Module("other").DetachDsm(100));
  EXPECT_THAT(ServiceCalls(), IsEmpty());
  EXPECT_THAT(*Module::m_pDsmSubscriptions, SizeIs(1));
  EXPECT_THAT(LogMessagesWithLock(), ElementsAre("16 failed to get dsm subscriber ! locked"));
}

TEST_F(TvsDsm, DetachingIsRefusedSilentlyWithoutAServiceObject) {
  Module module("mod");
  Attach(module);
  Module::m_pDsm = nullptr;
  EXPECT_FALSE(module.DetachDsm(100));
  EXPECT_THAT(*Module::m_pDsmSubscriptions, IsEmpty());
  EXPECT_THAT(LogMessages(), IsEmpty());
}

TEST_F(TvsDsm, DetachingAbortsBeforeAnyModuleAttached) { EXPECT_ASSERTION(Module("mod").DetachDsm(100), kNothing); }

TEST_F(TvsDsm, DetachingAbortsAfterARelease) {
  Module module("mod");
  Attach(module);
  Module::ReleaseAll();
  EXPECT_ASSERTION(module.DetachDsm(100), kNothing);
}

TEST_F(TvsDsm, DetachingFailsWholeWhenMemoryIsShort) {
  Module a("a"), b(kLongName);
  Attach(a);
  ClearServiceCalls();
  ThrowAtEachAllocation([&] { b.DetachDsm(100); },
                        [&] {
                          EXPECT_THAT(*Module::m_pDsmSubscriptions, SizeIs(1));
                          EXPECT_THAT(ServiceCalls(), IsEmpty());
                        });
}

// --- The service's object ---

TEST_F(TvsDsm, InstanceIsTheServicesObject) {
  Module module("mod");
  Attach(module);
  ClearLockCalls();
  EXPECT_EQ(Module::GetDsmInstance(), FakeDsm());
  EXPECT_THAT(LockCalls(), IsEmpty());
}

TEST_F(TvsDsm, InstanceAbortsBeforeAnyModuleAttached) { EXPECT_ASSERTION(Module::GetDsmInstance(), kNothing); }

TEST_F(TvsDsm, InstanceAbortsAfterARelease) {
  Module module("mod");
  Attach(module);
  Module::ReleaseAll();
  EXPECT_ASSERTION(Module::GetDsmInstance(), kNothing);
}

// --- Messages ---

TEST_F(TvsDsm, DropsAMessageWhenNothingIsSetUp) {
  Notify(100);
  EXPECT_THAT(LogMessages(), ElementsAre("16 No subscriptions !"));
  EXPECT_THAT(LockCalls(), IsEmpty());
}

TEST_F(TvsDsm, ReportsAMessageOfAnUnknownSession) {
  Module module("mod");
  Attach(module);
  ClearLockCalls();
  Notify(-5);
  EXPECT_EQ(ModulesCalled(g_calls), "");
  EXPECT_THAT(LogMessagesWithLock(),
              ElementsAre("16 Failed to find a subscription with the given handle : -5 ! locked"));
  EXPECT_THAT(LockCalls(), ElementsAre("Lock", "Unlock"));
}

TEST_F(TvsDsm, LogsInTheNameOfWhatIsCalled) {
  Notify(100); // there is no container
  Module refused("refused"), module("mod");
  fake_tv_service.answers["dsm.Attach"] = 0;
  Attach(refused);
  fake_tv_service.answers.clear();
  Attach(module);
  Notify(-5); // nobody has this session
  fake_tv_service.answers["dsm.Detach"] = 0;
  module.DetachDsm(session_);
  EXPECT_THAT(LogFunctions(), ElementsAre("t_DsmCallback", "AttachDsm", "t_DsmCallback", "DetachDsm"));
  EXPECT_THAT(LogLines(), testing::Each(testing::Field(&LogLine::file, "TVServiceSubscriber.cpp")));
}

TEST_F(TvsDsm, ReportsAMessageOfASessionThatTheServiceRefusedToEnd) {
  Module module("mod");
  Attach(module);
  fake_tv_service.answers["dsm.Detach"] = 0;
  module.DetachDsm(100);
  Notify(100);
  EXPECT_EQ(ModulesCalled(g_calls), "");
  EXPECT_EQ(LogCount("16 Failed to find a subscription with the given handle : 100 !"), 1);
}

TEST_F(TvsDsm, TellsTheModuleOfTheSessionAtOnceOnTheServicesThread) {
  Module a("a"), b("b");
  Attach(a, OnDsm<'a'>);
  Attach(b, OnDsm<'b'>);
  ClearLockCalls();
  TSDsmMessage message = {};
  message.sessionHandle = 101;
  std::thread service([&] { Module::t_DsmCallback(message); });
  const std::thread::id id = service.get_id();
  service.join();
  ASSERT_EQ(ModulesCalled(g_calls), "b");
  EXPECT_EQ(g_calls[0].message, &message);
  EXPECT_FALSE(g_calls[0].lock_held);
  EXPECT_EQ(g_calls[0].thread, id);
  EXPECT_THAT(LogMessages(), IsEmpty());
  EXPECT_THAT(LockCalls(), ElementsAre("Lock", "Unlock"));
}

TEST_F(TvsDsm, FindsASessionWhoseHandleIsNegativeAsANumber) {
  fake_tv_service.next_handle = -7;
  Module module("mod");
  Attach(module);
  Notify(-7);
  EXPECT_EQ(ModulesCalled(g_calls), "a");
}

// A message that arrives during the attachment waits for the lock and then finds the new session.
TEST_F(TvsDsm, MessageWaitsForTheAttachmentThatIsUnderWay) {
  Module other("other"), module("mod");
  Attach(other);
  std::thread service;
  fake_tv_service.during["dsm.Attach"] = [&service] {
    ClearLockCalls();
    service = std::thread(Notify, 101);
    while (LockCalls().empty()) {
      std::this_thread::yield();
    }
  };
  Attach(module, OnDsm<'b'>);
  fake_tv_service.during.clear();
  service.join();
  EXPECT_EQ(ModulesCalled(g_calls), "b");
}

TEST_F(TvsDsm, CallsACallbackThatIsNull) {
  Module a("a"), b("b");
  Attach(a);
  b.DetachDsm(1); // files a copy without a callback
  Attach(b, OnDsm<'b'>);
  EXPECT_EQ(CopyOf("b")->m_dsmCallback, nullptr);
  EXPECT_DEATH(Notify(101), "");
}

TEST_F(TvsDsm, IsSilentToTheModuleWhenAllIsReleasedJustBeforeTheLockIsTaken) {
  Module module("mod");
  Attach(module);
  BeforeNextLock(Module::ReleaseAll);
  Notify(100);
  EXPECT_EQ(ModulesCalled(g_calls), "");
  EXPECT_EQ(LogCount("16 Failed to find a subscription with the given handle : 100 !"), 1);
}

TEST_F(TvsDsm, ModuleAttachesDetachesAndReleasesAllInItsCallback) {
  Module a("a"), b("b");
  Attach(a, OnDsm<'a'>);
  g_during = [&] {
    g_during = Module::ReleaseAll;
    EXPECT_TRUE(Attach(b, OnDsm<'b'>));
    EXPECT_TRUE(a.DetachDsm(100));
    EXPECT_EQ(Module::GetDsmInstance(), FakeDsm());
  };
  Notify(100);
  EXPECT_THAT(*Module::m_pDsmSubscriptions, ElementsAre(Pair(101, CopyOf("b"))));
  Notify(101);
  EXPECT_EQ(Module::m_pDsmSubscriptions, nullptr);
  EXPECT_EQ(ModulesCalled(g_calls), "ab");
}

} // namespace
