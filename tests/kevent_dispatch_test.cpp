// One key on its way: through the filters, to the handlers, and into the records.
#include "kevent_fixture.h"

#include <optional>

using testing::AllOf;
using testing::Contains;
using testing::Each;
using testing::ElementsAre;
using testing::Field;
using testing::IsEmpty;

namespace {

constexpr char kBegin[] = "mark [lumio] begin _key_cb";
constexpr char kEnd[] = "mark [lumio] end _key_cb";
constexpr char kSkipped[] = "16 skip _key_cb ..";
constexpr char kAging[] = "16 do not process the key in aging mode..";
constexpr char kInvalidKevent[] = "16 Invalid kevent";
constexpr char kInitTimestamp[] = "16 init timestamp";
constexpr char kResetThreshold[] = "16 reset threshold";
constexpr char kIgnored[] = "16 key ignored..";
constexpr char kNotIgnored[] = "16 do not ignore key..";
constexpr char kReleaseIgnored[] = "2 key released ignored";
constexpr char kAsked[] = "2 [domain] Return key press handling....";

} // namespace

class KeyDispatch : public KeventTest {
protected:
  void SetUp() override {
    KeventTest::SetUp();
    fake_x.display = FakeDisplay();
  }

  // Sends an event of the device that makes the next press.
  static void AnnounceDevice() {
    XIEvent event{};
    SendGeneric(fake_x.opcode, 0, &event);
  }

  // Presses a key and returns whether a handler was called.
  bool IsAsked() {
    Press();
    return !TakeJournal().empty();
  }
};

// --- The burst limit -------------------------------------------------------------------------------------------------

class BurstLimit : public KeyDispatch {};

TEST_F(BurstLimit, SwallowsTheThirdPressBeforeTheLoopIsIdle) {
  Add(Open(), "handler");
  for (const char *key : {"one", "two", "three", "four"}) {
    Post(ECORE_EVENT_KEY_DOWN, key);
  }
  TurnLoop();
  EXPECT_THAT(TakeJournal(), ElementsAre(kBegin, "handler", kEnd, kBegin, "handler", kEnd));
  EXPECT_EQ(LogCount(kSkipped), 2);
  EXPECT_EQ(LogCount("2 [domain] two key press handling...."), 1);
  EXPECT_EQ(LogMessages().back(), kSkipped);
  EXPECT_EQ(passed_on, 0);
  EXPECT_EQ(fake_vconf.calls.size(), 2U); // a swallowed key does not read the store
}

TEST_F(BurstLimit, EndsEachTimeTheLoopIsIdle) {
  Add(Open(), "handler");
  for (int stretch = 0; stretch < 3; ++stretch) {
    Post(ECORE_EVENT_KEY_DOWN);
    Post(ECORE_EVENT_KEY_DOWN);
    TurnLoop();
    EXPECT_THAT(TakeJournal(), ElementsAre(kBegin, "handler", kEnd, kBegin, "handler", kEnd));
  }
  EXPECT_EQ(LogCount(kSkipped), 0);
}

TEST_F(BurstLimit, NeverSwallowsReleases) {
  Add(Open(), "handler", 3, LUMIO_KEVENT_RELEASE);
  for (int i = 0; i < 4; ++i) {
    Post(ECORE_EVENT_KEY_UP);
  }
  TurnLoop();
  EXPECT_THAT(TakeJournal(), ElementsAre("handler", kEnd, "handler", kEnd, "handler", kEnd, "handler", kEnd));
  EXPECT_EQ(LogCount(kSkipped), 0);
}

TEST_F(BurstLimit, CountsReleases) {
  Add(Open(), "handler");
  Post(ECORE_EVENT_KEY_DOWN);
  Post(ECORE_EVENT_KEY_UP);
  Post(ECORE_EVENT_KEY_DOWN);
  TurnLoop();
  EXPECT_THAT(TakeJournal(), ElementsAre(kBegin, "handler", kEnd, kEnd));
  EXPECT_EQ(LogCount(kSkipped), 1);
}

TEST_F(BurstLimit, CountsKeysThatAreRejected) {
  Add(Open(), "handler");
  CallBack(ECORE_EVENT_KEY_DOWN, ECORE_EVENT_KEY_DOWN, nullptr);
  CallBack(ECORE_EVENT_KEY_DOWN, ECORE_EVENT_KEY_DOWN, nullptr);
  EXPECT_EQ(CallBack(ECORE_EVENT_KEY_DOWN, ECORE_EVENT_KEY_DOWN, nullptr), ECORE_CALLBACK_DONE);
  EXPECT_THAT(TakeLog(), ElementsAre("16 Event information is NULL", "16 Event information is NULL", kSkipped));
}

TEST_F(BurstLimit, IsNotEndedByADomainThatOpens) {
  Add(Open(), "handler").action = [] { lumio_kevent_init("another"); };
  for (int i = 0; i < 3; ++i) {
    Post(ECORE_EVENT_KEY_DOWN);
  }
  TurnLoop();
  EXPECT_EQ(LogCount(kSkipped), 1);
}

TEST_F(BurstLimit, HoldsInAgingModeToo) {
  fake_vconf.values["db/FactoryApp/Aging"] = 1;
  Open();
  for (int i = 0; i < 3; ++i) {
    Post(ECORE_EVENT_KEY_DOWN);
  }
  TurnLoop();
  EXPECT_THAT(TakeLog(), ElementsAre(kAging, kAging, kSkipped));
  EXPECT_EQ(passed_on, 2);
}

// --- Aging mode ------------------------------------------------------------------------------------------------------

class AgingMode : public KeyDispatch {};

TEST_F(AgingMode, PassesKeysOnUntouched) {
  fake_vconf.values["db/FactoryApp/Aging"] = 1;
  lumio_kevent *kevent = Open();
  Add(kevent, "press");
  Add(kevent, "release", 3, LUMIO_KEVENT_RELEASE);
  Press();
  Release();
  EXPECT_THAT(TakeJournal(), IsEmpty());
  EXPECT_THAT(TakeLog(), ElementsAre(kAging, kAging));
  EXPECT_EQ(passed_on, 2);
  EXPECT_THAT(fake_vconf.calls, ElementsAre("get db/FactoryApp/Aging", "get db/FactoryApp/Aging"));
}

TEST_F(AgingMode, IsReadAnewForEveryKey) {
  Add(Open(), "handler");
  EXPECT_TRUE(IsAsked());
  fake_vconf.values["db/FactoryApp/Aging"] = 1;
  EXPECT_FALSE(IsAsked());
  fake_vconf.values["db/FactoryApp/Aging"] = 0;
  EXPECT_TRUE(IsAsked());
}

TEST_F(AgingMode, IsNotAssumedWhenItCannotBeRead) {
  fake_vconf.values["db/FactoryApp/Aging"] = 1;
  fake_vconf.get_fails = true;
  Add(Open(), "handler");
  EXPECT_TRUE(IsAsked());
  EXPECT_THAT(TakeLog().front(), "16 vconf_get_int fail..");
  EXPECT_EQ(passed_on, 0);
}

TEST_F(AgingMode, IsNotAssumedWhenItWasNeverSet) {
  fake_vconf.values.clear();
  Add(Open(), "handler");
  EXPECT_TRUE(IsAsked());
  EXPECT_EQ(LogCount("16 vconf_get_int fail.."), 1);
}

// --- Events that are no keys -----------------------------------------------------------------------------------------

class OddEvent : public KeyDispatch {};

TEST_F(OddEvent, WithoutInformationIsPassedOn) {
  Open();
  EXPECT_EQ(CallBack(ECORE_EVENT_KEY_UP, ECORE_EVENT_KEY_UP, nullptr), ECORE_CALLBACK_PASS_ON);
  EXPECT_THAT(TakeLog(), ElementsAre("16 Event information is NULL"));
  EXPECT_THAT(TakeJournal(), IsEmpty());
}

TEST_F(OddEvent, OfAnotherTypeIsPassedOn) {
  Open();
  Ecore_Event_Key key{};
  EXPECT_EQ(CallBack(ECORE_EVENT_KEY_DOWN, ECORE_EVENT_MOUSE_MOVE, &key), ECORE_CALLBACK_PASS_ON);
  EXPECT_THAT(TakeLog(), ElementsAre("16 Invalid event type"));
  EXPECT_EQ(CallBack(ECORE_EVENT_KEY_DOWN, ECORE_EVENT_MOUSE_MOVE, nullptr), ECORE_CALLBACK_PASS_ON);
  EXPECT_THAT(TakeLog(), ElementsAre("16 Event information is NULL"));
  EXPECT_THAT(TakeJournal(), IsEmpty());
}

TEST_F(OddEvent, WithoutANameIsDispatchedLikeAnyKey) {
  lumio_kevent *kevent = Open();
  Add(kevent, "press");
  Add(kevent, "release", 3, LUMIO_KEVENT_RELEASE).result = 0;
  Press(nullptr);
  EXPECT_EQ(LogMessages().back(), "2 [domain]  key press handling....");
  Release(nullptr);
  EXPECT_EQ(LogMessages().back(), "16  key [type: 0]  release was handled by [domain], priority[3].");
  EXPECT_THAT(TakeJournal(), ElementsAre(kBegin, "press", kEnd, "release", kEnd));
}

// --- The walk over the handlers --------------------------------------------------------------------------------------

class Walk : public KeyDispatch {};

TEST_F(Walk, AsksWithTheDomainTheTypeTheEventAndTheData) {
  lumio_kevent *one = Open("one");
  lumio_kevent *two = Open("two");
  Probe &press = Add(two, "press");
  Probe &release = Add(one, "release", 3, LUMIO_KEVENT_RELEASE);
  Ecore_Event_Key key{};
  key.keyname = "XF86Menu";
  CallBack(ECORE_EVENT_KEY_DOWN, ECORE_EVENT_KEY_DOWN, &key);
  EXPECT_EQ(press.kevent, two);
  EXPECT_EQ(press.type, LUMIO_KEVENT_PRESS);
  EXPECT_EQ(press.event_info, &key);
  CallBack(ECORE_EVENT_KEY_UP, ECORE_EVENT_KEY_UP, &key);
  EXPECT_EQ(release.kevent, one);
  EXPECT_EQ(release.type, LUMIO_KEVENT_RELEASE);
  EXPECT_EQ(release.event_info, &key);
}

TEST_F(Walk, GoesOnWhileHandlersDecline) {
  lumio_kevent *kevent = Open();
  Add(kevent, "a", 0).result = 1;
  Add(kevent, "b", 0).result = -1;
  Add(kevent, "c", 5).result = 256;
  Add(kevent, "d", 6).result = 2;
  Press();
  EXPECT_THAT(TakeJournal(), ElementsAre(kBegin, "a", "b", "c", "d", kEnd));
  EXPECT_EQ(LogMessages().back(), kAsked);
  EXPECT_EQ(passed_on, 0); // finished although nobody consumed it
}

TEST_F(Walk, EndsWhenAHandlerConsumesTheKey) {
  lumio_kevent *kevent = Open();
  Add(kevent, "declines", 0);
  Add(kevent, "consumes", 4).result = 0;
  Add(kevent, "same list", 4);
  Add(kevent, "later list", 5);
  Press();
  EXPECT_THAT(TakeJournal(), ElementsAre(kBegin, "declines", "consumes", kEnd));
  EXPECT_EQ(LogMessages().back(), "16 Return key [type: 0]  press was handled by [domain], priority[4].");
  EXPECT_EQ(passed_on, 0);
}

TEST_F(Walk, LogsEachHandlerBeforeItIsAsked) {
  lumio_kevent *menu = Open("menu");
  lumio_kevent *volume = Open("volume");
  std::vector<std::string> logged;
  Add(menu, "declines", 1, LUMIO_KEVENT_RELEASE);
  Probe &consumes = Add(volume, "consumes", 2, LUMIO_KEVENT_RELEASE);
  consumes.result = 0;
  consumes.action = [&] { logged = TakeLog(); };
  Release("XF86AudioMute");
  EXPECT_THAT(logged, ElementsAre("2 [menu] XF86AudioMute key release handling....",
                                  "2 [volume] XF86AudioMute key release handling...."));
  EXPECT_THAT(TakeLog(), ElementsAre("16 XF86AudioMute key [type: 0]  release was handled by [volume], priority[2]."));
}

TEST_F(Walk, AsksForTheOneTypeOnly) {
  lumio_kevent *kevent = Open();
  Add(kevent, "press", 3, LUMIO_KEVENT_PRESS);
  Add(kevent, "release", 3, LUMIO_KEVENT_RELEASE);
  Press();
  EXPECT_THAT(TakeJournal(), ElementsAre(kBegin, "press", kEnd));
  Release();
  EXPECT_THAT(TakeJournal(), ElementsAre("release", kEnd));
}

TEST_F(Walk, WithoutHandlersStillHandlesTheKey) {
  Open();
  Press();
  EXPECT_THAT(TakeJournal(), ElementsAre(kBegin, kEnd));
  Press();
  EXPECT_EQ(LogCount(kResetThreshold), 1); // the first one was noted
  EXPECT_EQ(passed_on, 0);
}

// --- Re-entrance -----------------------------------------------------------------------------------------------------

class Reentrance : public KeyDispatch {
protected:
  // EFL complains about a message that a nested loop handles again.
  void SetUp() override {
    KeyDispatch::SetUp();
    HushEfl({"eo", "ecore"});
  }
};

TEST_F(Reentrance, AHandlerMayFinaliseItsOwnDomainAndConsumeTheKey) {
  lumio_kevent *kevent = Open("gone");
  Probe &closer = Add(kevent, "closer");
  closer.result = 0;
  closer.action = [&] { lumio_kevent_fini(kevent); };
  Press();
  EXPECT_EQ(LogMessages().back(), "16 Return key [type: 0]  press was handled by [gone], priority[3].");
  TakeJournal();
  Press();
  EXPECT_THAT(TakeJournal(), ElementsAre(kBegin, kEnd));
}

TEST_F(Reentrance, AHandlerMayFinaliseEveryDomain) {
  std::vector<lumio_kevent *> domains = {Open("a"), Open("b"), Open("c")};
  for (lumio_kevent *kevent : domains) {
    Add(kevent, "handler").action = [&] {
      for (lumio_kevent *other : domains) {
        lumio_kevent_fini(other);
      }
    };
  }
  Press();
  EXPECT_THAT(TakeJournal(), ElementsAre(kBegin, "handler", "handler", "handler", kEnd));
  EXPECT_EQ(LogCount("16 Cannot find give handle"), 0);
  Press();
  EXPECT_THAT(TakeJournal(), ElementsAre(kBegin, kEnd));
}

TEST_F(Reentrance, AHandlerMayDispatchTheNextKeyInANestedLoop) {
  lumio_kevent *kevent = Open();
  Probe &outer = Add(kevent, "outer", 0);
  outer.action = [&] {
    outer.action = nullptr;
    TurnLoop();
    Note("nested loop ended");
  };
  Add(kevent, "inner", 1);
  Post(ECORE_EVENT_KEY_DOWN, "first");
  Post(ECORE_EVENT_KEY_DOWN, "second");
  TurnLoop();
  EXPECT_THAT(TakeJournal(),
              ElementsAre(kBegin, "outer", kBegin, "outer", "inner", kEnd, "nested loop ended", "inner", kEnd));
  EXPECT_EQ(LogMessages().back(), "2 [domain] first key press handling....");
}

// The nested loop goes idle, which restarts the count of the burst limit.
TEST_F(Reentrance, ANestedLoopEndsTheBurst) {
  Probe &outer = Add(Open(), "outer");
  outer.action = [] { TurnLoop(); };
  for (const char *key : {"one", "two", "three", "four"}) {
    Post(ECORE_EVENT_KEY_DOWN, key);
  }
  TurnLoop();
  EXPECT_EQ(LogCount(kSkipped), 0);
  EXPECT_EQ(LogCount("2 [domain] four key press handling...."), 1);
}

// The outer dispatch still walks over everything that the inner one deletes.
TEST_F(Reentrance, NothingIsReleasedBeforeTheOutermostDispatchEnds) {
  lumio_kevent *kevent = Open();
  lumio_kevent *closed = Open("closed");
  Probe &outer = Add(kevent, "outer", 0);
  Probe &deleted = Add(kevent, "deleted", 1);
  Add(closed, "closed", 2);
  Probe &inner = Add(kevent, "inner", 0, LUMIO_KEVENT_RELEASE);
  inner.action = [&] {
    lumio_kevent_handler_del(outer.handle);
    lumio_kevent_handler_del(deleted.handle);
    lumio_kevent_fini(closed);
  };
  outer.action = [&] {
    TurnLoop();
    ClearLog();
    lumio_kevent_handler_del(deleted.handle);
    lumio_kevent_fini(closed);
    EXPECT_THAT(TakeLog(), IsEmpty());
  };
  Post(ECORE_EVENT_KEY_DOWN);
  Post(ECORE_EVENT_KEY_UP);
  TurnLoop();
  EXPECT_THAT(TakeJournal(), ElementsAre(kBegin, "outer", "inner", kEnd, "closed", kEnd));
  ClearLog();
  lumio_kevent_handler_del(outer.handle);
  lumio_kevent_handler_del(deleted.handle);
  lumio_kevent_fini(closed);
  EXPECT_THAT(TakeLog(), ElementsAre(kInvalidKevent, kInvalidKevent, "16 Cannot find give handle"));
}

TEST_F(Reentrance, WhatWasMarkedOnceIsNotCollectedTwice) {
  lumio_kevent *kevent = Open();
  Probe &once = Add(kevent, "once");
  Add(kevent, "always");
  once.action = [&] { lumio_kevent_handler_del(once.handle); };
  Press();
  TakeJournal();
  for (int i = 0; i < 3; ++i) {
    Press();
    EXPECT_THAT(TakeJournal(), ElementsAre(kBegin, "always", kEnd));
  }
  EXPECT_EQ(LogCount(kInvalidKevent), 0);
}

// --- The names in the log --------------------------------------------------------------------------------------------

class LogName : public KeyDispatch {};

TEST_F(LogName, OfWhatHappensToAKeyIsThatOfTheKeyCallback) {
  bool flag = true;
  std::vector<bool *> list = {&flag};
  lumio_kevent_cache_list_set(&list);
  fake_vconf.values.clear(); // without the key the set is not aging
  Probe &probe = Add(Open(), "handler");
  probe.result = 0;
  probe.action = [] { fake_clock.now = kStart + 8; };
  IgnoreAPress(); // after a press whose handler takes 8 s
  Release();
  Release("X");
  Press("Return", kPowerOn + 9000);
  Press("Return", kPowerOn + 10000);
  EXPECT_THAT(LogMessages(), AllOf(Contains(kInitTimestamp), Contains(kResetThreshold), Contains(kAsked),
                                   Contains(kReleaseIgnored), Contains(kIgnored), Contains(kNotIgnored),
                                   Contains("16 invalidate cachelist..."), Contains("16 vconf_get_int fail..")));
  EXPECT_THAT(LogLines(), Each(AllOf(Field(&LogLine::file, "kevent.cpp"), Field(&LogLine::function, "_key_cb"))));
}

// --- The staleness filter --------------------------------------------------------------------------------------------

class Staleness : public KeyDispatch {
protected:
  void SetUp() override {
    KeyDispatch::SetUp();
    domain = Open();
    handler = &Add(domain, "handler");
  }

  // A press `age` milliseconds after the first one on the server's clock, `elapsed` seconds after it on Ecore's.
  // Returns whether the handler received it.
  bool PressAt(int age, double elapsed) {
    fake_clock.now = start + elapsed;
    ClearLog();
    journal.clear();
    passed_on = 0;
    Press("Return", kPowerOn + age);
    const bool handed = testing::Matches(Contains("handler"))(TakeJournal());
    EXPECT_EQ(passed_on, handed ? 0 : 1);
    return handed;
  }

  lumio_kevent *domain = nullptr;
  Probe *handler = nullptr;
  double start = kStart;
};

TEST_F(Staleness, TakesTheFirstPressForTheBeginning) {
  EXPECT_TRUE(PressAt(0, 0));
  EXPECT_THAT(TakeLog(),
              ElementsAre("2 key timestamp = 5.000000", "2 timestamp_init = 0.000000, app_cb_time_init = 0.000000",
                          "2 cur = 1000.000000", kInitTimestamp, kAsked));
}

TEST_F(Staleness, ComparesLaterPressesWithTheFirst) {
  PressAt(0, 0);
  EXPECT_TRUE(PressAt(2250, 2.25));
  EXPECT_THAT(TakeLog(),
              ElementsAre("2 key timestamp = 7.250000", "2 timestamp_init = 5.000000, app_cb_time_init = 1000.000000",
                          "2 cur = 1002.250000", kResetThreshold, kAsked));
}

TEST_F(Staleness, DropsAPressBelowTheThresholdThatFollowsAPress) {
  PressAt(0, 0);
  EXPECT_FALSE(PressAt(1999, 2.25));
  EXPECT_THAT(TakeLog(),
              ElementsAre("2 key timestamp = 6.999000", "2 timestamp_init = 5.000000, app_cb_time_init = 1000.000000",
                          "2 cur = 1002.250000", kResetThreshold,
                          "16 key ignored. dblKeyTimeStamp[6.999000], timestamp_init[5.000000], "
                          "ignore_threshold[2.000000]",
                          "16 timestamp_last_handled_key_down[1000.000000], "
                          "timestamp_last_handled_key_up[0.000000], current time[1002.250000]"));
}

TEST_F(Staleness, EmitsNoEndMarkForADroppedPress) {
  PressAt(0, 0);
  fake_clock.now = kStart + 10;
  Press();
  EXPECT_THAT(TakeJournal(), ElementsAre(kBegin));
}

TEST_F(Staleness, KeepsTheThresholdWhilePressesAreDropped) {
  PressAt(0, 0);
  EXPECT_FALSE(PressAt(1000, 2.25));
  EXPECT_FALSE(PressAt(1999, 100));
  EXPECT_EQ(LogCount(kResetThreshold), 0);
  EXPECT_TRUE(PressAt(2000, 100));
  EXPECT_FALSE(PressAt(2000, 100)); // computed again after a press that was handled
  EXPECT_EQ(LogCount(kResetThreshold), 1);
}

TEST_F(Staleness, ShowsWhenKeysWereLastHandled) {
  PressAt(0, 0);
  fake_clock.now = kStart + 3;
  Release();
  handler->action = [] { fake_clock.now = kStart + 7; }; // the time that the handler takes counts
  PressAt(10000, 5);
  PressAt(20, 20);
  EXPECT_EQ(LogMessages().back(), "16 timestamp_last_handled_key_down[1007.000000], "
                                  "timestamp_last_handled_key_up[1003.000000], current time[1020.000000]");
}

TEST_F(Staleness, NotesTheTimeAfterAReleaseWasHandled) {
  PressAt(0, 0);
  Add(domain, "slow release", 3, LUMIO_KEVENT_RELEASE).action = [] { fake_clock.now = kStart + 4; };
  Release();
  PressAt(10000, 5);
  PressAt(20, 20);
  EXPECT_EQ(LogMessages().back(), "16 timestamp_last_handled_key_down[1005.000000], "
                                  "timestamp_last_handled_key_up[1004.000000], current time[1020.000000]");
}

// After a release, the filter compares a press below the threshold with the time since the last press.
TEST_F(Staleness, DropsAPressAfterAReleaseThatIsOlderThanTheLastPress) {
  PressAt(0, 0);
  Release();
  EXPECT_FALSE(PressAt(1000, 10));
  EXPECT_THAT(TakeLog(),
              ElementsAre("2 key timestamp = 6.000000", "2 timestamp_init = 5.000000, app_cb_time_init = 1000.000000",
                          "2 cur = 1010.000000", kResetThreshold, kIgnored));
}

class AfterASlowPress : public Staleness {
protected:
  // The handler takes 8 s for the first press.
  void SetUp() override {
    Staleness::SetUp();
    handler->action = [] { fake_clock.now = kStart + 8; };
    PressAt(0, 0);
    handler->action = nullptr;
    Release();
  }
};

TEST_F(AfterASlowPress, AcceptsAPressAsOldAsTheTimeSinceThatPress) {
  EXPECT_TRUE(PressAt(2000, 10));
  EXPECT_THAT(TakeLog(),
              ElementsAre("2 key timestamp = 7.000000", "2 timestamp_init = 5.000000, app_cb_time_init = 1000.000000",
                          "2 cur = 1010.000000", kResetThreshold, kNotIgnored, kAsked));
}

TEST_F(AfterASlowPress, DropsAYoungerOne) {
  EXPECT_FALSE(PressAt(1999, 10));
  EXPECT_EQ(LogMessages().back(), kIgnored);
}

// --- A press that its device announced -------------------------------------------------------------------------------

class AnnouncedPress : public Staleness {};

TEST_F(AnnouncedPress, IsNotExamined) {
  PressAt(0, 0);
  AnnounceDevice();
  EXPECT_TRUE(PressAt(0, 10));
  EXPECT_THAT(TakeLog(), ElementsAre(kAsked));
}

TEST_F(AnnouncedPress, ExemptsNoFurtherPress) {
  PressAt(0, 0);
  AnnounceDevice();
  PressAt(0, 10);
  EXPECT_FALSE(PressAt(0, 10));
}

TEST_F(AnnouncedPress, IsNotedLikeAnyOther) {
  PressAt(0, 0);
  EXPECT_FALSE(PressAt(0, 10)); // leaves a threshold behind
  Release("X");
  AnnounceDevice();
  PressAt(0, 12);
  PressAt(0, 20);
  EXPECT_EQ(LogCount(kResetThreshold), 1);
  EXPECT_EQ(LogMessages().back(), "16 timestamp_last_handled_key_down[1012.000000], "
                                  "timestamp_last_handled_key_up[1010.000000], current time[1020.000000]");
}

TEST_F(AnnouncedPress, MayBeTheFirst) {
  AnnounceDevice();
  PressAt(0, 0);
  EXPECT_THAT(TakeLog(), ElementsAre(kAsked));
  PressAt(0, 10);
  EXPECT_EQ(LogCount(kInitTimestamp), 1);
}

TEST_F(AnnouncedPress, IsForgottenWithTheNextRelease) {
  PressAt(0, 0);
  AnnounceDevice();
  Release();
  EXPECT_FALSE(PressAt(0, 10));
}

TEST_F(AnnouncedPress, IsStillExpectedAfterAKeyInAgingMode) {
  PressAt(0, 0);
  AnnounceDevice();
  fake_vconf.values["db/FactoryApp/Aging"] = 1;
  EXPECT_FALSE(PressAt(0, 0));
  fake_vconf.values["db/FactoryApp/Aging"] = 0;
  EXPECT_TRUE(PressAt(0, 10));
}

// --- Opening a domain resets the filter ------------------------------------------------------------------------------

class OpeningADomain : public Staleness {};

TEST_F(OpeningADomain, ForgetsTheFirstPress) {
  PressAt(0, 0);
  Open();
  EXPECT_TRUE(PressAt(0, 10));
  EXPECT_THAT(TakeLog(),
              ElementsAre("2 key timestamp = 5.000000", "2 timestamp_init = 0.000000, app_cb_time_init = 0.000000",
                          "2 cur = 1010.000000", kInitTimestamp, kAsked));
}

TEST_F(OpeningADomain, ForgetsTheThreshold) {
  PressAt(0, 0);
  EXPECT_FALSE(PressAt(0, 10));
  Open();
  EXPECT_TRUE(PressAt(0, 10));
  EXPECT_EQ(LogCount(kNotIgnored), 0);
}

TEST_F(OpeningADomain, ForgetsTheLastRelease) {
  PressAt(0, 0);
  Release();
  Open();
  PressAt(0, 0);
  PressAt(0, 10);
  EXPECT_EQ(LogMessages().back(), "16 timestamp_last_handled_key_down[1000.000000], "
                                  "timestamp_last_handled_key_up[0.000000], current time[1010.000000]");
}

// A second press, inside the handler of the first one, shows that nothing is left of the keys before the reset.
TEST_F(OpeningADomain, ForgetsTheLastPressAndThatItWasAPress) {
  fake_clock.now = kStart + 9;
  Press();
  Open();
  handler->action = [&] {
    handler->action = nullptr;
    fake_clock.now = kStart + 20;
    Ecore_Event_Key key{};
    key.keyname = "Return";
    key.timestamp = kPowerOn + 15000;
    ClearLog();
    CallBack(ECORE_EVENT_KEY_DOWN, ECORE_EVENT_KEY_DOWN, &key);
  };
  fake_clock.now = kStart;
  Press();
  EXPECT_EQ(LogMessages().back(), kIgnored); // as if the last press had been at 0, so 15 s are too few
}

// --- After a press was dropped ---------------------------------------------------------------------------------------

class AfterADroppedPress : public KeyDispatch {
protected:
  void SetUp() override {
    KeyDispatch::SetUp();
    domain = Open();
    press = &Add(domain, "press");
    release = &Add(domain, "release", 3, LUMIO_KEVENT_RELEASE);
    IgnoreAPress();
    journal.clear();
    ClearLog();
    passed_on = 0;
  }

  // Sends a press that is not too old.
  static void PressFreshly() { Press("Return", kPowerOn + 1000000); }

  lumio_kevent *domain = nullptr;
  Probe *press = nullptr;
  Probe *release = nullptr;
};

TEST_F(AfterADroppedPress, DropsItsRelease) {
  Release();
  EXPECT_THAT(TakeJournal(), IsEmpty());
  EXPECT_THAT(TakeLog(), ElementsAre(kReleaseIgnored));
  EXPECT_EQ(passed_on, 1);
}

TEST_F(AfterADroppedPress, DropsEveryReleaseUntilTheNextPress) {
  Release();
  Release();
  EXPECT_THAT(TakeLog(), ElementsAre(kReleaseIgnored, kReleaseIgnored));
  PressFreshly();
  TakeJournal();
  Release();
  EXPECT_THAT(TakeJournal(), ElementsAre("release", kEnd));
}

TEST_F(AfterADroppedPress, DoesNotNoteADroppedRelease) {
  fake_clock.now = kStart + 11;
  Release();
  Press("Return", kPowerOn + 1000);
  EXPECT_EQ(LogMessages().back(), "16 timestamp_last_handled_key_down[1000.000000], "
                                  "timestamp_last_handled_key_up[0.000000], current time[1011.000000]");
}

TEST_F(AfterADroppedPress, DispatchesTheReleaseOfAPressThatTheDeviceAnnounced) {
  AnnounceDevice();
  Press("Return", kPowerOn + 1000);
  TakeJournal();
  Release();
  EXPECT_THAT(TakeJournal(), ElementsAre("release", kEnd));
}

struct ReleasedKey {
  const char *keyname;
  bool dispatched;

  friend void PrintTo(const ReleasedKey &key, std::ostream *out) { *out << (key.keyname ? key.keyname : "nothing"); }
};

class ReleaseAfterADroppedPress : public AfterADroppedPress, public testing::WithParamInterface<ReleasedKey> {};

TEST_P(ReleaseAfterADroppedPress, IsDispatchedIfItsNameBeginsWithX) {
  Release(GetParam().keyname);
  if (GetParam().dispatched) {
    EXPECT_THAT(TakeJournal(), ElementsAre("release", kEnd));
    EXPECT_EQ(LogCount(kReleaseIgnored), 0);
  } else {
    EXPECT_THAT(TakeJournal(), IsEmpty());
    EXPECT_EQ(LogCount(kReleaseIgnored), 1);
  }
}

INSTANTIATE_TEST_SUITE_P(Keys, ReleaseAfterADroppedPress,
                         testing::Values(ReleasedKey{"XF86RaiseChannel", true}, ReleasedKey{"XF86LowerChannel", true},
                                         ReleasedKey{"X", true}, ReleasedKey{"x", false}, ReleasedKey{"", false},
                                         ReleasedKey{nullptr, false}, ReleasedKey{"F86RaiseChannel", false}));

// The dispatch of the dropped press never ends: from now on, deletions mark and release nothing.
TEST_F(AfterADroppedPress, ADeletedHandlerIsMarkedForGood) {
  lumio_kevent_handler_del(press->handle);
  lumio_kevent_handler_del(press->handle);
  PressFreshly();
  EXPECT_THAT(TakeJournal(), ElementsAre(kBegin, kEnd));
  lumio_kevent_handler_del(press->handle);
  EXPECT_EQ(LogCount(kInvalidKevent), 0);
}

TEST_F(AfterADroppedPress, AClosedDomainKeepsReceivingKeys) {
  lumio_kevent_fini(domain);
  lumio_kevent_fini(domain);
  PressFreshly();
  EXPECT_THAT(TakeJournal(), ElementsAre(kBegin, "press", kEnd));
  lumio_kevent_fini(domain);
  Add(domain, "added");
  Press("Return", kPowerOn + 1000000);
  EXPECT_THAT(TakeJournal(), ElementsAre(kBegin, "press", "added", kEnd));
  EXPECT_EQ(LogCount("16 Cannot find give handle"), 0);
  EXPECT_EQ(LogCount(kInvalidKevent), 0);
}

TEST_F(AfterADroppedPress, OpeningADomainEndsNothing) {
  lumio_kevent *opened = Open("new");
  Add(opened, "new");
  PressFreshly();
  EXPECT_THAT(TakeJournal(), ElementsAre(kBegin, "press", "new", kEnd));
  lumio_kevent_fini(opened);
  PressFreshly();
  EXPECT_THAT(TakeJournal(), ElementsAre(kBegin, "press", "new", kEnd));
}

TEST_F(AfterADroppedPress, OpeningADomainDoesNotSaveItsRelease) {
  Open("new");
  Release();
  EXPECT_THAT(TakeLog(), ElementsAre(kReleaseIgnored));
}

TEST_F(AfterADroppedPress, ForeignHandlesAreStillRefused) {
  lumio_kevent_fini(Forbidden<lumio_kevent>()); // silently, as during any dispatch
  EXPECT_THAT(TakeLog(), IsEmpty());
  lumio_kevent_handler_del(Forbidden<lumio_kevent_handler>());
  EXPECT_THAT(TakeLog(), ElementsAre(kInvalidKevent));
}
