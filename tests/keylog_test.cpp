// What lumio-keylog makes of a log.
#include <gmock/gmock.h>

#include <algorithm>
#include <cstdio>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include <stdlib.h>
#include <unistd.h>

#include "kevent_fixture.h"
#include "program.h"
#include "temporary_directory.h"

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
const std::string kTrace = Line("Invalid event !(extension:1, evtype:2)", "_cb_event_generic");
const std::string kFlagsCleared = Line("invalidate cachelist...");

struct Output {
  std::vector<std::string> lines;  // as they are
  std::vector<std::string> keys;   // those of keys, without the columns of times
  std::vector<std::string> counts; // and notes
  int status;
};

constexpr size_t kNumber = 8, kTimes = 23, kKey = 43, kTook = 9; // columns

bool EndsWith(const std::string &line, const std::string &end) {
  return line.size() >= end.size() && line.compare(line.size() - end.size(), end.size(), end) == 0;
}

// Sorts the lines of the tool's output: keys begin with the number of a log line, an empty line comes before the
// counts.
void Sort(Output *output) {
  bool in_keys = true;
  for (const std::string &line : output->lines) {
    in_keys = in_keys && !EndsWith(line, "  keys");
    if (line.empty()) {
      in_keys = false;
    } else if (!in_keys || line.size() < kNumber + kTimes + kKey + kTook || line[kNumber - 3] < '0' ||
               line[kNumber - 3] > '9') {
      (in_keys ? output->keys : output->counts).push_back(line);
    } else {
      output->keys.push_back(line.substr(0, kNumber) + line.substr(kNumber + kTimes, kKey) + "  " +
                             line.substr(kNumber + kTimes + kKey + kTook));
    }
  }
}

bool IsHeading(const std::string &line) {
  return line.rfind("  line  clock ", 0) == 0 || line.rfind("-- process ", 0) == 0;
}

Output Run(const std::string &command) {
  FILE *pipe = popen(command.c_str(), "r");
  std::string text;
  char buffer[512];
  while (fgets(buffer, sizeof buffer, pipe)) {
    text += buffer;
  }
  Output output;
  output.status = WEXITSTATUS(pclose(pipe));
  std::istringstream lines(text);
  for (std::string line; std::getline(lines, line);) {
    output.lines.push_back(line);
  }
  Sort(&output);
  output.keys.erase(std::remove_if(output.keys.begin(), output.keys.end(), IsHeading), output.keys.end());
  return output;
}

class LogFile {
public:
  explicit LogFile(const std::string &log) : path_(directory_ / "log") { std::ofstream(path_) << log; }
  const std::string &Path() const { return path_; }

private:
  const lumio::TemporaryDirectory directory_;
  const std::string path_;
};

// Runs the tool on `log`, through a pipe.
Output Explain(const std::string &log, const std::string &arguments = "") {
  const LogFile file(log);
  return Run("cat " + file.Path() + " | " LUMIO_KEYLOG " " + arguments);
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
    {"Declined", Asked("menu", "Up", "release") + Asked("volume", "Up", "release") + kFlagsCleared,
     "     1  Up                   release unknown device  declined by all who were asked: menu, volume"},
    {"LogEndsBeforeTheAnswer", Asked("menu", "Up", "release") + Asked("volume", "Up", "release"),
     "     1  Up                   release unknown device  not known (the log ends here); asked: menu, volume"},
    {"SameDomainTwice", Asked("menu", "Up", "press") + Asked("menu", "Up", "press") + kFlagsCleared,
     "     1  Up                   press   unknown device  declined by all who were asked: menu, menu"},
    {"NobodyAskedOfAPress", kNoAgingKey + kTimed + kFlagsCleared,
     "     1  (not logged)         press   unknown device  nobody asked"},
    {"LogEndsAfterTheFilters", kNoAgingKey + kTimed,
     "     1  (not logged)         press   unknown device  not known (the log ends here)"},
    {"NobodyAskedOfAKey", kTrace + kNoAgingKey + kFlagsCleared,
     "     2  (not logged)         ?       unknown device  nobody asked"},
    {"TraceLinesLeftOutOfAKey", kNoAgingKey + kFlagsCleared,
     "     1  (not logged)         ?       unknown device  not known (the log leaves out the lines of low priority)"},
    {"DamagedWithinAKey", kTimed + "11-20 18:00:00.123 I/lumio-kevent(P 42, T 43): kevent.cpp: _key\n" + kFlagsCleared,
     "     1  (not logged)         press   unknown device  not known (lines are missing)"},
    {"DamagedAfterAnAnswer",
     Asked("menu", "Up", "press") + "kevent.cpp: \n" + Asked("list", "Up", "press") + Taken("list", "Up", "press", 1),
     "     1  Up                   press   remote control  taken by list at priority 1; declined by menu"},
    {"DamagedAmongTheAsked", Asked("menu", "Up", "press") + "kevent.cpp: \n" + kFlagsCleared,
     "     1  Up                   press   unknown device  not known (lines are missing); asked: menu"},
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
     "     1  Up                   press   remote control  taken by menu at priority 0; who was asked before is "
     "not known"},
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
                                       HasSubstr("press   unknown device  not known"), HasSubstr("dropped: burst"),
                                       HasSubstr("release unknown device  declined"),
                                       HasSubstr("release unknown device  not known")));
}

TEST(Keylog, KeepsAKeyThatNobodyWasAskedAboutApartFromAReleaseAfterIt) {
  const Output output = Explain(kTimed + Asked("menu", "Up", "release") + kFlagsCleared);
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
                          HasSubstr("taken by list at priority 0; who was asked before is not known")));
}

TEST(Keylog, TakesAHandlerThatWasAskedBeforeForANewKey) {
  const Output output = Explain(Asked("dialog", "OK", "press") + Asked("list", "Up", "press") +
                                Asked("dialog", "OK", "press") + Taken("dialog", "OK", "press", 4));
  EXPECT_THAT(
      output.keys,
      ElementsAre(
          HasSubstr("OK                   press   unknown device  not known (the log ends soon after); asked: dialog"),
          HasSubstr("not known (the log ends soon after); asked: list"), HasSubstr("taken by dialog")));
}

TEST(Keylog, ClosesAKeyWhenTheCacheFlagsAreCleared) {
  const Output output =
      Explain(Asked("menu", "Up", "press") + Asked("list", "Down", "press") + Taken("list", "Down", "press", 1) +
              kFlagsCleared + kFlagsCleared + Taken("menu", "Up", "press", 0));
  EXPECT_THAT(output.keys, ElementsAre(HasSubstr("declined by all who were asked: menu"), HasSubstr("taken by list"),
                                       HasSubstr("who was asked before is not known")));
}

TEST(Keylog, KnowsThatADroppedKeyHadNoDispatchToEnd) {
  const Output output =
      Explain(Asked("menu", "Up", "press") + Line("skip _key_cb ..") + kFlagsCleared + Taken("menu", "Up", "press", 0));
  EXPECT_THAT(output.keys, ElementsAre(HasSubstr("declined by all who were asked: menu"), HasSubstr("dropped: burst"),
                                       HasSubstr("who was asked before is not known")));
}

TEST(Keylog, TakesAPressOfABurstForAKeyOfItsOwn) {
  EXPECT_THAT(Explain(kTrace + kNoAgingKey + Line("skip _key_cb ..")).keys,
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
  for (size_t length = log.size() - 1; length > 60; length -= 9) { // as long as the library is named
    const Output output = Explain(log.substr(0, length));
    EXPECT_EQ(output.status, 0);
    EXPECT_THAT(output.keys, testing::Each(HasSubstr(length + 1 < log.size() ? "not known" : "taken")));
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
              Line("skip _key_cb ..") + Asked("list", "Up", "release") + kFlagsCleared);
  EXPECT_THAT(output.counts,
              ElementsAre("     5  keys", "     1  declined by all who were asked", "     1  dropped: burst",
                          "     3  taken", "     2  taken by list", "     1  taken by menu"));
}

TEST(Keylog, ReadsAFileOrStandardInput) {
  const std::string log = Line("skip _key_cb ..");
  const LogFile file(log);
  EXPECT_THAT(Explain(log, "-").keys, SizeIs(1));
  EXPECT_THAT(Explain("", file.Path()).keys, SizeIs(1));
}

TEST(Keylog, ExplainsItsUse) {
  const Output help = Explain("", "--help");
  EXPECT_EQ(help.status, 0);
  EXPECT_THAT(help.lines, Contains("usage: lumio-keylog [OPTION]... [FILE]"));
  EXPECT_EQ(Explain("", "--nonsense 2>&1").status, 2);
  EXPECT_EQ(Explain("", "one two 2>&1").status, 2);
}

TEST(Keylog, EscapesWhatIsNoText) {
  EXPECT_THAT(Explain(Asked("me\x1b[1mnu", "U\xff\xc3\xa4", "press") + kFlagsCleared).lines,
              Contains(AllOf(HasSubstr("  U\\xff\xc3\xa4               press "), HasSubstr("asked: me\\x1b[1mnu"))));
}

// --- Input that is no log --------------------------------------------------------------------------------------------

std::string Complaint(const Output &output) {
  EXPECT_EQ(output.status, 1);
  EXPECT_THAT(output.lines, SizeIs(1));
  return output.lines.empty() ? "" : output.lines[0];
}

TEST(Keylog, RefusesWhatIsNoLog) {
  const lumio::TemporaryDirectory directory;
  EXPECT_EQ(Complaint(Explain("", "/nowhere 2>&1")), "lumio-keylog: /nowhere: No such file or directory");
  EXPECT_EQ(Complaint(Explain("", "/tmp 2>&1")), "lumio-keylog: /tmp: is a directory");
  EXPECT_EQ(Complaint(Explain("", "2>&1")), "lumio-keylog: standard input: contains no line of liblumio-kevent");
  EXPECT_EQ(Complaint(Explain("a letter\n", "2>&1")),
            "lumio-keylog: standard input: contains no line of liblumio-kevent");
  EXPECT_EQ(Complaint(Explain(std::string("\x7f"
                                          "ELF\0\0\1",
                                          7),
                              "2>&1")),
            "lumio-keylog: standard input: is binary, not a log");
  EXPECT_EQ(Complaint(Explain("\x1f\x8b\x08", "2>&1")),
            "lumio-keylog: standard input: is compressed; use: zcat FILE | lumio-keylog");
}

TEST(Keylog, KnowsALogWithoutKeys) {
  const Output output = Explain("V lumio-kevent: lumio-banner-state.cpp: f(1) > [f:1] init\n");
  EXPECT_EQ(output.status, 0);
  EXPECT_THAT(output.lines, ElementsAre("     0  keys"));
}

TEST(Keylog, LeavesALineOutThatFitsIntoNoBuffer) {
  const Output output = Explain(kTimed + Asked(std::string(100000, 'x'), "Up", "press") + Asked("menu", "Up", "press") +
                                Taken("menu", "Up", "press", 0));
  EXPECT_THAT(output.keys, ElementsAre(HasSubstr("taken by menu at priority 0")));
  EXPECT_THAT(output.counts, Contains("note: 1 damaged line left out"));
}

// --- Times -----------------------------------------------------------------------------------------------------------

// A line of the desktop's log.
std::string At(const char *clock, const std::string &message, int process = 7) {
  return "2026-11-21 18:00:" + std::string(clock) + " " + std::to_string(process) +
         " V lumio-kevent: kevent.cpp: _key_cb(12) > [_key_cb:12] " + message + "\n";
}

// A press whose handler held the main loop for 1.2 s, one that was stale then, and two that were let through before a
// burst.
const std::string kStall = At("01.000", "key timestamp = 100.000000") + At("01.000", "cur = 200.000000") +
                           At("01.000", "[guide] Up key press handling....") +
                           At("02.200", "Up key [type: 0]  press was handled by [guide], priority[4].") +
                           At("02.201", "key timestamp = 100.100000") + At("02.201", "cur = 201.201000") +
                           At("02.201", "key ignored..") + At("09.000", "key timestamp = 108.000000") +
                           At("09.000", "cur = 208.000000") + At("09.000", "[menu] 1 key press handling....") +
                           At("09.300", "1 key [type: 0]  press was handled by [menu], priority[0].") +
                           At("09.300", "[menu] 2 key press handling....") +
                           At("09.301", "2 key [type: 0]  press was handled by [menu], priority[0].") +
                           At("09.301", "skip _key_cb ..");

TEST(Keylog, TellsWhenAndHowLong) {
  EXPECT_THAT(
      Explain(kStall).lines,
      ElementsAre(
          "  line  clock             gap  key                  kind    device           took  outcome",
          "-- process 7", //
          "     1  18:00:01.000        -  Up                   press   remote control  1.200  taken by guide at "
          "priority 4",
          "     5  18:00:02.201   +1.201  (not logged)         press   remote control      -  dropped: stale",
          "        main loop silent for 1.1 s, last asked: guide",
          "     8  18:00:09.000   +6.799  1                    press   remote control  0.300  taken by menu at "
          "priority 0",
          "    12  18:00:09.300   +0.300  2                    press   remote control  0.001  taken by menu at "
          "priority 0",
          "    14  18:00:09.301   +0.001  (not logged)         press   remote control      -  dropped: burst",
          "        main loop silent for 0.3 s, last asked: menu", //
          "", "     5  keys", "     1  dropped: burst", "     1  dropped: stale", "     3  taken",
          "     1  taken by guide", "     2  taken by menu"));
}

TEST(Keylog, SumsUp) {
  EXPECT_THAT(Explain(kStall, "--summary").lines,
              ElementsAre("     5  keys", "     1  dropped: burst", "     1  dropped: stale", "     3  taken",
                          "     1  taken by guide", "     2  taken by menu", "slowest",
                          "   1.200 s  Up press, line 1, 18:00:01.000: taken by guide at priority 4",
                          "   0.300 s  1 press, line 8, 18:00:09.000: taken by menu at priority 0",
                          "   0.001 s  2 press, line 12, 18:00:09.300: taken by menu at priority 0",
                          "longest silence while a key waited",
                          "   1.100 s  before line 5, 18:00:02.201, last asked: guide"));
}

TEST(Keylog, KnowsTheFormatsOfATelevision) {
  for (const char *prefix : {"11-20 18:00:00.123 I/lumio-kevent(P 42, T 43): ",
                             "11-20 18:00:00.123  42  43 I lumio-kevent: ", "11-20 18:00:00.123 42 I lumio-kevent: "}) {
    EXPECT_THAT(Explain(prefix + std::string("kevent.cpp: _key_cb(12) > [_key_cb:12] skip _key_cb ..\n")).lines,
                AllOf(Contains("-- process 42"), Contains(HasSubstr("18:00:00.123")),
                      Not(Contains(HasSubstr("name no process")))))
        << prefix;
  }
}

TEST(Keylog, CountsOverMidnight) {
  const std::string message = " 7 E lumio-kevent: kevent.cpp: _key_cb(12) > [_key_cb:12] skip _key_cb ..\n";
  EXPECT_THAT(Explain("2026-12-31 23:59:59.500" + message + "2027-01-01 00:00:00.250" + message).lines,
              Contains(HasSubstr("00:00:00.250   +0.750")));
}

// --- Several processes, and lines that are missing -------------------------------------------------------------------

TEST(Keylog, TellsProcessesApart) {
  const Output output = Explain(At("01.000", "[menu] Up key press handling....", 1) +
                                At("01.001", "[list] Up key press handling....", 2) +
                                At("01.002", "Up key [type: 0]  press was handled by [list], priority[1].", 2) +
                                At("01.003", "Up key [type: 0]  press was handled by [menu], priority[2].", 1));
  EXPECT_THAT(output.lines, ElementsAre(HasSubstr("clock"), "-- process 2", HasSubstr("taken by list at priority 1"),
                                        "-- process 1", HasSubstr("taken by menu at priority 2"), "", "     2  keys",
                                        "     2  taken", "     1  taken by list", "     1  taken by menu"));
}

TEST(Keylog, SaysWhatTheLogLeavesOut) {
  const std::string message = "kevent.cpp: _key_cb(12) > [_key_cb:12] ";
  EXPECT_THAT(Explain(message + "[menu] Up key press handling....\n").counts,
              Contains("note: the lines name no process; the keys of several viewers cannot be told apart"));
  EXPECT_THAT(Explain(At("01.000", "skip _key_cb ..")).counts,
              Contains("note: the log leaves out lines of low priority; who was asked is not known"));
  EXPECT_THAT(
      Explain(kTimed + Taken("menu", "Up", "press", 0) + std::string("lumio-kevent: kevent.cpp\0\0\0\n", 28)).counts,
      Contains("note: 1 damaged line left out"));
}

// --- Choosing keys ---------------------------------------------------------------------------------------------------

TEST(Keylog, ShowsTheKeysThatAreWanted) {
  EXPECT_THAT(Explain(kStall, "--dropped").keys,
              ElementsAre(HasSubstr("stale"), HasSubstr("silent"), HasSubstr("burst"), HasSubstr("silent")));
  EXPECT_THAT(Explain(kStall, "--key=Up").keys, ElementsAre(HasSubstr("taken by guide")));
  EXPECT_THAT(Explain(kStall, "--key='[12]'").keys, SizeIs(2));
  EXPECT_THAT(Explain(kStall, "--since=18:00:09.3 --key='*'").keys, SizeIs(3));
  EXPECT_THAT(Explain(kStall, "--since='2026-11-21 18:00:09'").keys, SizeIs(4));
  EXPECT_THAT(Explain(kStall, "--since='2026-11-22 00:00'").keys, IsEmpty());
  EXPECT_EQ(Explain(kStall, "--since=noon 2>&1").status, 2);
  EXPECT_EQ(Explain(kStall, "--since='2026-13-01 12:00' 2>&1").status, 2);
}

TEST(Keylog, PrintsObjects) {
  EXPECT_THAT(
      Explain(At("01.000", "[a\"b] Up key press handling....") + kStall, "--json").lines,
      AllOf(SizeIs(6),
            Contains(R"({"line":2,"time":"2026-11-21 18:00:01.000","gap":0.000,"process":7,"key":"Up","kind":"press",)"
                     R"("device":"remote control","asked":["guide"],"outcome":"taken","taken_by":"guide","priority":4,)"
                     R"("duration":1.200})"),
            Contains(HasSubstr(R"("outcome":"dropped: stale","duration":null,"silence":1.100,"last_asked":"guide"})")),
            Contains(HasSubstr(R"("asked":["a\"b"],"outcome":"not known","why":)"))));
  EXPECT_THAT(Explain(kStall, "--json --summary").lines,
              ElementsAre(AllOf(HasSubstr(R"({"keys":5,"outcomes":{"dropped: burst":1,"dropped: stale":1,"taken":3})"),
                                HasSubstr(R"("takers":{"guide":1,"menu":2},"slowest":[{"line":1,)"),
                                HasSubstr(R"("longest_silence":{"line":5,)"))));
}

// --- Following a log -------------------------------------------------------------------------------------------------

// Reads the tool's lines until one holds `text`.
std::string Await(lumio::Program &tool, const std::string &text) {
  while (const std::optional<std::string> line = tool.ReadLine(lumio::Clock::time_point::max())) {
    if (line->find(text) != std::string::npos) {
      return *line;
    }
  }
  return "the output has ended";
}

TEST(Keylog, FollowsALogThatGrows) {
  const LogFile log(At("01.000", "[menu] Up key press handling...."));
  lumio::Program tool({LUMIO_KEYLOG, "-f", log.Path()}, {});
  EXPECT_THAT(Await(tool, "Up"), HasSubstr("no answer so far: menu"));
  std::ofstream(log.Path(), std::ios::app)
      << At("04.000", "[list] Up key press handling....")
      << At("05.000", "Up key [type: 0]  press was handled by [list], priority[1].");
  EXPECT_THAT(Await(tool, "Up"), HasSubstr("4.000  taken by list at priority 1; declined by menu"));
  std::ofstream(log.Path()) << At("06.000", "skip _key_cb ..");
  EXPECT_THAT(Await(tool, "06.000"), HasSubstr("dropped: burst"));
  rename(log.Path().c_str(), (log.Path() + ".1").c_str());
  std::ofstream(log.Path()) << At("07.000", "skip _key_cb ..");
  EXPECT_THAT(Await(tool, "07.000"), HasSubstr("dropped: burst"));
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
                                      "not known (the log ends here); asked: menu"));
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
  EXPECT_THAT(TakeKeys(), ElementsAre(HasSubstr("asked: menu"), HasSubstr("asked: menu"), HasSubstr("dropped: burst")));
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
