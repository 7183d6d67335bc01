// Signal subscriptions: counted per key, with one subscription at the TV service for all modules.
#include <TVServiceSubscriber.h>

#include <gmock/gmock.h>

#include <thread>
#include <tuple>

#include "death.h"
#include "fake_dlog.h"
#include "fake_kestrel.h"
#include "fake_tv_service.h"
#include "short_memory.h"

using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;
using testing::SizeIs;

namespace {

using Module = CTVServiceSubscriber;

int OnSignal(ESignalType, TSSignalData, void *) { return 0; }
int OnTTSignal(ESignalType, EProfile, unsigned short, TSSignalData, void *) { return 0; }

constexpr char kAlreadySet[] = R"(0 && "signal callback has already been set !")";
constexpr char kNotCreated[] = R"(0 && "failed to create signal subscriber!")";
constexpr char kNotSet[] = R"(0 && "signal callback should be registered before subscription !!")";
constexpr char kNoCopy[] = R"(0 && "pSubscriber is NULL !!")";

// --- Keys ---

using KeyFields = std::tuple<int, int, int>; // screen, profile, type: the first counts most

TSignalInfo Key(const KeyFields &fields) {
  const auto [screen, profile, type] = fields;
  return {static_cast<ESignalType>(type), static_cast<EProfile>(profile), static_cast<unsigned short>(screen)};
}

TEST(TvsSignalKey, ComparesByScreenThenProfileThenType) {
  const KeyFields ordered[] = {{0, -1, 5}, {0, 0, 9},  {0, 1, -2},     {0, 1, 0},      {0, 1, 1},
                               {0, 2, 0},  {1, -1, 0}, {0x7fff, 0, 0}, {0x8000, 0, 0}, {0xffff, -1, -1}};
  for (const KeyFields &a : ordered) {
    for (const KeyFields &b : ordered) {
      EXPECT_EQ(Key(a) < Key(b), a < b);
      EXPECT_EQ(Key(a) == Key(b), a == b);
    }
  }
}

TEST(TvsSignalKey, HasTypeProfileAndScreenInThisOrder) {
  EXPECT_LT(offsetof(TSignalInfo, signalType), offsetof(TSignalInfo, profile));
  EXPECT_LT(offsetof(TSignalInfo, profile), offsetof(TSignalInfo, screenId));
}

class TvsSignal : public testing::Test {
protected:
  ~TvsSignal() override {
    fake_tv_service.during.clear();
    Module::ReleaseAll();
  }

  // Subscribes and returns the calls to the service.
  static std::vector<std::string> Subscribing(Module &module, int type, int screen = 0, void *user_data = nullptr) {
    ClearServiceCalls();
    EXPECT_TRUE(module.SubscribeSignal(static_cast<ESignalType>(type), user_data, PROFILE_MAIN,
                                       static_cast<unsigned short>(screen)));
    return ServiceCalls();
  }

  static std::vector<std::string> Unsubscribing(Module &module, int type, int screen = 0) {
    ClearServiceCalls();
    EXPECT_TRUE(
        module.UnsubscribeSignal(static_cast<ESignalType>(type), PROFILE_MAIN, static_cast<unsigned short>(screen)));
    return ServiceCalls();
  }

  // The signal type and the module's name of each subscription, in order.
  static std::vector<std::pair<int, std::string>> Subscriptions() {
    std::vector<std::pair<int, std::string>> subscriptions;
    for (const auto &[key, copy] : *Module::m_pSignalSubscriptions) {
      subscriptions.emplace_back(key.signalType, copy->m_name);
    }
    return subscriptions;
  }

  // An object that has set its callback.
  static Module WithCallback(const char *name) {
    Module module(name);
    module.SetSignalCallback(OnSignal);
    return module;
  }
};

// --- Setting the callback ---

template <class Callback> struct Overload;
template <> struct Overload<Module::SignalCallback> {
  static Module::SignalCallback Value() { return OnSignal; }
  static Module::SignalCallback &Field(Module &module) { return module.m_signalCallback; }
};
template <> struct Overload<Module::TTSignalCallback> {
  static Module::TTSignalCallback Value() { return OnTTSignal; }
  static Module::TTSignalCallback &Field(Module &module) { return module.m_ttSignalCallback; }
};

template <class Callback> class TvsSignalCallback : public TvsSignal {
protected:
  static void Set(Module &module) { module.SetSignalCallback(Overload<Callback>::Value()); }
  static Callback &Field(Module &module) { return Overload<Callback>::Field(module); }
};

using Callbacks = testing::Types<Module::SignalCallback, Module::TTSignalCallback>;
TYPED_TEST_SUITE(TvsSignalCallback, Callbacks);

TYPED_TEST(TvsSignalCallback, SetsUpTheServiceAndIsStored) {
  Module module("mod");
  this->Set(module);
  EXPECT_EQ(this->Field(module), Overload<TypeParam>::Value());
  EXPECT_THAT(ServiceCalls(), ElementsAre("CreateSignalSubscriber() locked"));
  EXPECT_EQ(fake_tv_service.on_signal, Module::t_SignalCallback);
  EXPECT_EQ(Module::m_pSignalSubscriber, FakeSignalSubscriber());
  ASSERT_NE(Module::m_pSignalSubscriptions, nullptr);
  EXPECT_THAT(*Module::m_pSignalSubscriptions, IsEmpty());
  EXPECT_EQ(Module::m_pSubscriberInstances, nullptr) << "no copy yet";
  EXPECT_THAT(LockCalls(), ElementsAre("Create", "Lock", "Unlock"));
}

TYPED_TEST(TvsSignalCallback, IsLoggedAheadOfTheLock) {
  Module module("mod");
  this->Set(module);
  char text[64];
  snprintf(text, sizeof text, "16 set signal callback %p", reinterpret_cast<void *>(Overload<TypeParam>::Value()));
  EXPECT_THAT(LogMessagesWithLock(), ElementsAre(text));
}

TYPED_TEST(TvsSignalCallback, OfASecondModuleUsesWhatIsThere) {
  Module first("first");
  Module second("second");
  this->Set(first);
  const auto *subscriptions = Module::m_pSignalSubscriptions;
  this->Set(second);
  EXPECT_THAT(ServiceCalls(), SizeIs(1));
  EXPECT_EQ(Module::m_pSignalSubscriptions, subscriptions);
  EXPECT_EQ(this->Field(second), Overload<TypeParam>::Value());
}

TYPED_TEST(TvsSignalCallback, ASecondTimeAborts) {
  Module module("mod");
  this->Set(module);
  EXPECT_ASSERTION_IN("SetSignalCallback", this->Set(module), kAlreadySet);
}

TYPED_TEST(TvsSignalCallback, AbortsWhenTheServiceRefuses) {
  Module module("mod");
  fake_tv_service.answers["CreateSignalSubscriber"] = -1;
  EXPECT_ASSERTION(this->Set(module), kNotCreated);
}

TYPED_TEST(TvsSignalCallback, AbortsWhenTheServiceGivesNothing) {
  Module module("mod");
  fake_tv_service.gives_nothing = true;
  EXPECT_ASSERTION(this->Set(module), kNotCreated);
}

TEST_F(TvsSignal, AcceptsOneCallbackOfEachForm) {
  Module module = WithCallback("mod");
  module.SetSignalCallback(OnTTSignal);
  EXPECT_EQ(module.m_signalCallback, OnSignal);
  EXPECT_EQ(module.m_ttSignalCallback, OnTTSignal);
}

TEST_F(TvsSignal, KeepsTheServiceObjectAfterAReleaseAndMakesANewContainer) {
  WithCallback("first");
  Module::ReleaseAll();
  ClearServiceCalls();
  WithCallback("second");
  EXPECT_THAT(ServiceCalls(), IsEmpty());
  EXPECT_NE(Module::m_pSignalSubscriptions, nullptr);
}

// --- Subscribing ---

TEST_F(TvsSignal, AsksTheServiceForTheFirstSubscriptionOfAKey) {
  Module module = WithCallback("mod");
  ClearLog();
  ClearLockCalls();
  ClearServiceCalls();
  EXPECT_TRUE(module.SubscribeSignal(SIGNAL_TYPE_STRENGTH, nullptr, PROFILE_PIP, 0xffff));
  EXPECT_THAT(ServiceCalls(), ElementsAre("signal.Subscribe(5, 2, 65535)")) << "the lock is not held";
  EXPECT_EQ(fake_tv_service.signal_user_data, Module::m_GetSubscriber("mod", "signal"));
  EXPECT_THAT(LockCalls(), ElementsAre("Lock", "Unlock", "Lock", "Unlock"));
  EXPECT_THAT(LogMessagesWithLock(),
              ElementsAre("16 Actual Subscription to TVS for the signal : 5 profile: 2, screenid :65535",
                          "16 Subscription Success(mod subscribed signal : 1) locked"));
}

TEST_F(TvsSignal, FilesTheModulesCopyWithItsUserData) {
  int user_data = 0;
  Module module = WithCallback("mod");
  Subscribing(module, SIGNAL_TYPE_LOCK, 0, &user_data);
  Module *copy = Module::m_GetSubscriber("mod", "signal");
  ASSERT_NE(copy, nullptr);
  EXPECT_THAT(*Module::m_pSignalSubscriptions, ElementsAre(Pair(TSignalInfo{SIGNAL_TYPE_LOCK, PROFILE_MAIN, 0}, copy)));
  EXPECT_EQ(copy->m_signalCallback, OnSignal);
  EXPECT_EQ(copy->m_GetUserDataOfSignalCallback({SIGNAL_TYPE_LOCK, PROFILE_MAIN, 0}), &user_data);
  EXPECT_THAT(module.m_signalUserData, IsEmpty()) << "the module's own object does not change";
}

TEST_F(TvsSignal, DoesNotAskTheServiceForASecondModule) {
  Module first = WithCallback("first");
  Module second = WithCallback("second");
  Subscribing(first, SIGNAL_TYPE_LOCK);
  ClearLog();
  ClearLockCalls();
  EXPECT_THAT(Subscribing(second, SIGNAL_TYPE_LOCK), IsEmpty());
  EXPECT_THAT(Subscriptions(), ElementsAre(Pair(0, "first"), Pair(0, "second")));
  EXPECT_THAT(LogMessagesWithLock(), ElementsAre("16 Subscription Success(second subscribed signal : 1) locked"));
  EXPECT_THAT(LockCalls(), ElementsAre("Lock", "Unlock"));
}

TEST_F(TvsSignal, AsksTheServiceForEachKey) {
  Module module = WithCallback("mod");
  EXPECT_THAT(Subscribing(module, 3, 1), ElementsAre("signal.Subscribe(3, 1, 1)"));
  EXPECT_THAT(Subscribing(module, 3, 0), ElementsAre("signal.Subscribe(3, 1, 0)")) << "smaller than the existing key";
  EXPECT_THAT(Subscribing(module, 4, 1), ElementsAre("signal.Subscribe(4, 1, 1)")) << "greater than the existing keys";
  ClearServiceCalls();
  module.SubscribeSignal(SIGNAL_TYPE_LOCK, nullptr, PROFILE_PIP, 1);
  EXPECT_THAT(ServiceCalls(), ElementsAre("signal.Subscribe(0, 2, 1)"));
}

TEST_F(TvsSignal, CountsEachSubscriptionOfAModule) {
  Module module = WithCallback("mod");
  Subscribing(module, SIGNAL_TYPE_LOCK);
  EXPECT_THAT(Subscribing(module, SIGNAL_TYPE_LOCK), IsEmpty());
  EXPECT_THAT(Subscriptions(), ElementsAre(Pair(0, "mod"), Pair(0, "mod")));
}

TEST_F(TvsSignal, LogsHowManyKeysTheModuleHas) {
  Module module = WithCallback("mod");
  for (const int type : {5, 5, 4}) {
    Subscribing(module, type);
  }
  EXPECT_EQ(LogCount("16 Subscription Success(mod subscribed signal : 1)"), 2);
  EXPECT_EQ(LogCount("16 Subscription Success(mod subscribed signal : 2)"), 1);
}

TEST_F(TvsSignal, KeepsTheLatestUserDataOfAKey) {
  int first = 0, second = 0;
  Module module = WithCallback("mod");
  Subscribing(module, SIGNAL_TYPE_LOCK, 0, &first);
  Subscribing(module, SIGNAL_TYPE_LOCK, 0, &second);
  Module *copy = Module::m_GetSubscriber("mod", "signal");
  EXPECT_EQ(copy->m_GetUserDataOfSignalCallback({SIGNAL_TYPE_LOCK, PROFILE_MAIN, 0}), &second);
  EXPECT_THAT(copy->m_signalUserData, SizeIs(1));
}

TEST_F(TvsSignal, IgnoresARefusalOfTheService) {
  Module module = WithCallback("mod");
  fake_tv_service.answers["signal.Subscribe"] = -1;
  Subscribing(module, SIGNAL_TYPE_LOCK);
  EXPECT_THAT(Subscriptions(), SizeIs(1));
}

TEST_F(TvsSignal, NeedsOnlyTheFiveArgumentCallback) {
  Module module("mod");
  module.SetSignalCallback(OnTTSignal);
  Subscribing(module, SIGNAL_TYPE_LOCK);
  EXPECT_THAT(Subscriptions(), SizeIs(1));
}

TEST_F(TvsSignal, SubscribingAbortsBeforeAnyCallbackIsSet) {
  EXPECT_ASSERTION(Module("mod").SubscribeSignal(SIGNAL_TYPE_LOCK, nullptr, PROFILE_MAIN, 0), kNotSet);
}

TEST_F(TvsSignal, SubscribingAbortsWhenOnlyAnotherModuleHasSetACallback) {
  WithCallback("other");
  EXPECT_ASSERTION(Module("mod").SubscribeSignal(SIGNAL_TYPE_LOCK, nullptr, PROFILE_MAIN, 0), kNotSet);
}

TEST_F(TvsSignal, SubscribingAbortsAfterARelease) {
  Module module = WithCallback("mod");
  Module::ReleaseAll();
  EXPECT_ASSERTION(module.SubscribeSignal(SIGNAL_TYPE_LOCK, nullptr, PROFILE_MAIN, 0), kNotSet);
}

// --- Unsubscribing ---

TEST_F(TvsSignal, UnsubscribingIsRefusedWhenNothingWasSetUp) {
  EXPECT_FALSE(Module("mod").UnsubscribeSignal(SIGNAL_TYPE_LOCK, PROFILE_MAIN, 0));
  EXPECT_THAT(LogMessagesWithLock(), ElementsAre("16 should be subscribeSignal before unsubscribeSignal locked"));
  EXPECT_THAT(LockCalls(), ElementsAre("Create", "Lock", "Unlock"));
  EXPECT_EQ(Module::m_pSubscriberInstances, nullptr);
}

TEST_F(TvsSignal, UnsubscribingIsRefusedAfterARelease) {
  Module module = WithCallback("mod");
  Module::ReleaseAll();
  EXPECT_FALSE(module.UnsubscribeSignal(SIGNAL_TYPE_LOCK, PROFILE_MAIN, 0));
  EXPECT_EQ(LogCount("16 should be subscribeSignal before unsubscribeSignal"), 1);
}

TEST_F(TvsSignal, UnsubscribingIsRefusedWithoutAServiceObject) {
  Module module = WithCallback("mod");
  Module::m_pSignalSubscriber = nullptr;
  EXPECT_FALSE(module.UnsubscribeSignal(SIGNAL_TYPE_LOCK, PROFILE_MAIN, 0));
  EXPECT_EQ(LogCount("16 should be subscribeSignal before unsubscribeSignal"), 1);
}

TEST_F(TvsSignal, UnsubscribingTheLastOneAsksTheService) {
  Module module = WithCallback("mod");
  Subscribing(module, SIGNAL_TYPE_STRENGTH, 7);
  ClearLog();
  ClearLockCalls();
  EXPECT_THAT(Unsubscribing(module, SIGNAL_TYPE_STRENGTH, 7), ElementsAre("signal.Unsubscribe(5, 1, 7)"));
  EXPECT_THAT(Subscriptions(), IsEmpty());
  EXPECT_THAT(LogMessagesWithLock(), ElementsAre("2 Actual Unsubscription to TVS for the signal : 5",
                                                 "2 Unsubscription Success(mod subscribed signal : 5)"));
  EXPECT_THAT(LockCalls(), ElementsAre("Lock", "Unlock")) << "the lock is not taken again";
}

TEST_F(TvsSignal, UnsubscribingOneOfTwoModulesKeepsTheService) {
  Module first = WithCallback("first");
  Module second = WithCallback("second");
  Subscribing(first, SIGNAL_TYPE_STRENGTH);
  Subscribing(second, SIGNAL_TYPE_STRENGTH);
  ClearLog();
  EXPECT_THAT(Unsubscribing(second, SIGNAL_TYPE_STRENGTH), IsEmpty());
  EXPECT_THAT(Subscriptions(), ElementsAre(Pair(5, "first")));
  EXPECT_THAT(LogMessagesWithLock(), ElementsAre("2 Unsubscription Success(second subscribed signal : 5) locked"));
  EXPECT_THAT(Unsubscribing(first, SIGNAL_TYPE_STRENGTH), ElementsAre("signal.Unsubscribe(5, 1, 0)"));
}

TEST_F(TvsSignal, UnsubscribingIsByNameNotByObject) {
  Module module = WithCallback("mod");
  Subscribing(module, SIGNAL_TYPE_LOCK);
  Module namesake("mod");
  EXPECT_THAT(Unsubscribing(namesake, SIGNAL_TYPE_LOCK), SizeIs(1));
  EXPECT_THAT(Subscriptions(), IsEmpty());
}

TEST_F(TvsSignal, UnsubscribingTakesOneSubscriptionAtATime) {
  Module module = WithCallback("mod");
  Subscribing(module, SIGNAL_TYPE_LOCK);
  Subscribing(module, SIGNAL_TYPE_LOCK);
  EXPECT_THAT(Unsubscribing(module, SIGNAL_TYPE_LOCK), IsEmpty());
  EXPECT_THAT(Subscriptions(), SizeIs(1));
  EXPECT_THAT(Unsubscribing(module, SIGNAL_TYPE_LOCK), SizeIs(1));
}

TEST_F(TvsSignal, UnsubscribingTakesTheModulesFirstOneAndLeavesOtherKeysAlone) {
  Module first = WithCallback("first");
  Module second = WithCallback("second");
  Subscribing(first, 1);
  Subscribing(first, 2);
  Subscribing(second, 1);
  Subscribing(first, 1);
  Unsubscribing(first, 1);
  EXPECT_THAT(Subscriptions(), ElementsAre(Pair(1, "second"), Pair(1, "first"), Pair(2, "first")));
}

TEST_F(TvsSignal, UnsubscribingPassesOverSubscriptionsWithoutACopy) {
  Module module = WithCallback("mod");
  Module::m_pSignalSubscriptions->emplace(TSignalInfo{SIGNAL_TYPE_LOCK, PROFILE_MAIN, 0}, nullptr);
  Subscribing(module, SIGNAL_TYPE_LOCK);
  EXPECT_THAT(Unsubscribing(module, SIGNAL_TYPE_LOCK), IsEmpty());
  EXPECT_THAT(*Module::m_pSignalSubscriptions, ElementsAre(Pair(testing::_, nullptr)));
}

TEST_F(TvsSignal, KeepsASubscriptionAtTheServiceWhileAGreaterKeyHasASubscriber) {
  Module small = WithCallback("small");
  Module great = WithCallback("great");
  Subscribing(small, 1);
  Subscribing(great, 2);
  EXPECT_THAT(Unsubscribing(small, 1), IsEmpty());
  EXPECT_THAT(Subscriptions(), ElementsAre(Pair(2, "great")));
  EXPECT_THAT(Unsubscribing(great, 2), ElementsAre("signal.Unsubscribe(2, 1, 0)"))
      << "the smaller key is never unsubscribed";
}

TEST_F(TvsSignal, AsksTheServiceToUnsubscribeTheGreatestKeyThoughSmallerOnesRemain) {
  Module module = WithCallback("mod");
  Subscribing(module, 1);
  Subscribing(module, 2);
  EXPECT_THAT(Unsubscribing(module, 2), ElementsAre("signal.Unsubscribe(2, 1, 0)"));
}

TEST_F(TvsSignal, AsksTheServiceToUnsubscribeWhatNobodyHas) {
  Module module = WithCallback("mod");
  EXPECT_THAT(Unsubscribing(module, 3), ElementsAre("signal.Unsubscribe(3, 1, 0)"));
  EXPECT_NE(Module::m_GetSubscriber("mod", "signal"), nullptr) << "the module has a copy now";
  Subscribing(module, 4);
  EXPECT_THAT(Unsubscribing(module, 3), IsEmpty()) << "a greater key has a subscriber";
}

TEST_F(TvsSignal, IgnoresARefusalToUnsubscribe) {
  Module module = WithCallback("mod");
  fake_tv_service.answers["signal.Unsubscribe"] = -1;
  Subscribing(module, 1);
  EXPECT_THAT(Unsubscribing(module, 1), SizeIs(1));
  EXPECT_THAT(Subscriptions(), IsEmpty());
}

TEST_F(TvsSignal, LeavesTheUserDataBehind) {
  int user_data = 0;
  Module module = WithCallback("mod");
  Subscribing(module, 1, 0, &user_data);
  Unsubscribing(module, 1);
  Module *copy = Module::m_GetSubscriber("mod", "signal");
  EXPECT_EQ(copy->m_GetUserDataOfSignalCallback({static_cast<ESignalType>(1), PROFILE_MAIN, 0}), &user_data);
}

TEST_F(TvsSignal, UnsubscribingAbortsWithoutACopy) {
  Module module = WithCallback("mod");
  Module("other").m_GetCopiedSubscriptionInstance("signal");
  (*Module::m_pSubscriberInstances)["mod_signal"] = nullptr;
  EXPECT_ASSERTION(module.UnsubscribeSignal(SIGNAL_TYPE_LOCK, PROFILE_MAIN, 0), kNoCopy);
}

// --- User data ---

TEST_F(TvsSignal, ReportsMissingUserData) {
  Module module("mod");
  EXPECT_EQ(module.m_GetUserDataOfSignalCallback({SIGNAL_TYPE_STRENGTH, PROFILE_PIP, 3}), nullptr);
  EXPECT_THAT(LogMessages(), ElementsAre("16 user data is not set for the signal : 5,profile:2, screen 3"));
  EXPECT_THAT(LogFunctions(), ElementsAre("m_GetUserDataOfSignalCallback"));
  EXPECT_THAT(LockCalls(), IsEmpty());
}

TEST_F(TvsSignal, FindsUserDataThatIsNull) {
  Module module("mod");
  module.m_signalUserData[{SIGNAL_TYPE_STRENGTH, PROFILE_PIP, 3}] = nullptr;
  EXPECT_EQ(module.m_GetUserDataOfSignalCallback({SIGNAL_TYPE_STRENGTH, PROFILE_PIP, 3}), nullptr);
  EXPECT_THAT(LogMessages(), IsEmpty());
}

// --- What happens in the middle of a subscription ---

TEST_F(TvsSignal, LetsANotificationThroughWhileTheServiceIsAsked) {
  Module module = WithCallback("mod");
  int answer = -1;
  const auto notify = [&answer] {
    std::thread([&answer] {
      answer = fake_tv_service.on_signal(SIGNAL_TYPE_LOCK, PROFILE_MAIN, 0, {}, nullptr);
    }).join();
  };
  for (const char *call : {"signal.Subscribe", "signal.Unsubscribe"}) {
    answer = -1;
    fake_tv_service.during[call] = notify;
    if (std::string(call) == "signal.Subscribe") {
      Subscribing(module, SIGNAL_TYPE_LOCK);
    } else {
      Unsubscribing(module, SIGNAL_TYPE_LOCK);
    }
    EXPECT_EQ(answer, 1);
  }
}

TEST_F(TvsSignal, ForgetsASubscriptionWhenAllIsReleasedMeanwhile) {
  Module module = WithCallback("mod");
  ClearLog();
  fake_tv_service.during["signal.Subscribe"] = Module::ReleaseAll;
  Subscribing(module, SIGNAL_TYPE_LOCK);
  EXPECT_EQ(Module::m_pSignalSubscriptions, nullptr);
  EXPECT_EQ(Module::m_pSubscriberInstances, nullptr);
  EXPECT_THAT(LogMessages(), ElementsAre("16 Actual Subscription to TVS for the signal : 0 profile: 1, screenid :0",
                                         "2 Release All TVS subscriptions !!"));
}

TEST_F(TvsSignal, ForgetsASubscriptionWhenAllIsReleasedAndSetUpAgainMeanwhile) {
  Module module = WithCallback("mod");
  Module next("next");
  fake_tv_service.during["signal.Subscribe"] = [&next] {
    fake_tv_service.during.clear();
    Module::ReleaseAll();
    next.SetSignalCallback(OnSignal);
    next.SubscribeSignal(SIGNAL_TYPE_LOCK, nullptr, PROFILE_MAIN, 0);
  };
  Subscribing(module, SIGNAL_TYPE_LOCK);
  EXPECT_THAT(Subscriptions(), ElementsAre(Pair(0, "next")));
}

TEST_F(TvsSignal, MayBeReleasedWhileTheServiceUnsubscribes) {
  Module module = WithCallback("mod");
  Subscribing(module, SIGNAL_TYPE_LOCK);
  fake_tv_service.during["signal.Unsubscribe"] = [] {
    fake_tv_service.during.clear();
    Module::ReleaseAll();
  };
  Unsubscribing(module, SIGNAL_TYPE_LOCK);
  EXPECT_EQ(LogCount("2 Unsubscription Success(mod subscribed signal : 0)"), 1);
}

// --- Short memory ---

TEST_F(TvsSignal, SettingACallbackFailsWholeWhenMemoryIsShort) {
  Module module(kLongName);
  ThrowAtEachAllocation([&] { module.SetSignalCallback(OnSignal); },
                        [&] {
                          EXPECT_EQ(module.m_signalCallback, nullptr);
                          EXPECT_EQ(Module::m_pSignalSubscriptions, nullptr);
                        });
  EXPECT_THAT(ServiceCalls(), ElementsAre("CreateSignalSubscriber() locked"));
}

TEST_F(TvsSignal, SubscribingFailsBeforeTheServiceIsAskedWhenMemoryIsShort) {
  Module module(kLongName);
  module.SetSignalCallback(OnSignal);
  ClearServiceCalls();
  ThrowAtEachAllocation([&] { module.SubscribeSignal(SIGNAL_TYPE_LOCK, nullptr, PROFILE_MAIN, 0); },
                        [&] {
                          EXPECT_THAT(ServiceCalls(), IsEmpty());
                          EXPECT_THAT(*Module::m_pSignalSubscriptions, IsEmpty());
                          const Module *copy = Module::m_GetSubscriber(kLongName, "signal");
                          EXPECT_TRUE(!copy || copy->m_signalUserData.empty());
                        });
  EXPECT_THAT(Subscriptions(), SizeIs(1));
  EXPECT_THAT(ServiceCalls(), SizeIs(1));
}

TEST_F(TvsSignal, UnsubscribingFailsWholeWhenMemoryIsShort) {
  Module module(kLongName);
  module.SetSignalCallback(OnSignal);
  Subscribing(module, SIGNAL_TYPE_LOCK);
  ClearServiceCalls();
  ThrowAtEachAllocation([&] { module.UnsubscribeSignal(SIGNAL_TYPE_LOCK, PROFILE_MAIN, 0); },
                        [&] {
                          EXPECT_THAT(Subscriptions(), SizeIs(1));
                          EXPECT_THAT(ServiceCalls(), IsEmpty());
                        });
  EXPECT_THAT(Subscriptions(), IsEmpty());
}

} // namespace
