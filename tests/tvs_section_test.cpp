// Section subscriptions: one key per module and stream, delivery on the TV service's thread.
#include <TVServiceSubscriber.h>

#include <gmock/gmock.h>

#include <functional>
#include <new>
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

constexpr char kAlreadySet[] = R"(0 && "section callback has already been set !")";
constexpr char kNotCreated[] = "ret == 0 && m_pSectionSubscriber != __null";
constexpr char kNotSet[] = R"(0 && "section callback should be registered before subscription !!")";
constexpr char kNothing[] = R"(0 && "m_pSectionSubscriptions is null !!")";

struct Call {
  char module; // which callback
  bool flag;
  int number;
  const unsigned char *data;
  int stream;
  bool lock_held;
  std::thread::id thread;
};

std::vector<Call> g_calls;
std::function<void()> g_during;

template <char kModule> void OnSection(bool flag, unsigned short number, unsigned char *data, int stream) {
  g_calls.push_back({kModule, flag, number, data, stream, AnyLockHeld(), std::this_thread::get_id()});
  if (const std::function<void()> during = g_during) {
    during();
  }
}

void Notify(int key) { Module::t_SectionCallback(true, 0, nullptr, key); }

// The two operations that subscribe.
bool ByCriteria(Module &module, int stream, int &handle) {
  TCSectionCriteriaHelper criteria;
  criteria.pid = 0x1fff;
  criteria.tableId = 0x42;
  return module.SubscribeSection(static_cast<short>(stream), criteria, handle);
}

bool ByFilter(Module &module, int stream, int &handle) {
  TCSectionFilterCriteriaHelper filter;
  filter.pid = 18;
  filter.match = {1, 2, 3};
  filter.mask = {255, 255};
  return module.SubscribeSectionByFilter(static_cast<short>(stream), filter, handle);
}

struct Form {
  const char *name;
  bool (*subscribe)(Module &module, int stream, int &handle);
  const char *function;
  const char *call;
  const char *asked;
  bool keeps_handle;
};

const Form kForms[] = {
    {"Criteria", ByCriteria, "SubscribeSection", "section.SubscribeByCriteria", "section.SubscribeByCriteria(8191, 66)",
     false},
    {"Filter", ByFilter, "SubscribeSectionByFilter", "section.SubscribeByFilter", "section.SubscribeByFilter(18, 3, 2)",
     true},
};

class TvsSection : public testing::Test {
protected:
  ~TvsSection() override {
    g_during = nullptr;
    fake_tv_service.during.clear();
    Module::ReleaseAll();
  }

  static Module WithCallback(const char *name, Module::SectionCallback callback = OnSection<'a'>) {
    Module module(name);
    module.SetSectionCallback(callback);
    return module;
  }

  static Module *CopyOf(const char *name) { return Module::m_GetSubscriber(name, "section"); }

  int handle_ = -1;
};

// --- Setting the callback ---

TEST_F(TvsSection, SettingTheCallbackSetsUpTheService) {
  Module::m_profile = PROFILE_PIP;
  Module::m_group = 4;
  const Module module = WithCallback("mod");
  EXPECT_EQ(module.m_sectionCallback, OnSection<'a'>);
  EXPECT_THAT(ServiceCalls(), ElementsAre("CreateSectionSubscriber(2, 4) locked"));
  EXPECT_EQ(fake_tv_service.on_section, Module::t_SectionCallback);
  EXPECT_EQ(Module::m_pSectionSubscriber, FakeSectionSubscriber());
  EXPECT_THAT(*Module::m_pSectionSubscriptions, IsEmpty());
  EXPECT_EQ(Module::m_pSubscriberInstances, nullptr);
  EXPECT_THAT(LogMessages(), IsEmpty());
  EXPECT_THAT(LockCalls(), ElementsAre("Create", "Lock", "Unlock"));
}

TEST_F(TvsSection, SettingASecondModulesCallbackUsesWhatIsThere) {
  WithCallback("first");
  const auto *subscriptions = Module::m_pSectionSubscriptions;
  const Module second = WithCallback("second");
  EXPECT_THAT(ServiceCalls(), ElementsAre("CreateSectionSubscriber(1, 0) locked"));
  EXPECT_EQ(Module::m_pSectionSubscriptions, subscriptions);
  EXPECT_NE(second.m_sectionCallback, nullptr);
}

TEST_F(TvsSection, SettingTheCallbackTwiceAborts) {
  Module module = WithCallback("mod");
  EXPECT_ASSERTION(module.SetSectionCallback(OnSection<'b'>), kAlreadySet);
}

TEST_F(TvsSection, SettingTheCallbackAbortsWhenTheServiceRefuses) {
  fake_tv_service.answers["CreateSectionSubscriber"] = -1;
  EXPECT_ASSERTION(WithCallback("mod"), kNotCreated);
}

TEST_F(TvsSection, SettingTheCallbackAbortsWhenTheServiceGivesNothing) {
  fake_tv_service.gives_nothing = true;
  EXPECT_ASSERTION(WithCallback("mod"), kNotCreated);
}

TEST_F(TvsSection, SettingTheCallbackAfterAReleaseMakesANewContainerOnly) {
  WithCallback("mod");
  Module::ReleaseAll();
  ClearServiceCalls();
  WithCallback("mod");
  EXPECT_THAT(ServiceCalls(), IsEmpty());
  EXPECT_NE(Module::m_pSectionSubscriptions, nullptr);
}

TEST_F(TvsSection, SettingTheCallbackFailsWholeWhenMemoryIsShort) {
  Module module(kLongName);
  ThrowAtEachAllocation([&] { module.SetSectionCallback(OnSection<'a'>); },
                        [&] {
                          EXPECT_EQ(module.m_sectionCallback, nullptr);
                          EXPECT_EQ(Module::m_pSectionSubscriptions, nullptr);
                        });
}

// --- Keys ---

TEST_F(TvsSection, KeyIsMadeOfTheAddressAndTheStream) {
  Module module("mod");
  const auto address = reinterpret_cast<uintptr_t>(&module);
  for (const int stream : {0, 1, 0x1234, 32767, -1, -32768}) {
    const auto key = static_cast<unsigned>(module.m_GetKey(static_cast<short>(stream)));
    EXPECT_EQ(key >> 16, address & 0xffff);
    EXPECT_EQ(key & 0xffff, static_cast<unsigned>(stream) & 0xffff);
  }
  EXPECT_THAT(LockCalls(), IsEmpty());
}

// --- Subscribing ---

class TvsSectionForm : public TvsSection, public testing::WithParamInterface<Form> {
protected:
  bool Subscribe(Module &module, int stream) { return GetParam().subscribe(module, stream, handle_); }
};

INSTANTIATE_TEST_SUITE_P(Forms, TvsSectionForm, testing::ValuesIn(kForms),
                         [](const auto &form) { return std::string(form.param.name); });

TEST_P(TvsSectionForm, AsksTheServiceWithTheLockReleasedAndFilesTheModulesCopy) {
  Module module = WithCallback("mod");
  ClearServiceCalls();
  ClearLockCalls();
  EXPECT_TRUE(Subscribe(module, 7));
  EXPECT_EQ(handle_, 100);
  EXPECT_THAT(ServiceCalls(), ElementsAre(GetParam().asked));
  Module *copy = CopyOf("mod");
  ASSERT_NE(copy, nullptr);
  EXPECT_EQ(copy->m_sectionCallback, OnSection<'a'>);
  EXPECT_EQ(fake_tv_service.section_key, copy->m_GetKey(7));
  EXPECT_THAT(*Module::m_pSectionSubscriptions, ElementsAre(Pair(copy->m_GetKey(7), copy)));
  EXPECT_THAT(LockCalls(), ElementsAre("Lock", "Unlock", "Lock", "Unlock"));
  EXPECT_THAT(LogMessages(), IsEmpty());
}

TEST_P(TvsSectionForm, KeepsTheHandleOfFiltersOnly) {
  Module module = WithCallback("mod");
  Subscribe(module, 1);
  EXPECT_EQ(CopyOf("mod")->m_sectionHandle, GetParam().keeps_handle ? 100 : 0);
  Subscribe(module, 2);
  EXPECT_EQ(CopyOf("mod")->m_sectionHandle, GetParam().keeps_handle ? 101 : 0);
  EXPECT_EQ(module.m_sectionHandle, 0) << "the module's own object does not change";
}

TEST_P(TvsSectionForm, AbortsWithoutTheModulesOwnCallback) {
  WithCallback("other");
  Module module("mod");
  EXPECT_ASSERTION_IN("SubscribeSection", Subscribe(module, 1), kNotSet);
}

TEST_P(TvsSectionForm, IsRefusedWithTheService) {
  Module module = WithCallback("mod");
  for (const int answer : {0, -1}) {
    fake_tv_service.answers[GetParam().call] = answer;
    EXPECT_FALSE(Subscribe(module, 1));
  }
  EXPECT_EQ(CopyOf("mod")->m_sectionHandle, 0);
  EXPECT_THAT(*Module::m_pSectionSubscriptions, IsEmpty());
  EXPECT_THAT(LogMessages(), IsEmpty());
}

TEST_P(TvsSectionForm, IsRefusedWithoutACopy) {
  Module module = WithCallback("mod");
  Module("other").m_GetCopiedSubscriptionInstance("section");
  (*Module::m_pSubscriberInstances)["mod_section"] = nullptr;
  ClearServiceCalls();
  EXPECT_FALSE(Subscribe(module, 1));
  EXPECT_THAT(ServiceCalls(), IsEmpty());
  EXPECT_THAT(LogMessagesWithLock(), ElementsAre("16 failed to get section subscriber ! locked"));
  EXPECT_THAT(LogFunctions(), ElementsAre(GetParam().function));
}

TEST_P(TvsSectionForm, GivesEachModuleAKeyOfItsOwn) {
  Module a = WithCallback("a", OnSection<'a'>);
  Module b = WithCallback("b", OnSection<'b'>);
  Subscribe(a, 5);
  Subscribe(b, 5);
  EXPECT_THAT(*Module::m_pSectionSubscriptions, SizeIs(2));
  Notify(CopyOf("b")->m_GetKey(5));
  Notify(CopyOf("a")->m_GetKey(5));
  EXPECT_EQ(ModulesCalled(g_calls), "ba");
  EXPECT_EQ(g_calls[0].stream, 5);
  EXPECT_EQ(g_calls[1].stream, 5);
}

TEST_P(TvsSectionForm, AsksTheServiceAgainForAStreamThatTheModuleHas) {
  Module module = WithCallback("mod");
  Subscribe(module, 5);
  ClearServiceCalls();
  EXPECT_TRUE(Subscribe(module, 5));
  EXPECT_EQ(handle_, 101);
  EXPECT_THAT(ServiceCalls(), SizeIs(1));
  EXPECT_THAT(*Module::m_pSectionSubscriptions, SizeIs(1));
}

// Two copies whose addresses agree in the low 16 bits.
TEST_P(TvsSectionForm, LeavesAKeyThatComesAgainWithItsFirstModule) {
  alignas(0x10000) static unsigned char places[2][0x10000];
  Module a = WithCallback("a", OnSection<'a'>);
  Module b = WithCallback("b", OnSection<'b'>);
  Module("other").m_GetCopiedSubscriptionInstance("section");
  auto &copies = *Module::m_pSubscriberInstances;
  Module *copy_a = copies["a_section"] = new (places[0]) Module(a);
  Module *copy_b = copies["b_section"] = new (places[1]) Module(b);
  ASSERT_EQ(copy_a->m_GetKey(5), copy_b->m_GetKey(5));

  EXPECT_TRUE(Subscribe(a, 5));
  EXPECT_TRUE(Subscribe(b, 5));
  EXPECT_THAT(*Module::m_pSectionSubscriptions, ElementsAre(Pair(copy_a->m_GetKey(5), copy_a)));
  Notify(copy_b->m_GetKey(5));
  EXPECT_EQ(ModulesCalled(g_calls), "a");
  EXPECT_EQ(copy_b->m_sectionHandle, GetParam().keeps_handle ? 101 : 0);

  Module::m_pSectionSubscriptions->clear();
  copies.erase("a_section");
  copies.erase("b_section");
  copy_a->~Module();
  copy_b->~Module();
}

TEST_P(TvsSectionForm, FailsBeforeTheServiceIsAskedWhenMemoryIsShort) {
  Module module(kLongName);
  module.SetSectionCallback(OnSection<'a'>);
  ClearServiceCalls();
  ThrowAtEachAllocation([&] { Subscribe(module, 1); },
                        [&] {
                          EXPECT_THAT(ServiceCalls(), IsEmpty());
                          EXPECT_THAT(*Module::m_pSectionSubscriptions, IsEmpty());
                        });
  EXPECT_THAT(*Module::m_pSectionSubscriptions, SizeIs(1));
}

TEST_P(TvsSectionForm, AfterAReleaseAsksTheServiceButFilesNothing) {
  Module module = WithCallback("mod");
  Module::ReleaseAll();
  ClearServiceCalls();
  EXPECT_TRUE(Subscribe(module, 1));
  EXPECT_THAT(ServiceCalls(), SizeIs(1));
  EXPECT_EQ(Module::m_pSectionSubscriptions, nullptr);
}

// --- What happens in the middle of a subscription ---

TEST_P(TvsSectionForm, DropsANotificationThatComesBeforeTheServiceHasAnswered) {
  Module module = WithCallback("mod");
  fake_tv_service.during[GetParam().call] = [] { std::thread(Notify, fake_tv_service.section_key).join(); };
  Subscribe(module, 1);
  EXPECT_EQ(ModulesCalled(g_calls), "");
  EXPECT_THAT(LogMessages(), IsEmpty());
}

TEST_P(TvsSectionForm, IsForgottenWhenAllIsReleasedMeanwhile) {
  Module module = WithCallback("mod");
  fake_tv_service.during[GetParam().call] = Module::ReleaseAll;
  EXPECT_TRUE(Subscribe(module, 1));
  EXPECT_EQ(handle_, 100);
  EXPECT_EQ(Module::m_pSectionSubscriptions, nullptr);
}

TEST_P(TvsSectionForm, IsForgottenWhenAllIsReleasedAndSetUpAgainMeanwhile) {
  Module module = WithCallback("mod");
  Module next("next");
  fake_tv_service.during[GetParam().call] = [&next] {
    Module::ReleaseAll();
    next.SetSectionCallback(OnSection<'b'>);
  };
  EXPECT_TRUE(Subscribe(module, 1));
  EXPECT_THAT(*Module::m_pSectionSubscriptions, IsEmpty());
}

// --- Unsubscribing ---

TEST_F(TvsSection, UnsubscribingAFilterForgetsItAndAsksTheService) {
  Module module = WithCallback("mod");
  ByFilter(module, 1, handle_);
  ClearServiceCalls();
  ClearLockCalls();
  EXPECT_TRUE(module.UnsubscribeSection(100));
  EXPECT_THAT(ServiceCalls(), ElementsAre("section.Unsubscribe(100)"));
  EXPECT_THAT(*Module::m_pSectionSubscriptions, IsEmpty());
  EXPECT_THAT(LogMessagesWithLock(), ElementsAre("2 Unsubscribe section success : sectionHandle = 100 ! locked"));
  EXPECT_THAT(LockCalls(), ElementsAre("Lock", "Unlock"));
  EXPECT_NE(CopyOf("mod"), nullptr);
}

TEST_F(TvsSection, UnsubscribingIsTheServicesAnswer) {
  Module module = WithCallback("mod");
  ByFilter(module, 1, handle_);
  fake_tv_service.answers["section.Unsubscribe"] = 0;
  EXPECT_FALSE(module.UnsubscribeSection(100));
  EXPECT_THAT(*Module::m_pSectionSubscriptions, IsEmpty()) << "forgotten although the service refused";
  EXPECT_THAT(LogMessages(), SizeIs(1)) << "the log reports a success";
  fake_tv_service.answers["section.Unsubscribe"] = -1;
  EXPECT_FALSE(module.UnsubscribeSection(100));
  fake_tv_service.answers["section.Unsubscribe"] = 2;
  EXPECT_TRUE(module.UnsubscribeSection(100));
}

TEST_F(TvsSection, UnsubscribingACriteriaSubscriptionLeavesItFiled) {
  Module module = WithCallback("mod");
  ByCriteria(module, 1, handle_);
  ClearServiceCalls();
  EXPECT_TRUE(module.UnsubscribeSection(100));
  EXPECT_THAT(ServiceCalls(), ElementsAre("section.Unsubscribe(100)"));
  EXPECT_THAT(LogMessages(), IsEmpty());
  Notify(CopyOf("mod")->m_GetKey(1));
  EXPECT_EQ(ModulesCalled(g_calls), "a");
}

TEST_F(TvsSection, UnsubscribingAnEarlierFilterOfAModuleOnlyAsksTheService) {
  Module module = WithCallback("mod");
  ByFilter(module, 1, handle_);
  ByFilter(module, 2, handle_);
  EXPECT_TRUE(module.UnsubscribeSection(100));
  EXPECT_THAT(*Module::m_pSectionSubscriptions, SizeIs(2));
}

TEST_F(TvsSection, UnsubscribingTheLatestFilterForgetsTheModulesLowestKey) {
  Module module = WithCallback("mod");
  for (const int stream : {9, 3, 5}) {
    ByFilter(module, stream, handle_);
  }
  Module *copy = CopyOf("mod");
  EXPECT_TRUE(module.UnsubscribeSection(102));
  EXPECT_THAT(*Module::m_pSectionSubscriptions,
              ElementsAre(Pair(copy->m_GetKey(5), copy), Pair(copy->m_GetKey(9), copy)));
}

TEST_F(TvsSection, UnsubscribingWalksInTheOrderOfSignedKeys) {
  Module module = WithCallback("mod");
  ByFilter(module, 1, handle_);
  Module *copy = CopyOf("mod");
  *Module::m_pSectionSubscriptions = {{-5, copy}, {5, copy}};
  module.UnsubscribeSection(100);
  EXPECT_THAT(*Module::m_pSectionSubscriptions, ElementsAre(Pair(5, copy)));
}

TEST_F(TvsSection, UnsubscribingPassesOverEntriesOfOthersAndEntriesWithoutACopy) {
  Module a = WithCallback("a");
  Module b = WithCallback("b");
  ByFilter(a, 1, handle_);
  ByFilter(b, 1, handle_);
  Module::m_pSectionSubscriptions->emplace(INT32_MIN, nullptr);
  EXPECT_TRUE(Module("anybody").UnsubscribeSection(101));
  EXPECT_THAT(*Module::m_pSectionSubscriptions,
              ElementsAre(Pair(INT32_MIN, nullptr), Pair(CopyOf("a")->m_GetKey(1), CopyOf("a"))));
}

TEST_F(TvsSection, UnsubscribingAbortsBeforeAnythingIsSetUp) {
  EXPECT_ASSERTION(Module("mod").UnsubscribeSection(100), kNothing);
}

TEST_F(TvsSection, UnsubscribingAbortsAfterARelease) {
  Module module = WithCallback("mod");
  ByFilter(module, 1, handle_);
  Module::ReleaseAll();
  EXPECT_ASSERTION(module.UnsubscribeSection(100), kNothing);
}

TEST_F(TvsSection, UnsubscribingLetsANotificationThroughWhileTheServiceIsAsked) {
  Module module = WithCallback("mod");
  ByFilter(module, 1, handle_);
  ByFilter(module, 2, handle_);
  fake_tv_service.during["section.Unsubscribe"] = [] {
    fake_tv_service.during.clear();
    std::thread(Notify, CopyOf("mod")->m_GetKey(2)).join();
    Module::ReleaseAll();
  };
  EXPECT_TRUE(module.UnsubscribeSection(101));
  EXPECT_EQ(ModulesCalled(g_calls), "a");
}

// --- Notifications ---

TEST_F(TvsSection, DropsANotificationWhenNothingIsSetUp) {
  Notify(1);
  EXPECT_THAT(LogMessages(), ElementsAre("16 No subscriptions !"));
  EXPECT_THAT(LockCalls(), IsEmpty());
}

TEST_F(TvsSection, DropsANotificationOfAnUnknownKeySilently) {
  Module module = WithCallback("mod");
  ByFilter(module, 1, handle_);
  const int key = CopyOf("mod")->m_GetKey(1);
  ClearLockCalls();
  Notify(key + 1);
  Notify(key ^ INT32_MIN); // differs only in the bits above the stream
  EXPECT_EQ(ModulesCalled(g_calls), "");
  EXPECT_THAT(LogMessages(), IsEmpty());
  EXPECT_THAT(LockCalls(), ElementsAre("Lock", "Unlock", "Lock", "Unlock"));
}

TEST_F(TvsSection, TellsTheModuleAtOnceOnTheServicesThread) {
  Module module = WithCallback("mod");
  ByFilter(module, 0x1234, handle_);
  ClearLockCalls();
  unsigned char data[4] = {};
  std::thread service([&] { Module::t_SectionCallback(true, 65535, data, CopyOf("mod")->m_GetKey(0x1234)); });
  const std::thread::id id = service.get_id();
  service.join();
  Module::t_SectionCallback(false, 1, nullptr, CopyOf("mod")->m_GetKey(0x1234));
  ASSERT_THAT(g_calls, SizeIs(2));
  EXPECT_EQ(g_calls[0].flag, true);
  EXPECT_EQ(g_calls[0].number, 65535);
  EXPECT_EQ(g_calls[0].data, data);
  EXPECT_EQ(g_calls[0].stream, 0x1234);
  EXPECT_FALSE(g_calls[0].lock_held);
  EXPECT_EQ(g_calls[0].thread, id);
  EXPECT_EQ(g_calls[1].flag, false);
  EXPECT_THAT(LogMessagesWithLock(),
              ElementsAre("2 Call section callback of 'mod'", "2 Call section callback of 'mod'"));
  EXPECT_THAT(LockCalls(), ElementsAre("Lock", "Unlock", "Lock", "Unlock"));
}

TEST_F(TvsSection, TellsAModuleThatSubscribedMinus1TheStream65535) {
  Module module = WithCallback("mod");
  ByCriteria(module, -1, handle_);
  Notify(fake_tv_service.section_key);
  ASSERT_THAT(g_calls, SizeIs(1));
  EXPECT_EQ(g_calls[0].stream, 65535);
}

TEST_F(TvsSection, IsSilentAboutACopyWithoutACallbackAndAnEntryWithoutACopy) {
  Module module = WithCallback("mod");
  ByFilter(module, 1, handle_);
  CopyOf("mod")->m_sectionCallback = nullptr;
  Module::m_pSectionSubscriptions->emplace(INT32_MIN, nullptr);
  Notify(fake_tv_service.section_key);
  Notify(INT32_MIN);
  EXPECT_THAT(LogMessages(), IsEmpty());
}

TEST_F(TvsSection, IsSilentWhenAllIsReleasedJustBeforeTheLockIsTaken) {
  Module module = WithCallback("mod");
  ByFilter(module, 1, handle_);
  const int key = fake_tv_service.section_key;
  BeforeNextLock(Module::ReleaseAll);
  Notify(key);
  EXPECT_EQ(ModulesCalled(g_calls), "");
  EXPECT_THAT(LogMessages(), ElementsAre("2 Release All TVS subscriptions !!"));
}

TEST_F(TvsSection, ModuleSubscribesUnsubscribesAndReleasesAllInItsCallback) {
  Module module = WithCallback("mod");
  ByFilter(module, 1, handle_);
  const int key = fake_tv_service.section_key;
  g_during = [&] {
    g_during = Module::ReleaseAll;
    EXPECT_TRUE(ByFilter(module, 2, handle_));
    EXPECT_TRUE(module.UnsubscribeSection(handle_)); // removes the entry with the lower key
  };
  Notify(key);
  EXPECT_THAT(*Module::m_pSectionSubscriptions, ElementsAre(Pair(CopyOf("mod")->m_GetKey(2), CopyOf("mod"))));
  Notify(fake_tv_service.section_key);
  EXPECT_EQ(Module::m_pSectionSubscriptions, nullptr);
  EXPECT_EQ(ModulesCalled(g_calls), "aa");
}

TEST_F(TvsSection, LogsInTheNameOfWhatIsCalled) {
  Notify(1); // there is no container
  Module module = WithCallback(kLongName);
  ByFilter(module, 1, handle_);
  FailAllocation(1);
  Notify(fake_tv_service.section_key);
  FailAllocation(0);
  Notify(fake_tv_service.section_key);
  module.UnsubscribeSection(handle_);
  EXPECT_THAT(LogFunctions(),
              ElementsAre("t_SectionCallback", "t_SectionCallback", "t_SectionCallback", "UnsubscribeSection"));
  EXPECT_THAT(LogLines(), testing::Each(testing::Field(&LogLine::file, "TVServiceSubscriber.cpp")));
}

TEST_F(TvsSection, DropsANotificationWhenMemoryIsShort) {
  Module module(kLongName);
  module.SetSectionCallback(OnSection<'a'>);
  ByFilter(module, 1, handle_);
  g_calls.reserve(1);
  int failures = 0;
  FailEachAllocation([] { Notify(fake_tv_service.section_key); }, [&](int) { ++failures; });
  EXPECT_EQ(failures, 1) << "the module's name";
  EXPECT_EQ(ModulesCalled(g_calls), "a");
  EXPECT_THAT(LogMessagesWithLock(),
              ElementsAre("16 No subscriptions !", "2 Call section callback of '" + std::string(kLongName) + "'"));
}

} // namespace
