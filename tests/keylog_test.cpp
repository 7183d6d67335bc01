// What lumio-keylog makes of a log.
#include <gmock/gmock.h>

#include <cstdio>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include <stdlib.h>
#include <unistd.h>

#include "kevent_fixture.h"

using testing::AllOf;
using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;

namespace {

// A line of the library as a television's log viewer shows it.
std::string Line(const std::string &message, const std::string &function = "_key_cb") {
  return "11-20 18:00:00.123 I/lumio-kevent(P 42, T 43): kevent.cpp: " + function + "(12) > [" + function + ":12] " +
         message + "\n";
}

std::string Asked(const std::string &domain, const std::string &key, const std::string &kind) {
  return Line("[" + domain + "] " + key + " key " + kind + " handling....");
}

std::string Taken(const std::string &domain, const std::string &key, const std::string &kind, int priority,
                  int source_type = 0) {
  return Line(key + " key [type: " + std::to_string(source_type) + "]  " + kind + " was handled by [" + domain +
              "], priority[" + std::to_string(priority) + "].");
}

const std::string kNoAgingKey = Line("vconf_get_int fail..");
const std::string kTimed = Line("key timestamp = 1.000000") +
                           Line("timestamp_init = 1.000000, app_cb_time_init = 9.000000") + Line("cur = 10.000000");
const std::string kStale =
    Line("key ignored. dblKeyTimeStamp[1.000000], timestamp_init[1.000000], ignore_threshold[2.000000]") +
    Line("timestamp_last_handled_key_down[9.000000], timestamp_last_handled_key_up[0.000000], current time[10.000000]");
const std::string kFlagsCleared = Line("invalidate cachelist...");

struct Output {
  std::vector<std::string> keys;
  std::vector<std::string> counts;
  int status;
};

// Runs the tool on `log`, through a pipe.
Output Explain(const std::string &log, const std::string &arguments = "") {
  char name[] = "/tmp/lumio-keylog-XXXXXX";
  close(mkstemp(name));
  std::ofstream(name) << log;
  FILE *pipe = popen(("cat " + std::string(name) + " | " + LUMIO_KEYLOG + " " + arguments).c_str(), "r");
  std::string text;
  char buffer[512];
  while (fgets(buffer, sizeof buffer, pipe)) {
    text += buffer;
  }
  Output output;
  output.status = WEXITSTATUS(pclose(pipe));
  unlink(name);
  std::istringstream lines(text);
  std::vector<std::string> *part = &output.keys;
  for (std::string line; std::getline(lines, line);) {
    if (line.empty()) {
      part = &output.counts;
    } else {
      part->push_back(line);
    }
  }
  return output;
}

TEST(Keylog, TellsWhoTookAKeyAndWhoDeclinedIt) {
  const Output output = Explain(kNoAgingKey + kTimed + Asked("menu", "Up", "press") + Asked("volume", "Up", "press") +
                                Taken("volume", "Up", "press", 2, 1));
  EXPECT_THAT(output.keys, ElementsAre("     1  Up                   press   panel keys      "
                                       "taken by volume at priority 2; declined by menu"));
  EXPECT_THAT(output.counts, ElementsAre("     1  keys", "     1  taken", "     1  taken by volume"));
  EXPECT_EQ(output.status, 0);
}

struct Story {
  const char *what;
  std::string log;
  const char *expected;
};

void PrintTo(const Story &story, std::ostream *out) { *out << story.what; }

class KeylogStory : public testing::TestWithParam<Story> {};

TEST_P(KeylogStory, IsOneLine) { EXPECT_THAT(Explain(GetParam().log).keys, ElementsAre(GetParam().expected)); }

const Story kStories[] = {
    {"Sole", Asked("menu", "Up", "press") + Taken("menu", "Up", "press", 0, 2),
     "     1  Up                   press   touch remote    taken by menu at priority 0"},
    {"Osd", Asked("menu", "Up", "release") + Taken("menu", "Up", "release", 6, 3),
     "     1  Up                   release function-osd    taken by menu at priority 6"},
    {"OtherDevice", Asked("menu", "Up", "press") + Taken("menu", "Up", "press", 0, 4),
     "     1  Up                   press   other device    taken by menu at priority 0"},
    {"Declined", Asked("menu", "Up", "release") + Asked("volume", "Up", "release"),
     "     1  Up                   release unknown device  declined by all who were asked: menu, volume"},
    {"SameDomainTwice", Asked("menu", "Up", "press") + Asked("menu", "Up", "press"),
     "     1  Up                   press   unknown device  declined by all who were asked: menu, menu"},
    {"NobodyAskedOfAPress", kNoAgingKey + kTimed, "     1  (not logged)         press   unknown device  nobody asked"},
    {"NobodyAskedOfAKey", kNoAgingKey, "     1  (not logged)         ?       unknown device  nobody asked"},
    {"Burst", Line("skip _key_cb .."), "     1  (not logged)         press   unknown device  dropped: burst"},
    {"Aging", Line("do not process the key in aging mode.."),
     "     1  (not logged)         ?       unknown device  passed on: factory aging mode"},
    {"Uninitialised", kNoAgingKey + Line("manager is not initialized"),
     "     1  (not logged)         ?       unknown device  passed on: manager not initialised"},
    {"NoEvent", kNoAgingKey + Line("Event information is NULL"),
     "     1  (not logged)         ?       unknown device  passed on: no event"},
    {"NoKey", kNoAgingKey + Line("Invalid event type", "_get_type_info"),
     "     1  (not logged)         ?       unknown device  passed on: not a key event"},
    {"StaleAfterAPress", kNoAgingKey + kTimed + Line("reset threshold") + kStale,
     "     1  (not logged)         press   unknown device  dropped: stale"},
    {"StaleAfterARelease", kTimed + Line("key ignored.."),
     "     1  (not logged)         press   unknown device  dropped: stale"},
    {"OldButAccepted",
     kTimed + Line("do not ignore key..") + Asked("menu", "Up", "press") + Taken("menu", "Up", "press", 0),
     "     1  Up                   press   remote control  taken by menu at priority 0"},
    {"ReleaseOfIgnored", kNoAgingKey + Line("key released ignored"),
     "     1  (not logged)         release unknown device  dropped: release after an ignored press"},
    {"TraceLinesLeftOut", kNoAgingKey + Taken("menu", "Up", "press", 0),
     "     1  Up                   press   remote control  taken by menu at priority 0; the log does not tell who was "
     "asked before"},
    {"OddNames", Asked("a] b key [type: 1]", "XF86Key", "press") + Taken("a] b key [type: 1]", "XF86Key", "press", 5),
     "     1  XF86Key              press   remote control  taken by a] b key [type: 1] at priority 5"},
    {"LinesOfOthersBetween",
     "a line of somebody else\n" + Asked("menu", "Up", "press") +
         "11-20 I/lumio-kevent: lumio-banner-state.cpp: f(1) > [f:1] manager is not initialized\n" +
         Line("manager is not initialized", "lumio_kevent_fini") + Line("manager is not initialized", "_gc") + "\n" +
         Taken("menu", "Up", "press", 0),
     "     2  Up                   press   remote control  taken by menu at priority 0"},
};

INSTANTIATE_TEST_SUITE_P(Keylog, KeylogStory, testing::ValuesIn(kStories),
                         [](const auto &story) { return story.param.what; });

TEST(Keylog, BeginsAKeyWithEachOfItsFirstLines) {
  const Output output = Explain(kNoAgingKey + kTimed + kNoAgingKey + kTimed + kTimed + Asked("menu", "Up", "press") +
                                Line("skip _key_cb ..") + Asked("menu", "Up", "release") + kFlagsCleared +
                                Asked("menu", "Up", "release"));
  EXPECT_THAT(output.keys, ElementsAre(HasSubstr("nobody asked"), HasSubstr("nobody asked"),
                                       HasSubstr("press   unknown device  declined"), HasSubstr("dropped: burst"),
                                       HasSubstr("release unknown device  declined"),
                                       HasSubstr("release unknown device  declined")));
}

TEST(Keylog, KeepsAKeyThatNobodyWasAskedAboutApartFromAReleaseAfterIt) {
  const Output output = Explain(kTimed + Asked("menu", "Up", "release"));
  EXPECT_THAT(output.keys, ElementsAre(HasSubstr("press   unknown device  nobody asked"),
                                       HasSubstr("release unknown device  declined")));
}

TEST(Keylog, FollowsAKeyWhoseHandlerTurnedTheMainLoop) {
  const Output output =
      Explain(kNoAgingKey + kTimed + Asked("logger", "OK", "press") + Asked("dialog", "OK", "press") + // turns the loop
              kNoAgingKey + kTimed + Asked("list", "Up", "press") + Taken("list", "Up", "press", 1) + kNoAgingKey +
              Asked("logger", "OK", "release") + kNoAgingKey + kTimed +
              Asked("volume", "OK", "press") + // that was of a key of its own
              kNoAgingKey +                    // nobody is asked about this one
              Taken("dialog", "OK", "press", 4));
  EXPECT_THAT(output.keys, ElementsAre(HasSubstr("taken by dialog at priority 4; declined by logger"),
                                       HasSubstr("taken by list at priority 1"),
                                       HasSubstr("release remote control  declined by all who were asked: logger"),
                                       HasSubstr("press   remote control  declined by all who were asked: volume"),
                                       HasSubstr("nobody asked")));
}

TEST(Keylog, GoesOnWithTheNextHandlerOfAWaitingKey) {
  const Output output =
      Explain(Asked("dialog", "OK", "press") + Asked("list", "Up", "press") + Asked("volume", "OK", "press") +
              Taken("list", "Up", "press", 0) + Taken("volume", "OK", "press", 4));
  EXPECT_THAT(output.keys,
              ElementsAre(HasSubstr("taken by volume at priority 4; declined by dialog"),
                          HasSubstr("declined by all who were asked: list"), // over, when the first went on
                          HasSubstr("taken by list at priority 0; the log does not tell")));
}

TEST(Keylog, TakesAHandlerThatWasAskedBeforeForANewKey) {
  const Output output = Explain(Asked("dialog", "OK", "press") + Asked("list", "Up", "press") +
                                Asked("dialog", "OK", "press") + Taken("dialog", "OK", "press", 4));
  EXPECT_THAT(
      output.keys,
      ElementsAre(HasSubstr("OK                   press   unknown device  declined by all who were asked: dialog"),
                  HasSubstr("declined by all who were asked: list"), HasSubstr("taken by dialog")));
}

TEST(Keylog, ClosesAKeyWhenTheCacheFlagsAreCleared) {
  const Output output =
      Explain(Asked("menu", "Up", "press") + Asked("list", "Down", "press") + Taken("list", "Down", "press", 1) +
              kFlagsCleared + kFlagsCleared + Taken("menu", "Up", "press", 0));
  EXPECT_THAT(output.keys, ElementsAre(HasSubstr("declined by all who were asked: menu"), HasSubstr("taken by list"),
                                       HasSubstr("does not tell who was asked before")));
}

TEST(Keylog, KnowsThatADroppedKeyHadNoDispatchToEnd) {
  const Output output =
      Explain(Asked("menu", "Up", "press") + Line("skip _key_cb ..") + kFlagsCleared + Taken("menu", "Up", "press", 0));
  EXPECT_THAT(output.keys, ElementsAre(HasSubstr("declined by all who were asked: menu"), HasSubstr("dropped: burst"),
                                       HasSubstr("does not tell who was asked before")));
}

TEST(Keylog, TakesAPressOfABurstForAKeyOfItsOwn) {
  EXPECT_THAT(Explain(kNoAgingKey + Line("skip _key_cb ..")).keys,
              ElementsAre(HasSubstr("nobody asked"), HasSubstr("dropped: burst")));
}

TEST(Keylog, GivesAKeyUpAfterManyOthers) {
  std::string others;
  for (int i = 0; i < 8; ++i) {
    others += Line("skip _key_cb ..");
  }
  const std::string beginning = Asked("menu", "Up", "press");
  const std::string end = Taken("menu", "Up", "press", 0);
  EXPECT_THAT(Explain(beginning + others + end).keys, AllOf(SizeIs(10), Contains(HasSubstr("declined by all"))));
  others.erase(0, others.find('\n') + 1);
  EXPECT_THAT(Explain(beginning + others + end).keys, AllOf(SizeIs(8), Contains(HasSubstr("taken by menu"))));
}

TEST(Keylog, KnowsTheDeviceFromTheKeysAroundIt) {
  const std::string release = Asked("menu", "Up", "release") + kFlagsCleared;
  const auto changed = [](const char *ids) { return Line(std::string("sourceid:") + ids + ","); };
  const Output output = Explain(release + Asked("menu", "Up", "press") + Taken("menu", "Up", "press", 0, 1) + release +
                                changed("12,advanceed_touch_dev_id:12,hwkeys_dev_id:9") + release +
                                changed("9,advanceed_touch_dev_id:12,hwkeys_dev_id:9") + release);
  EXPECT_THAT(output.keys, ElementsAre(HasSubstr("unknown device"), HasSubstr("panel keys"), HasSubstr("panel keys"),
                                       HasSubstr("touch remote"), HasSubstr("unknown device")));
}

TEST(Keylog, ToleratesATornEnd) {
  const std::string log = Asked("menu", "Up", "press") + Taken("menu", "Up", "press", 3);
  for (size_t length = log.size() - 1; length > 9; length -= 9) {
    const Output output = Explain(log.substr(0, length));
    EXPECT_EQ(output.status, 0);
    EXPECT_THAT(output.keys, testing::Each(HasSubstr(length + 1 < log.size() ? "declined" : "taken")));
  }
}

TEST(Keylog, ReadsLinesWithCarriageReturns) {
  std::string log = Asked("menu", "Up", "press") + Taken("menu", "Up", "press", 3);
  for (size_t at = 0; (at = log.find('\n', at)) != std::string::npos; at += 2) {
    log.insert(at, "\r");
  }
  EXPECT_THAT(Explain(log).keys, ElementsAre(HasSubstr("taken by menu at priority 3")));
}

TEST(Keylog, CountsEveryEndingAndEveryTaker) {
  const Output output =
      Explain(Asked("menu", "Up", "press") + Taken("menu", "Up", "press", 0) + Asked("list", "Up", "press") +
              Taken("list", "Up", "press", 0) + Asked("list", "Up", "press") + Taken("list", "Up", "press", 0) +
              Line("skip _key_cb ..") + Asked("list", "Up", "release"));
  EXPECT_THAT(output.counts,
              ElementsAre("     5  keys", "     1  declined by all who were asked", "     1  dropped: burst",
                          "     3  taken", "     2  taken by list", "     1  taken by menu"));
}

TEST(Keylog, ReadsAFileOrStandardInput) {
  const std::string log = Line("skip _key_cb ..");
  EXPECT_THAT(Explain(log, "-").keys, SizeIs(1));
  EXPECT_THAT(Explain(log, "/dev/null").keys, IsEmpty());
  EXPECT_THAT(Explain("").counts, ElementsAre("     0  keys"));
}

TEST(Keylog, ExplainsItsUse) {
  const Output help = Explain("", "--help");
  EXPECT_EQ(help.status, 0);
  EXPECT_THAT(help.keys, Contains("usage: lumio-keylog [FILE]"));
  EXPECT_EQ(Explain("", "--nonsense 2>&1").status, 2);
  EXPECT_EQ(Explain("", "one two 2>&1").status, 2);
  const Output absent = Explain("", "/nowhere 2>&1");
  EXPECT_EQ(absent.status, 1);
  EXPECT_THAT(absent.keys, ElementsAre("lumio-keylog: cannot read /nowhere"));
}

// What the library itself logs.
class KeylogOfTheLibrary : public KeventTest {
protected:
  // EFL finds an event that is being handled again in a nested loop, and says so.
  void SetUp() override {
    KeventTest::SetUp();
    HushEfl({"eo", "ecore"});
    menu_ = Open("menu");
    list_ = Open("list");
  }

  // The keys in what the library has logged since the last call.
  static std::vector<std::string> TakeKeys() {
    std::string log;
    for (const LogLine &line : LogLines()) {
      const std::string number = std::to_string(line.line);
      log += "V/lumio-kevent: " + line.file + ": " + line.function + "(" + number + ") > [" + line.function + ":" +
             number + "] " + line.message + "\n";
    }
    ClearLog();
    return Explain(log).keys;
  }

  lumio_kevent *menu_;
  lumio_kevent *list_;
};

TEST_F(KeylogOfTheLibrary, TellsWhoTookAKeyAndWhoDeclinedIt) {
  Add(menu_, "declines", 0);
  Add(list_, "takes", 3).result = 0;
  Add(menu_, "declines", 0, LUMIO_KEVENT_RELEASE);
  Press("Up");
  Release("Up");
  EXPECT_THAT(TakeKeys(), ElementsAre("     1  Up                   press   remote control  "
                                      "taken by list at priority 3; declined by menu",
                                      "     8  Up                   release remote control  "
                                      "declined by all who were asked: menu"));
}

TEST_F(KeylogOfTheLibrary, TellsWhyAKeyWasDropped) {
  IgnoreAPress();
  Release("Return");
  EXPECT_THAT(TakeKeys(), ElementsAre(HasSubstr("press   unknown device  nobody asked"), HasSubstr("dropped: stale"),
                                      HasSubstr("dropped: release after an ignored press")));
  Add(menu_, "asked", 0, LUMIO_KEVENT_RELEASE);
  Post(ECORE_EVENT_KEY_UP, "XF86Tools");
  Post(ECORE_EVENT_KEY_UP, "XF86Red");
  Post(ECORE_EVENT_KEY_DOWN, "XF86Red");
  TurnLoop();
  EXPECT_THAT(TakeKeys(), ElementsAre(HasSubstr("declined"), HasSubstr("declined"), HasSubstr("dropped: burst")));
}

TEST_F(KeylogOfTheLibrary, TellsWhyAKeyWasPassedOn) {
  Ecore_Event_Key key = {};
  CallBack(ECORE_EVENT_KEY_DOWN, ECORE_EVENT_KEY_DOWN, nullptr);
  CallBack(ECORE_EVENT_KEY_DOWN, ECORE_EVENT_MOUSE_MOVE, &key);
  fake_vconf.values["db/FactoryApp/Aging"] = 1;
  Press("Up");
  EXPECT_THAT(TakeKeys(), ElementsAre(HasSubstr("passed on: no event"), HasSubstr("passed on: not a key event"),
                                      HasSubstr("passed on: factory aging mode")));
}

TEST_F(KeylogOfTheLibrary, FollowsAKeyWhoseHandlerTurnedTheMainLoop) {
  fake_vconf.values.clear(); // each key begins with a complaint about the aging mode
  Probe &outer = Add(menu_, "outer", 0);
  outer.action = [&] {
    outer.action = nullptr;
    TurnLoop();
  };
  Add(list_, "inner", 1).result = 0;
  Post(ECORE_EVENT_KEY_DOWN, "first");
  Post(ECORE_EVENT_KEY_DOWN, "second");
  TurnLoop();
  EXPECT_THAT(TakeKeys(),
              ElementsAre(AllOf(HasSubstr("first"), HasSubstr("taken by list at priority 1; declined by menu")),
                          AllOf(HasSubstr("second"), HasSubstr("taken by list at priority 1; declined by menu"))));
}

TEST_F(KeylogOfTheLibrary, KnowsWhenADispatchHasEnded) {
  std::vector<bool *> flags;
  lumio_kevent_cache_list_set(&flags);
  Add(menu_, "asked", 0, LUMIO_KEVENT_RELEASE);
  Release("Up");
  Release("Up");
  EXPECT_THAT(TakeKeys(), ElementsAre(HasSubstr("asked: menu"), HasSubstr("asked: menu")));
}

TEST_F(KeylogOfTheLibrary, LeavesItsOtherMessagesOut) {
  lumio_kevent_fini(nullptr);
  lumio_kevent_handler_del(nullptr);
  lumio_cursor_show_after_movement();
  EXPECT_THAT(TakeKeys(), IsEmpty());
}

} // namespace
