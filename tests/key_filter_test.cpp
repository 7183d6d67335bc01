// The filters in front of the handlers: each decision, for given times and flags, and its log lines.
#include "key_filter.h"

#include <gmock/gmock.h>

#include "fake_dlog.h"

using lumio::KeyFilterState;
using testing::AllOf;
using testing::Each;
using testing::ElementsAre;
using testing::Field;
using testing::IsEmpty;
using testing::Not;

namespace {

constexpr char kSkipped[] = "16 skip _key_cb ..";
constexpr char kAging[] = "16 do not process the key in aging mode..";
constexpr char kUnreadable[] = "16 vconf_get_int fail..";
constexpr char kInitTimestamp[] = "16 init timestamp";
constexpr char kResetThreshold[] = "16 reset threshold";
constexpr char kIgnored[] = "16 key ignored..";
constexpr char kNotIgnored[] = "16 do not ignore key..";
constexpr char kReleaseIgnored[] = "2 key released ignored";

constexpr double kPowerOn = 5;    // the X server's clock at the first press, in seconds
constexpr double kStart = 1000;   // the Ecore clock then
constexpr double kMargin = 0.25;  // seconds that a press may be older than its arrival suggests
constexpr bool kAnnounced = true; // an event of its device came before it

} // namespace

class KeyFilter : public testing::Test {
protected:
  static std::vector<std::string> TakeLog() {
    std::vector<std::string> messages = LogMessages();
    ClearLog();
    return messages;
  }

  // Decides about a press that was made `made` seconds after the first one and arrives `arrives` seconds after it.
  bool AcceptPressAt(double made, double arrives, bool announced = false) {
    return lumio::_accept_press(&state, announced, kPowerOn + made, kStart + arrives);
  }

  // Accepts a press and records that it was handled at once.
  void HandlePressAt(double made, double arrives) {
    EXPECT_TRUE(AcceptPressAt(made, arrives));
    lumio::_note_handled(&state, LUMIO_KEVENT_PRESS, kStart + arrives);
    ClearLog();
  }

  KeyFilterState state{};
};

// --- The burst limit -------------------------------------------------------------------------------------------------

class Burst : public KeyFilter {};

TEST_F(Burst, SwallowsAPressFromTheThirdKeyOn) {
  EXPECT_FALSE(lumio::_is_burst(true, 0, true));
  EXPECT_FALSE(lumio::_is_burst(true, 1, true));
  EXPECT_THAT(TakeLog(), IsEmpty());
  EXPECT_TRUE(lumio::_is_burst(true, 2, true));
  EXPECT_TRUE(lumio::_is_burst(true, 1000, true));
  EXPECT_THAT(TakeLog(), ElementsAre(kSkipped, kSkipped));
}

TEST_F(Burst, NeverSwallowsARelease) {
  EXPECT_FALSE(lumio::_is_burst(true, 2, false));
  EXPECT_THAT(TakeLog(), IsEmpty());
}

TEST_F(Burst, NeedsABusyLoop) {
  EXPECT_FALSE(lumio::_is_burst(false, 2, true));
  EXPECT_THAT(TakeLog(), IsEmpty());
}

// --- Aging mode ------------------------------------------------------------------------------------------------------

class Aging : public KeyFilter {};

TEST_F(Aging, IsTheValueOneOnly) {
  EXPECT_TRUE(lumio::_is_aging(0, 1));
  EXPECT_THAT(TakeLog(), ElementsAre(kAging));
  EXPECT_FALSE(lumio::_is_aging(0, 0));
  EXPECT_FALSE(lumio::_is_aging(0, 2));
  EXPECT_FALSE(lumio::_is_aging(0, -1));
  EXPECT_THAT(TakeLog(), IsEmpty());
}

TEST_F(Aging, IsNotAssumedWhenTheStoreCannotBeRead) {
  EXPECT_FALSE(lumio::_is_aging(-1, 1));
  EXPECT_FALSE(lumio::_is_aging(1, 1));
  EXPECT_THAT(TakeLog(), ElementsAre(kUnreadable, kUnreadable));
}

// --- Presses that are too old ----------------------------------------------------------------------------------------

class Staleness : public KeyFilter {};

TEST_F(Staleness, TheFirstPressSetsBothClocks) {
  EXPECT_TRUE(AcceptPressAt(0, 0));
  EXPECT_THAT(TakeLog(),
              ElementsAre("2 key timestamp = 5.000000", "2 timestamp_init = 0.000000, app_cb_time_init = 0.000000",
                          "2 cur = 1000.000000", kInitTimestamp));
  EXPECT_EQ(state.timestamp_init, kPowerOn);
  EXPECT_EQ(state.app_cb_time_init, kStart);
  EXPECT_EQ(state.ignore_threshold, 0);
}

TEST_F(Staleness, ALaterPressSetsTheThreshold) {
  HandlePressAt(0, 0);
  EXPECT_TRUE(AcceptPressAt(2.25, 2.25));
  EXPECT_THAT(TakeLog(),
              ElementsAre("2 key timestamp = 7.250000", "2 timestamp_init = 5.000000, app_cb_time_init = 1000.000000",
                          "2 cur = 1002.250000", kResetThreshold));
  EXPECT_EQ(state.ignore_threshold, 2.25 - kMargin);
}

TEST_F(Staleness, APressAtTheThresholdIsAccepted) {
  HandlePressAt(0, 0);
  EXPECT_TRUE(AcceptPressAt(2, 2 + kMargin));
  EXPECT_EQ(LogCount(kNotIgnored), 0);
}

TEST_F(Staleness, APressBelowTheThresholdThatFollowsAPressIsDropped) {
  HandlePressAt(0, 0);
  EXPECT_FALSE(AcceptPressAt(1.999, 2 + kMargin));
  EXPECT_THAT(TakeLog(),
              ElementsAre("2 key timestamp = 6.999000", "2 timestamp_init = 5.000000, app_cb_time_init = 1000.000000",
                          "2 cur = 1002.250000", kResetThreshold,
                          "16 key ignored. dblKeyTimeStamp[6.999000], timestamp_init[5.000000], "
                          "ignore_threshold[2.000000]",
                          "16 timestamp_last_handled_key_down[1000.000000], "
                          "timestamp_last_handled_key_up[0.000000], current time[1002.250000]"));
}

// After a release the age is compared with the time since the last press.
TEST_F(Staleness, APressBelowTheThresholdThatFollowsAReleaseIsDroppedOnlyIfItIsOlderThanTheLastPress) {
  HandlePressAt(0, 0);
  lumio::_note_handled(&state, LUMIO_KEVENT_PRESS, kStart + 8);
  lumio::_note_handled(&state, LUMIO_KEVENT_RELEASE, kStart + 8);
  EXPECT_FALSE(AcceptPressAt(1.999, 10));
  EXPECT_EQ(TakeLog().back(), kIgnored);
  EXPECT_TRUE(AcceptPressAt(2, 10));
  EXPECT_EQ(TakeLog().back(), kNotIgnored);
}

TEST_F(Staleness, TheThresholdStaysWhilePressesAreDropped) {
  HandlePressAt(0, 0);
  EXPECT_FALSE(AcceptPressAt(1, 2 + kMargin));
  EXPECT_FALSE(AcceptPressAt(1.999, 100));
  EXPECT_EQ(LogCount(kResetThreshold), 1);
  HandlePressAt(2, 100);
  EXPECT_FALSE(AcceptPressAt(2, 100)); // computed again after a press that was handled
  EXPECT_EQ(LogCount(kResetThreshold), 1);
}

// A time that differs from zero by less than 10 microseconds counts as not set.
struct ClockZero {
  const char *name;
  double timestamp_init;
  double app_cb_time_init;
  bool set;

  friend void PrintTo(const ClockZero &zero, std::ostream *out) { *out << zero.name; }
};

class StalenessNearZero : public Staleness, public testing::WithParamInterface<ClockZero> {};

TEST_P(StalenessNearZero, TellsWhetherTheClocksAreSet) {
  state.timestamp_init = GetParam().timestamp_init;
  state.app_cb_time_init = GetParam().app_cb_time_init;
  AcceptPressAt(0, 0);
  EXPECT_EQ(LogCount(kInitTimestamp), GetParam().set ? 0 : 1);
  EXPECT_EQ(LogCount(kResetThreshold), GetParam().set ? 1 : 0);
}

INSTANTIATE_TEST_SUITE_P(Clocks, StalenessNearZero,
                         testing::Values(ClockZero{"BothZero", 0, 0, false},
                                         ClockZero{"BothBelowTheTolerance", 9e-06, -9e-06, false},
                                         ClockZero{"ServerClockAbove", 1.1e-05, 0, true},
                                         ClockZero{"ServerClockFarBelow", -1.1e-05, 0, true},
                                         ClockZero{"EcoreClockAbove", 0, 1.1e-05, true},
                                         ClockZero{"EcoreClockFarBelow", 0, -1.1e-05, true}),
                         [](const auto &test) { return test.param.name; });

struct ThresholdZero {
  const char *name;
  double ignore_threshold;
  bool set;

  friend void PrintTo(const ThresholdZero &zero, std::ostream *out) { *out << zero.name; }
};

class ThresholdNearZero : public Staleness, public testing::WithParamInterface<ThresholdZero> {};

TEST_P(ThresholdNearZero, TellsWhetherItIsSet) {
  HandlePressAt(0, 0);
  state.ignore_threshold = GetParam().ignore_threshold;
  AcceptPressAt(10, 10);
  EXPECT_EQ(LogCount(kResetThreshold), GetParam().set ? 0 : 1);
  if (GetParam().set) {
    EXPECT_EQ(state.ignore_threshold, GetParam().ignore_threshold);
  } else {
    EXPECT_EQ(state.ignore_threshold, 10 - kMargin);
  }
}

INSTANTIATE_TEST_SUITE_P(Thresholds, ThresholdNearZero,
                         testing::Values(ThresholdZero{"Zero", 0, false}, ThresholdZero{"Above", 9e-06, false},
                                         ThresholdZero{"Below", -9e-06, false},
                                         ThresholdZero{"FarAbove", 1.1e-05, true},
                                         ThresholdZero{"FarBelow", -1.1e-05, true}),
                         [](const auto &test) { return test.param.name; });

TEST_F(Staleness, APressWhoseDeviceAnnouncedItIsNotExamined) {
  HandlePressAt(0, 0);
  const KeyFilterState before = state;
  EXPECT_TRUE(AcceptPressAt(0, 10, kAnnounced));
  EXPECT_THAT(TakeLog(), IsEmpty());
  EXPECT_EQ(state.timestamp_init, before.timestamp_init);
  EXPECT_EQ(state.ignore_threshold, before.ignore_threshold);
}

// --- Releases --------------------------------------------------------------------------------------------------------

class AcceptRelease : public KeyFilter {
protected:
  bool AcceptOf(const char *key_name) const { return lumio::_accept_release(state, key_name); }
};

TEST_F(AcceptRelease, AcceptsEverythingUnlessThePressWasDropped) {
  EXPECT_TRUE(AcceptOf("Return"));
  HandlePressAt(0, 0);
  EXPECT_TRUE(AcceptOf("Return"));
  EXPECT_THAT(TakeLog(), IsEmpty());
}

TEST_F(AcceptRelease, DropsTheReleaseOfADroppedPressUnlessItsNameBeginsWithX) {
  HandlePressAt(0, 0);
  EXPECT_FALSE(AcceptPressAt(0, 10));
  ClearLog();
  for (const char *dropped : {"Return", "x", "", "F86RaiseChannel"}) {
    EXPECT_FALSE(AcceptOf(dropped)) << dropped;
    EXPECT_THAT(TakeLog(), ElementsAre(kReleaseIgnored));
  }
  for (const char *accepted : {"XF86RaiseChannel", "XF86LowerChannel", "X"}) {
    EXPECT_TRUE(AcceptOf(accepted)) << accepted;
    EXPECT_THAT(TakeLog(), IsEmpty());
  }
}

TEST_F(AcceptRelease, AcceptsEverythingAgainAfterAPressThatIsAccepted) {
  HandlePressAt(0, 0);
  EXPECT_FALSE(AcceptPressAt(0, 10));
  EXPECT_TRUE(AcceptPressAt(0, 10, kAnnounced));
  EXPECT_TRUE(AcceptOf("Return"));
}

// --- The record of a handled key -------------------------------------------------------------------------------------

class Record : public KeyFilter {};

TEST_F(Record, OfAHandledPressForgetsTheThreshold) {
  state.ignore_threshold = 3;
  lumio::_note_handled(&state, LUMIO_KEVENT_PRESS, 7);
  EXPECT_EQ(state.ignore_threshold, 0);
  EXPECT_EQ(state.timestamp_last_handled_key_down, 7);
  EXPECT_EQ(state.timestamp_last_handled_key_up, 0);
  EXPECT_EQ(state.last_handled_is_down, 1);
}

TEST_F(Record, OfAHandledReleaseKeepsTheThreshold) {
  state.ignore_threshold = 3;
  state.last_handled_is_down = 1;
  lumio::_note_handled(&state, LUMIO_KEVENT_RELEASE, 7);
  EXPECT_EQ(state.ignore_threshold, 3);
  EXPECT_EQ(state.timestamp_last_handled_key_down, 0);
  EXPECT_EQ(state.timestamp_last_handled_key_up, 7);
  EXPECT_EQ(state.last_handled_is_down, 0);
}

TEST_F(Record, IsResetExceptThatAPressWasDropped) {
  state = {1, 2, 3, 4, 5, true, 1};
  lumio::_reset_key_timing(&state);
  EXPECT_EQ(state.timestamp_init, 0);
  EXPECT_EQ(state.app_cb_time_init, 0);
  EXPECT_EQ(state.ignore_threshold, 0);
  EXPECT_EQ(state.timestamp_last_handled_key_down, 0);
  EXPECT_EQ(state.timestamp_last_handled_key_up, 0);
  EXPECT_EQ(state.last_handled_is_down, 0);
  EXPECT_TRUE(state.press_ignored);
}

// --- The names in the log --------------------------------------------------------------------------------------------

TEST_F(KeyFilter, LogsInTheNameOfTheKeyCallback) {
  lumio::_is_burst(true, 2, true);
  lumio::_is_aging(-1, 0);
  lumio::_is_aging(0, 1);
  AcceptPressAt(0, 0);
  state.last_handled_is_down = 1;
  AcceptPressAt(0, 10);
  lumio::_accept_release(state, "Return");
  state.last_handled_is_down = 0;
  AcceptPressAt(0, 20);
  state.timestamp_last_handled_key_down = kStart + 20;
  AcceptPressAt(0, 20);
  EXPECT_EQ(LogMessages().back(), kNotIgnored);
  EXPECT_THAT(LogLines(), AllOf(Not(IsEmpty()), Each(AllOf(Field(&LogLine::file, "kevent.cpp"),
                                                           Field(&LogLine::function, "_key_cb")))));
}
