// The copies of the modules' objects, and ReleaseAll.
#include <TVServiceSubscriber.h>

#include <gmock/gmock.h>

#include <type_traits>

#include "fake_dlog.h"
#include "fake_kestrel.h"
#include "fake_tv_service.h"
#include "short_memory.h"

using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

namespace {

using Module = CTVServiceSubscriber;

int OnSignal(ESignalType, TSSignalData, void *) { return 0; }
int OnTTSignal(ESignalType, EProfile, unsigned short, TSSignalData, void *) { return 0; }
void OnSection(bool, unsigned short, unsigned char *, int) {}
void OnDsm(TSDsmMessage &) {}
void OnPes(TSPESData &, void *) {}
void OnCaption(TSCaption &, void *) {}
void OnProgram(EProgramChangeType, TCProgramData *, int, int) {}

const TSignalInfo kKey = {SIGNAL_TYPE_LOCK, PROFILE_MAIN, 0};

// An object with a value in every field.
Module FilledModule() {
  static int user_data;
  Module module("mod");
  module.m_signalCallback = OnSignal;
  module.m_ttSignalCallback = OnTTSignal;
  module.m_sectionCallback = OnSection;
  module.m_dsmCallback = OnDsm;
  module.m_pesCallback = OnPes;
  module.m_captionCallback = OnCaption;
  module.m_programCallback = OnProgram;
  module.m_signalUserData[kKey] = &user_data;
  module.m_pUserData = &user_data;
  module.m_sectionHandle = 17;
  return module;
}

void ExpectEqual(const Module &a, const Module &b) {
  EXPECT_EQ(a.m_name, b.m_name);
  EXPECT_EQ(a.m_signalCallback, b.m_signalCallback);
  EXPECT_EQ(a.m_ttSignalCallback, b.m_ttSignalCallback);
  EXPECT_EQ(a.m_sectionCallback, b.m_sectionCallback);
  EXPECT_EQ(a.m_dsmCallback, b.m_dsmCallback);
  EXPECT_EQ(a.m_pesCallback, b.m_pesCallback);
  EXPECT_EQ(a.m_captionCallback, b.m_captionCallback);
  EXPECT_EQ(a.m_programCallback, b.m_programCallback);
  EXPECT_EQ(a.m_signalUserData, b.m_signalUserData);
  EXPECT_EQ(a.m_pUserData, b.m_pUserData);
  EXPECT_EQ(a.m_sectionHandle, b.m_sectionHandle);
}

void ExpectNoContainers() {
  EXPECT_EQ(Module::m_pSubscriberInstances, nullptr);
  EXPECT_EQ(Module::m_pSignalSubscriptions, nullptr);
  EXPECT_EQ(Module::m_pProgramSubscriptions, nullptr);
  EXPECT_EQ(Module::m_pSectionSubscriptions, nullptr);
  EXPECT_EQ(Module::m_pDsmSubscriptions, nullptr);
  EXPECT_EQ(Module::m_pPesSubscriptions, nullptr);
  EXPECT_EQ(Module::m_pCaptionSubscriptions, nullptr);
}

// --- Objects and their copies ---

TEST(TvsObject, StartsWithANameAndNothingElse) {
  const Module module("mod");
  EXPECT_EQ(module.m_name, "mod");
  EXPECT_EQ(module.m_signalCallback, nullptr);
  EXPECT_EQ(module.m_ttSignalCallback, nullptr);
  EXPECT_EQ(module.m_sectionCallback, nullptr);
  EXPECT_EQ(module.m_dsmCallback, nullptr);
  EXPECT_EQ(module.m_pesCallback, nullptr);
  EXPECT_EQ(module.m_captionCallback, nullptr);
  EXPECT_EQ(module.m_programCallback, nullptr);
  EXPECT_THAT(module.m_signalUserData, IsEmpty());
  EXPECT_EQ(module.m_pUserData, nullptr);
  EXPECT_EQ(module.m_sectionHandle, 0);
  EXPECT_FALSE((std::is_convertible_v<std::string, Module>));
}

TEST(TvsObject, IsCopiedAsAWhole) {
  const Module module = FilledModule();
  Module copy("other");
  copy = module;
  ExpectEqual(copy, module);
}

TEST(TvsObject, HasItsFieldsInTheOrderOfTheInterface) {
  const Module module("mod");
  const auto place = [&module](const auto &field) {
    return reinterpret_cast<const char *>(&field) - reinterpret_cast<const char *>(&module);
  };
  EXPECT_EQ(place(module.m_name), 0);
  EXPECT_LT(place(module.m_name), place(module.m_signalCallback));
  EXPECT_LT(place(module.m_signalCallback), place(module.m_ttSignalCallback));
  EXPECT_LT(place(module.m_ttSignalCallback), place(module.m_sectionCallback));
  EXPECT_LT(place(module.m_sectionCallback), place(module.m_dsmCallback));
  EXPECT_LT(place(module.m_dsmCallback), place(module.m_pesCallback));
  EXPECT_LT(place(module.m_pesCallback), place(module.m_captionCallback));
  EXPECT_LT(place(module.m_captionCallback), place(module.m_programCallback));
  EXPECT_LT(place(module.m_programCallback), place(module.m_signalUserData));
  EXPECT_LT(place(module.m_signalUserData), place(module.m_pUserData));
  EXPECT_LT(place(module.m_pUserData), place(module.m_sectionHandle));
}

TEST(TvsRegistry, StartsWithNothing) {
  EXPECT_EQ(static_cast<int>(Module::m_profile), 1);
  EXPECT_EQ(Module::m_group, 0);
  EXPECT_EQ(Module::m_captionSubscriptionHandle, 0);
  EXPECT_EQ(Module::m_pesSubscriptionHandle, 0);
  EXPECT_THAT(Module::m_eventType, ElementsAre(0, 0, 0, 0, 0, 0));
  ExpectNoContainers();
  EXPECT_EQ(Module::m_pSignalSubscriber, nullptr);
  EXPECT_EQ(Module::m_pProgramSubscriber, nullptr);
  EXPECT_EQ(Module::m_pSectionSubscriber, nullptr);
  EXPECT_EQ(Module::m_pPESDataSubscriber, nullptr);
  EXPECT_EQ(Module::m_pCaptionSubscriber, nullptr);
  EXPECT_EQ(Module::m_pDsm, nullptr);
  EXPECT_THAT(LockCalls(), IsEmpty());
  EXPECT_EQ(Module::m_GetSubscriber("mod", "signal"), nullptr);
}

class TvsCopies : public testing::Test {
protected:
  ~TvsCopies() override { Module::ReleaseAll(); }
};

TEST_F(TvsCopies, AreMadeFieldByField) {
  Module module = FilledModule();
  Module *copy = module.m_GetCopiedSubscriptionInstance("pes");
  ASSERT_NE(copy, &module);
  ExpectEqual(*copy, module);

  copy->m_signalUserData.clear();
  EXPECT_THAT(module.m_signalUserData, SizeIs(1)) << "the copy has a map of its own";
}

TEST_F(TvsCopies, AreFiledUnderNameAndStream) {
  Module module("mod");
  Module *signal = module.m_GetCopiedSubscriptionInstance("signal");
  Module *pes = module.m_GetCopiedSubscriptionInstance("pes");
  EXPECT_NE(signal, pes);
  EXPECT_THAT(*Module::m_pSubscriberInstances, ElementsAre(std::pair("mod_pes", pes), std::pair("mod_signal", signal)));
  EXPECT_EQ(Module::m_GetSubscriber("mod", "signal"), signal);
  EXPECT_EQ(Module::m_GetSubscriber("mod", "pes"), pes);
  EXPECT_EQ(Module::m_GetSubscriber("mod", "caption"), nullptr);
  EXPECT_EQ(Module::m_GetSubscriber("Mod", "signal"), nullptr);
  EXPECT_EQ(Module::m_GetSubscriber("other", "signal"), nullptr);
}

TEST_F(TvsCopies, AreNotBroughtUpToDate) {
  Module module("mod");
  Module *copy = module.m_GetCopiedSubscriptionInstance("signal");
  module = FilledModule();
  EXPECT_EQ(module.m_GetCopiedSubscriptionInstance("signal"), copy);
  ExpectEqual(*copy, Module("mod"));
}

TEST_F(TvsCopies, AreSharedByObjectsOfOneName) {
  Module first("mod");
  Module second = FilledModule();
  Module *copy = first.m_GetCopiedSubscriptionInstance("signal");
  EXPECT_EQ(second.m_GetCopiedSubscriptionInstance("signal"), copy);
  EXPECT_EQ(copy->m_signalCallback, nullptr) << "the second object's callbacks never reach the copy";
}

TEST_F(TvsCopies, AreFoundAndMadeWithoutTakingTheLock) {
  Module("mod").m_GetCopiedSubscriptionInstance("signal");
  Module::m_GetSubscriber("mod", "signal");
  EXPECT_THAT(LockCalls(), IsEmpty());
  EXPECT_THAT(LogMessages(), IsEmpty());
}

TEST_F(TvsCopies, AreMadeWholeOrNotAtAllWhenMemoryIsShort) {
  Module module = FilledModule();
  module.m_name = kLongName;
  int failures = 0;
  ThrowAtEachAllocation([&] { module.m_GetCopiedSubscriptionInstance("signal"); },
                        [&] {
                          ++failures;
                          EXPECT_EQ(Module::m_GetSubscriber(kLongName, "signal"), nullptr);
                          EXPECT_TRUE(!Module::m_pSubscriberInstances || Module::m_pSubscriberInstances->empty());
                        });
  EXPECT_GE(failures, 5) << "the registry, the key, the object, its name, its user data";
  ExpectEqual(*Module::m_GetSubscriber(kLongName, "signal"), module);
}

// --- ReleaseAll ---

// Subscribes a module to every kind, with two keys or handles where possible.
class TvsRelease : public testing::Test {
protected:
  void SubscribeSignals() {
    module_.SetSignalCallback(OnSignal);
    module_.SubscribeSignal(SIGNAL_TYPE_STRENGTH, nullptr, PROFILE_MAIN, 0);
    module_.SubscribeSignal(SIGNAL_TYPE_LOCK, nullptr, PROFILE_MAIN, 0);
    module_.SubscribeSignal(SIGNAL_TYPE_LOCK, nullptr, PROFILE_MAIN, 0);
    module_.SubscribeSignal(SIGNAL_TYPE_LOCK, nullptr, PROFILE_PIP, 0);
  }
  void SubscribeSections() {
    int handle = 0;
    fake_tv_service.next_handle = 300;
    module_.SetSectionCallback(OnSection);
    module_.SubscribeSection(1, TCSectionCriteriaHelper(), handle);
    module_.SubscribeSectionByFilter(2, TCSectionFilterCriteriaHelper(), handle);
  }
  void AttachDsm() {
    unsigned handle = 0;
    fake_tv_service.next_handle = 400;
    module_.AttachDsm(OnDsm, handle, "", DSM_DATA_SERVICE_OBJECT_CAROUSEL, DSM_ATTACH_NORMAL, nullptr, false);
    Module("second").AttachDsm(OnDsm, handle, "", DSM_DATA_SERVICE_OBJECT_CAROUSEL, DSM_ATTACH_NORMAL, nullptr, false);
  }
  void SubscribePes() { module_.SubscribePES(OnPes, nullptr); }
  void SubscribeCaptions() { module_.SubscribeCaption(OnCaption, nullptr); }
  void SubscribePrograms() {
    int handle = 0;
    fake_tv_service.next_handle = 500;
    module_.SetProgramCallback(OnProgram);
    module_.SubscribeProgram(TCProgramFilteringItem(), handle);
    module_.SubscribeProgramListPF(0, 0, SUBSCRIBE_TYPE_ONCE, handle);
  }
  void SubscribeEverything() {
    SubscribePrograms();
    SubscribeCaptions();
    SubscribePes();
    AttachDsm();
    SubscribeSections();
    SubscribeSignals();
  }
  static std::vector<std::string> CallsOfReleaseAll() {
    ClearServiceCalls();
    Module::ReleaseAll();
    return ServiceCalls();
  }

  Module module_{"mod"};
};

TEST_F(TvsRelease, WithNothingSetUpOnlyTakesAndClosesTheLock) {
  Module::ReleaseAll();
  EXPECT_THAT(LogMessages(), ElementsAre("2 Release All TVS subscriptions !!"));
  EXPECT_THAT(LockCalls(), ElementsAre("Create", "Lock", "Unlock", "Destroy"));
  EXPECT_THAT(ServiceCalls(), IsEmpty());
  EXPECT_EQ(Module::m_pSubscriberInstances, nullptr);
}

TEST_F(TvsRelease, EndsEverythingAtTheServiceInOrderAndLocked) {
  SubscribeEverything();
  EXPECT_THAT(CallsOfReleaseAll(),
              ElementsAre("signal.Unsubscribe(0, 1, 0) locked", "signal.Unsubscribe(5, 1, 0) locked",
                          "signal.Unsubscribe(0, 2, 0) locked", "DestroySignalSubscriber() locked",
                          "section.Unsubscribe(301) locked", "section.Unsubscribe(301) locked",
                          "DestroySectionSubscriber() locked", "dsm.Detach(400) locked", "dsm.Detach(401) locked",
                          "DestroyDsm() locked", "DestroyPESDataSubscriber() locked", "DestroyDataSubscriber() locked",
                          "program.UnsubscribeProgram(500) locked", "program.UnsubscribeProgram(501) locked",
                          "DestroyProgramSubscriber() locked"));
}

TEST_F(TvsRelease, LogsAheadOfTheLockAndClosesItAtTheEnd) {
  SubscribeEverything();
  ClearLog();
  ClearLockCalls();
  std::vector<std::string> logged_before;
  BeforeNextLock([&] { logged_before = LogMessages(); });
  Module::ReleaseAll();
  EXPECT_THAT(logged_before, ElementsAre("2 Release All TVS subscriptions !!"));
  EXPECT_THAT(LogMessages(), SizeIs(1));
  EXPECT_THAT(LockCalls(), ElementsAre("Lock", "Unlock", "Destroy"));
}

TEST_F(TvsRelease, LeavesNoContainerAndNoCopy) {
  SubscribeEverything();
  Module::ReleaseAll();
  ExpectNoContainers();
  EXPECT_EQ(Module::m_GetSubscriber("mod", "signal"), nullptr);
}

// A notification that arrives while the service destroys its object finds no container. The copies are deleted last.
TEST_F(TvsRelease, LetsGoOfEachContainerAheadOfTheServicesObject) {
  SubscribeEverything();
  int asked = 0;
  const auto expect_gone = [&asked](const char *call, auto *&container, auto holds) {
    fake_tv_service.during[call] = [&asked, &container, holds] {
      ++asked;
      EXPECT_EQ(container, nullptr);
      EXPECT_NE(Module::m_pSubscriberInstances, nullptr);
      holds();
    };
  };
  const auto nothing = [] {};
  expect_gone("DestroySignalSubscriber", Module::m_pSignalSubscriptions, nothing);
  expect_gone("DestroySectionSubscriber", Module::m_pSectionSubscriptions, nothing);
  expect_gone("DestroyDsm", Module::m_pDsmSubscriptions, [] { EXPECT_EQ(Module::m_pDsm, FakeDsm()); });
  expect_gone("DestroyPESDataSubscriber", Module::m_pPesSubscriptions, nothing);
  expect_gone("DestroyDataSubscriber", Module::m_pCaptionSubscriptions, nothing);
  expect_gone("DestroyProgramSubscriber", Module::m_pProgramSubscriptions,
              [] { EXPECT_EQ(Module::m_pProgramSubscriber, FakeProgramSubscriber()); });
  Module::ReleaseAll();
  EXPECT_EQ(asked, 6);
}

TEST_F(TvsRelease, ForgetsOnlyTheDsmObjectAndTheProgramSubscriber) {
  SubscribeEverything();
  Module::ReleaseAll();
  EXPECT_EQ(Module::m_pDsm, nullptr);
  EXPECT_EQ(Module::m_pProgramSubscriber, nullptr);
  EXPECT_EQ(Module::m_pSignalSubscriber, FakeSignalSubscriber());
  EXPECT_EQ(Module::m_pSectionSubscriber, FakeSectionSubscriber());
  EXPECT_EQ(Module::m_pPESDataSubscriber, FakePesSubscriber());
  EXPECT_EQ(Module::m_pCaptionSubscriber, FakeCaptionSubscriber());
}

TEST_F(TvsRelease, LeavesNumbersAsTheyAre) {
  SubscribeEverything();
  Module::m_profile = PROFILE_PIP;
  Module::m_group = 3;
  Module::m_eventType[0] = 99;
  const int pes_handle = Module::m_pesSubscriptionHandle;
  const int caption_handle = Module::m_captionSubscriptionHandle;
  EXPECT_NE(pes_handle, 0);
  EXPECT_NE(caption_handle, 0);
  Module::ReleaseAll();
  EXPECT_EQ(Module::m_profile, PROFILE_PIP);
  EXPECT_EQ(Module::m_group, 3);
  EXPECT_EQ(Module::m_eventType[0], 99);
  EXPECT_EQ(Module::m_pesSubscriptionHandle, pes_handle);
  EXPECT_EQ(Module::m_captionSubscriptionHandle, caption_handle);
}

TEST_F(TvsRelease, EndsProgramsAsListsWhenTheServiceAnswers0) {
  SubscribePrograms();
  fake_tv_service.answers["program.UnsubscribeProgram"] = 0;
  EXPECT_THAT(CallsOfReleaseAll(),
              ElementsAre("program.UnsubscribeProgram(500) locked", "program.UnsubscribeProgramList(500) locked",
                          "program.UnsubscribeProgram(501) locked", "program.UnsubscribeProgramList(501) locked",
                          "DestroyProgramSubscriber() locked"));
}

TEST_F(TvsRelease, DoesNotEndProgramsAsListsWhenTheServiceAnswersLess) {
  SubscribePrograms();
  fake_tv_service.answers["program.UnsubscribeProgram"] = -1;
  EXPECT_THAT(CallsOfReleaseAll(),
              ElementsAre("program.UnsubscribeProgram(500) locked", "program.UnsubscribeProgram(501) locked",
                          "DestroyProgramSubscriber() locked"));
}

TEST_F(TvsRelease, IgnoresWhatTheServiceAnswers) {
  SubscribeEverything();
  const std::vector<std::string> calls = {"signal.Unsubscribe",
                                          "DestroySignalSubscriber",
                                          "section.Unsubscribe",
                                          "DestroySectionSubscriber",
                                          "dsm.Detach",
                                          "DestroyDsm",
                                          "DestroyPESDataSubscriber",
                                          "DestroyDataSubscriber",
                                          "program.UnsubscribeProgram",
                                          "DestroyProgramSubscriber"};
  for (const std::string &call : calls) {
    fake_tv_service.answers[call] = -1;
  }
  EXPECT_THAT(CallsOfReleaseAll(), SizeIs(15));
  EXPECT_EQ(Module::m_pSubscriberInstances, nullptr);
}

TEST_F(TvsRelease, PassesOverSectionsWithoutACopy) {
  SubscribeSections();
  (*Module::m_pSectionSubscriptions)[1] = nullptr;
  EXPECT_THAT(CallsOfReleaseAll(), ElementsAre("section.Unsubscribe(301) locked", "section.Unsubscribe(301) locked",
                                               "DestroySectionSubscriber() locked"));
}

TEST_F(TvsRelease, GivesSectionsOfACriteriaModuleTheHandleItsCopyHas) {
  int handle = 0;
  module_.m_sectionHandle = 7;
  module_.SetSectionCallback(OnSection);
  module_.SubscribeSection(1, TCSectionCriteriaHelper(), handle);
  EXPECT_THAT(CallsOfReleaseAll(), ElementsAre("section.Unsubscribe(7) locked", "DestroySectionSubscriber() locked"));
}

TEST_F(TvsRelease, WithoutServiceObjectsOnlyDestroys) {
  SubscribeEverything();
  Module::m_pSignalSubscriber = nullptr;
  Module::m_pSectionSubscriber = nullptr;
  Module::m_pDsm = nullptr;
  Module::m_pPESDataSubscriber = nullptr;
  Module::m_pCaptionSubscriber = nullptr;
  Module::m_pProgramSubscriber = nullptr;
  EXPECT_THAT(CallsOfReleaseAll(), ElementsAre("DestroySignalSubscriber() locked", "DestroySectionSubscriber() locked",
                                               "DestroyDsm() locked", "DestroyPESDataSubscriber() locked",
                                               "DestroyDataSubscriber() locked", "DestroyProgramSubscriber() locked"));
}

TEST_F(TvsRelease, DestroysASubscriberWhoseContainerIsEmpty) {
  module_.SetSignalCallback(OnSignal);
  module_.SetSectionCallback(OnSection);
  module_.SetProgramCallback(OnProgram);
  EXPECT_THAT(CallsOfReleaseAll(), ElementsAre("DestroySignalSubscriber() locked", "DestroySectionSubscriber() locked",
                                               "DestroyProgramSubscriber() locked"));
}

TEST_F(TvsRelease, ASecondTimeFindsNothing) {
  SubscribeEverything();
  Module::ReleaseAll();
  EXPECT_THAT(CallsOfReleaseAll(), IsEmpty());
}

TEST_F(TvsRelease, IsFollowedByANewLockOnDemand) {
  SubscribeSignals();
  Module::ReleaseAll();
  ClearLockCalls();
  Module("next").SetSignalCallback(OnSignal);
  EXPECT_THAT(LockCalls(), ElementsAre("Create", "Lock", "Unlock"));
}

// Each kind alone: ReleaseAll destroys only what exists, and the next use creates only what the pointers call for.
struct Kind {
  const char *name;
  void (*subscribe)(Module &module);
  std::vector<std::string> released; // calls that ReleaseAll makes
  std::vector<std::string> set_up_again;
};

class TvsReleaseOfOneKind : public testing::TestWithParam<Kind> {};

TEST_P(TvsReleaseOfOneKind, LeavesTheOthersAlone) {
  Module first("first");
  GetParam().subscribe(first);
  ClearServiceCalls();
  Module::ReleaseAll();
  EXPECT_EQ(ServiceCalls(), GetParam().released);
  EXPECT_EQ(Module::m_pSubscriberInstances, nullptr);
}

TEST_P(TvsReleaseOfOneKind, IsFollowedByWhatTheServicePointersTell) {
  Module first("first");
  Module second("second");
  GetParam().subscribe(first);
  Module::ReleaseAll();
  ClearServiceCalls();
  GetParam().subscribe(second);
  EXPECT_EQ(ServiceCalls(), GetParam().set_up_again);
  Module::ReleaseAll();
}

const Kind kKinds[] = {
    {"Signal", [](Module &module) { module.SetSignalCallback(OnSignal); }, {"DestroySignalSubscriber() locked"}, {}},
    {"Section",
     [](Module &module) { module.SetSectionCallback(OnSection); },
     {"DestroySectionSubscriber() locked"},
     {}},
    {"Dsm",
     [](Module &module) {
       unsigned handle = 0;
       module.AttachDsm(OnDsm, handle, "", DSM_DATA_SERVICE_OBJECT_CAROUSEL, DSM_ATTACH_NORMAL, nullptr, false);
     },
     {"dsm.Detach(100) locked", "DestroyDsm() locked"},
     {"CreateDsm() locked", "dsm.Attach(, 0, 0, 0) locked"}},
    {"Pes",
     [](Module &module) { module.SubscribePES(OnPes, nullptr); },
     {"DestroyPESDataSubscriber() locked"},
     {"pes.Subscribe(0) locked"}},
    {"Caption",
     [](Module &module) { module.SubscribeCaption(OnCaption, nullptr); },
     {"DestroyDataSubscriber() locked"},
     {"caption.Subscribe(0) locked"}},
    {"Program",
     [](Module &module) { module.SetProgramCallback(OnProgram); },
     {"DestroyProgramSubscriber() locked"},
     {"CreateProgramSubscriber() locked"}},
};

INSTANTIATE_TEST_SUITE_P(Kinds, TvsReleaseOfOneKind, testing::ValuesIn(kKinds),
                         [](const auto &kind) { return std::string(kind.param.name); });

} // namespace
