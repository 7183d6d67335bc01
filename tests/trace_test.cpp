// lumio-trace on programs that use the library: what it tells of them, and that they do not notice.
#include "program.h"
#include "temporary_directory.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <csignal>
#include <cstdlib>
#include <fstream>
#include <map>
#include <optional>
#include <sstream>
#include <string>
#include <vector>

using testing::AllOf;
using testing::ContainsRegex;
using testing::Each;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::StartsWith;
using testing::UnorderedElementsAre;

namespace {

using Words = std::vector<std::string>;

const std::string kPrograms = LUMIO_TRACE_PROGRAMS;

// The suite's own time limit comes first.
lumio::Clock::time_point Never() { return lumio::Clock::now() + std::chrono::hours(1); }

std::string Contents(const std::string &file) {
  std::ostringstream text;
  text << std::ifstream(file).rdbuf();
  return text.str();
}

struct Traced {
  std::string output; // the program's own
  std::string trace;
  int status = 0;
};

std::map<std::string, std::string> Environment(const lumio::TemporaryDirectory &directory) {
  return {{"LUMIO_LOG", directory / "log"},
          {"LUMIO_VCONF_DIR", directory / "store"},
          {"DISPLAY", ""},
          {"XDG_RUNTIME_DIR", directory / ""},
          {"ASAN_OPTIONS", "detect_leaks=0"}};
}

// A program that a busy machine interrupts is no stall to tell of, unless `options` say so.
const std::string kNoStalls = "--stall=0";

Traced RunTraced(const Words &options, const Words &command, const std::map<std::string, std::string> &more = {}) {
  const lumio::TemporaryDirectory directory;
  Words words = {LUMIO_TRACE, "-o", directory / "trace", kNoStalls};
  words.insert(words.end(), options.begin(), options.end());
  words.insert(words.end(), command.begin(), command.end());
  auto environment = Environment(directory);
  for (const auto &[name, value] : more) {
    environment[name] = value;
  }
  lumio::Program program(words, environment);
  Traced traced;
  while (const auto line = program.ReadLine(Never())) {
    traced.output += *line + "\n";
  }
  traced.status = *program.Wait(Never());
  traced.trace = Contents(directory / "trace");
  return traced;
}

Traced RunModules(const std::string &scenario, const Words &options = {}) {
  return RunTraced(options, {kPrograms + "/trace-modules", scenario});
}

Words Lines(const std::string &text) {
  Words lines;
  std::istringstream stream(text);
  for (std::string line; std::getline(stream, line);) {
    lines.push_back(line);
  }
  return lines;
}

// --- What modules do -------------------------------------------------------------------------------------------------

TEST(Trace, TellsOfAKeyWhoWasAskedAndWhoTookIt) {
  const Words lines = Lines(RunModules("ask-three").trace);
  ASSERT_EQ(lines.size(), 5u) << testing::PrintToString(lines);
  EXPECT_THAT(lines[0], AllOf(HasSubstr(" press    Up   "), HasSubstr("  X 0.000")));
  EXPECT_THAT(lines[1], AllOf(HasSubstr("| "), HasSubstr(" menu "), HasSubstr(" 0  passed on "), HasSubstr("OnKey")));
  EXPECT_THAT(lines[2], AllOf(HasSubstr(" volume "), HasSubstr(" 3  passed on "), HasSubstr("OnSlowKey")));
  EXPECT_THAT(lines[3], AllOf(HasSubstr(" volume "), HasSubstr(" 4  took it "), HasSubstr("OnLastKey")));
  EXPECT_THAT(lines[4], AllOf(HasSubstr("= "), HasSubstr("taken by volume, ")));
}

TEST(Trace, NamesTheKeysOfABurstThatTheLibraryDrops) {
  const Words lines = Lines(RunModules("burst", {"--dropped"}).trace);
  ASSERT_EQ(lines.size(), 2u) << testing::PrintToString(lines);
  EXPECT_THAT(lines[0], HasSubstr(" press    3 "));
  EXPECT_THAT(lines[1], HasSubstr("dropped: burst"));
}

// The lines that tell what became of a key, with the key's name in front.
Words Endings(const std::string &trace) {
  Words endings;
  for (const std::string &line : Lines(trace)) {
    if (const size_t end = line.find(" =        "); end != std::string::npos) {
      endings.back() += line.substr(end + 10);
    } else if (line.find("| ") == std::string::npos) {
      endings.push_back(line.substr(13, 9) + line.substr(22, line.find(' ', 22) - 22) + ": ");
    }
  }
  return endings;
}

TEST(Trace, TellsWhatBecameOfEachKey) {
  EXPECT_THAT(Endings(RunModules("outcomes").trace),
              ElementsAre("press    Nobody: nobody has a handler for it", "press    Declined: taken by nobody",
                          "press    Stale: dropped: stale, it waited while the application was not ready",
                          "release  Stale: dropped: release after an ignored press",
                          "press    : passed on: the event is null", "press    Aging: passed on: factory aging mode"));
  EXPECT_THAT(
      Endings(RunModules("outcomes", {"--dropped"}).trace),
      ElementsAre(StartsWith("press    Stale: "), StartsWith("release  Stale: "), StartsWith("press    Aging: ")));
}

TEST(Trace, TellsOfEventsOfATypeThatEcoreHasGivenUp) {
  EXPECT_THAT(Endings(RunModules("old-type").trace), ElementsAre("release  Old: passed on: not a key event"));
  EXPECT_THAT(RunModules("old-type", {"--json"}).trace, HasSubstr("\"outcome\":\"no key\""));
}

TEST(Trace, SaysWhenItCannotKnowWhyAKeyWasDropped) {
  const Traced traced = RunTraced({}, {kPrograms + "/trace-silent"});
  EXPECT_THAT(Endings(traced.trace), ElementsAre("press    1: taken by nobody", "press    2: taken by nobody",
                                                 "press    3: dropped: the library did not log why"));
}

TEST(Trace, NamesTheOutcomeOfEachKeyInJson) {
  std::string outcomes;
  for (const std::string &line : Lines(RunModules("outcomes", {"--json"}).trace)) {
    const size_t at = line.find("\"outcome\":") + 10;
    outcomes += line.substr(at, line.find(',', at) - at) + " ";
  }
  EXPECT_EQ(outcomes, R"("nobody asked" "declined" "stale" "stale release" "no event" "aging" )");
}

TEST(Trace, TellsOfEachKindOfNotification) {
  const Traced traced = RunModules("tell-each");
  const Words lines = Lines(traced.trace);
  const std::string program = traced.output.substr(8, traced.output.find(',') - 8);
  const std::string session = traced.output.substr(traced.output.rfind(' ') + 1, 1);
  EXPECT_THAT(lines, UnorderedElementsAre(
                         AllOf(HasSubstr(" program  change 0, handle " + program + ", 5 "), HasSubstr("OnProgram")),
                         AllOf(HasSubstr(" pes      3 bytes "), HasSubstr("OnPes")),
                         AllOf(HasSubstr(" caption  2 bytes "), HasSubstr("OnCaption")),
                         AllOf(HasSubstr(" section  stream 17, true, 4 "), HasSubstr("OnSection")),
                         AllOf(HasSubstr(" dsm      session " + session + " "), HasSubstr("OnDsm"))));
  EXPECT_THAT(lines, Each(ContainsRegex(" each  +[0-9]+\\.[0-9]{3} ms ")));
  EXPECT_THAT(RunModules("tell-each", {"--dropped"}).trace, IsEmpty());
  const std::string json = RunModules("tell-each", {"--json"}).trace;
  EXPECT_THAT(Lines(json),
              Each(AllOf(HasSubstr("\"module\":\"each\",\"symbol\":\"On"), HasSubstr("\"callbacks\":1,"))));
  EXPECT_THAT(json, ContainsRegex("\"event\":\"pes\".*\"bytes\":3,.*\"waited_ms\":[0-9]+\\.[0-9]+,\"took_ms\":[0-9]+"));
  EXPECT_THAT(json, ContainsRegex("\"event\":\"section\".*\"waited_ms\":null,"));
}

TEST(Trace, TellsOfNotificationsThatReachNobody) {
  Words lines;
  for (const std::string &line : Lines(RunModules("tell-nobody").trace)) {
    if (line.find("MISTAKE") == std::string::npos && line.find(" = ") == std::string::npos) {
      lines.push_back(line.substr(13));
    }
  }
  EXPECT_THAT(
      lines,
      ElementsAre(ContainsRegex("^banner   4 shown by trace-modules +no callback$"),
                  ContainsRegex("^banner   4 hidden by trace-modules +no callback$"),
                  ContainsRegex("^banner   32 shown by trace-modules +refused$"),
                  ContainsRegex("^state    1 +no callback$"), ContainsRegex("^pvr      result 0 +no callback$"),
                  ContainsRegex("^signal   type 0, profile 1, screen 0: 1 2 +dropped: no module has subscribed$"),
                  ContainsRegex("^section  stream 17, true, 1 +no module has subscribed$"),
                  ContainsRegex("^dsm      session 0 +no module has attached$")));
}

TEST(Trace, FollowsASignalFromTheServiceToTheModule) {
  const Traced traced = RunModules("tell");
  const Words lines = Lines(traced.trace);
  ASSERT_EQ(lines.size(), 1u) << traced.trace;
  EXPECT_THAT(lines[0], AllOf(HasSubstr(" signal   type 0, profile 1, screen 0: 1 2 "), HasSubstr(" tuner "),
                              HasSubstr(" after "), HasSubstr("OnLastSignal")));
  EXPECT_EQ(traced.output, "own callback kept: 1\n");
}

TEST(Trace, TellsOfStatesBannersAndRecordings) {
  EXPECT_THAT(Lines(RunModules("announce").trace),
              ElementsAre(AllOf(HasSubstr(" state    1 "), HasSubstr(" light ")),
                          AllOf(HasSubstr(" banner   3 shown by trace-modules "), HasSubstr("OnBanner")),
                          AllOf(HasSubstr(" pvr      result 0 "), HasSubstr(" recorder "))));
}

// --- How long it takes -----------------------------------------------------------------------------------------------

// The clock of this program moves only when the program says so.
Traced RunWithClock(const std::string &scenario, const Words &options = {}) {
  Words all = {"--stall=100ms"};
  all.insert(all.end(), options.begin(), options.end());
  return RunTraced(all, {kPrograms + "/trace-clock", scenario});
}

TEST(Trace, MeasuresHandlersAndTheTimeBetweenKeys) {
  const Words lines = Lines(RunWithClock("ask").trace);
  ASSERT_EQ(lines.size(), 8u) << testing::PrintToString(lines);
  EXPECT_THAT(lines[0], Not(HasSubstr("+")));
  EXPECT_THAT(lines[1], HasSubstr("  passed on  12.345 ms  OnKey"));
  EXPECT_THAT(lines[2], HasSubstr("  took it     3.000 ms  AskTwo()::"));
  EXPECT_THAT(lines[3], HasSubstr("taken by guide, 15.345 ms in all"));
  EXPECT_THAT(lines[4], HasSubstr("  +0.215 s  X "));
  const Words json = Lines(RunWithClock("ask", {"--json"}).trace);
  ASSERT_EQ(json.size(), 2u) << testing::PrintToString(json);
  EXPECT_THAT(json[0], HasSubstr(",\"since_ms\":null,\"late_ms\":null,"));
  EXPECT_THAT(json[1], AllOf(HasSubstr(",\"since_ms\":215.345,\"late_ms\":null,"), HasSubstr("\"took_ms\":12.345,"),
                             HasSubstr(",\"waited_for\":\"\",\"took_ms\":15.345}")));
}

TEST(Trace, NamesALambdaAfterItsFunction) {
  EXPECT_THAT(Lines(RunWithClock("ask").trace)[2], ContainsRegex("  AskTwo\\(\\)::([{]lambda.*#1[}]|[$]_[0-9]+)$"));
}

TEST(Trace, TellsCallbacksThatKeepTheMainLoopFromOtherSilence) {
  EXPECT_THAT(RunWithClock("stall", {"--summary"}).trace,
              AllOf(HasSubstr(" STALL    OnLongKey (menu) kept the main loop for 150.000 ms\n"),
                    HasSubstr("|        150.000 ms that OnLongKey (menu) kept the main loop, 0 keys waited\n")));
  EXPECT_THAT(RunWithClock("stall", {"--summary", "--json"}).trace,
              AllOf(ContainsRegex("[{]\"event\":\"stall\",.*,\"by\":\"OnLongKey \\(menu\\)\",\"took_ms\":150.000[}]\n"),
                    HasSubstr("\"stall\":\"OnLongKey (menu)\",\"took_ms\":150.000,\"cost\":0}\n")));
  EXPECT_THAT(RunWithClock("silence").trace,
              HasSubstr(" STALL    the main loop was silent for 200.000 ms, last seen after OnSignal (tuner)\n"));
  EXPECT_THAT(RunWithClock("silence", {"--json"}).trace,
              ContainsRegex("[{]\"event\":\"silence\",.*,\"after\":\"OnSignal \\(tuner\\)\",\"took_ms\":200.000[}]\n"));
}

TEST(Trace, CountsTheCallbacksThatAreToldAtOnce) {
  const Traced text = RunModules("announce-to-two", {"--summary"});
  EXPECT_THAT(text.trace, AllOf(ContainsRegex(" state    1 .*[0-9] ms  2 callbacks\n"),
                                ContainsRegex("[|]        PVR state callback  recorder +OnPvrState\n"),
                                ContainsRegex("[|]        state callback +light +OnState\n"),
                                ContainsRegex("[|]        state callback +lamp +OnOtherState\n")));
  EXPECT_THAT(RunModules("announce-to-two", {"--summary", "--json"}).trace,
              AllOf(ContainsRegex("\"event\":\"state\",.*,\"callbacks\":2,"),
                    HasSubstr("\"PVR state callback\":\"OnPvrState\",\"module\":\"recorder\"}\n")));
}

TEST(Trace, NamesWhatKeepsTheMainLoop) {
  EXPECT_THAT(RunModules("ask-three", {"--stall=20ms"}).trace,
              HasSubstr(" STALL    OnSlowKey (volume) kept the main loop for "));
  EXPECT_THAT(RunModules("ask-three").trace, Not(HasSubstr("STALL")));
}

TEST(Trace, TellsOnlyWhatItIsAskedFor) {
  EXPECT_THAT(RunModules("tell", {"--keys"}).trace, IsEmpty());
  EXPECT_THAT(RunModules("ask-three", {"--tv"}).trace, IsEmpty());
  EXPECT_THAT(RunModules("announce", {"--tv", "--keys"}).trace, IsEmpty());
  EXPECT_THAT(RunModules("tell", {"--tv"}).trace, HasSubstr(" signal "));
  EXPECT_THAT(RunModules("tell", {"--only=volume"}).trace, IsEmpty());
  EXPECT_THAT(Lines(RunModules("ask-three", {"--only=volume"}).trace),
              ElementsAre(HasSubstr(" press    Up "), HasSubstr("| "), HasSubstr("| "), HasSubstr("| "),
                          HasSubstr("taken by volume")));
  EXPECT_THAT(RunModules("ask-three", {"--only=guide"}).trace, IsEmpty());
}

TEST(Trace, WritesJson) {
  EXPECT_THAT(Lines(RunModules("ask-three", {"--json"}).trace),
              ElementsAre(AllOf(StartsWith("{\"event\":\"key\",\"time\":"),
                                HasSubstr("\"key\":\"Up\",\"kind\":\"press\",\"device\":\"-\",\"x_ms\":0,"),
                                HasSubstr("{\"domain\":\"menu\",\"priority\":0,\"symbol\":\"OnKey\",\"took_ms\":"),
                                HasSubstr("\"outcome\":\"taken\",\"taker\":\"volume\""))));
  EXPECT_THAT(RunModules("tell", {"--json"}).trace,
              HasSubstr("\"type\":0,\"profile\":1,\"screen\":0,\"data\":[1,2],\"module\":\"tuner\","));
  EXPECT_THAT(RunModules("add-priority", {"--json"}).trace,
              AllOf(StartsWith("{\"event\":\"mistake\","), HasSubstr("\"argument\":\"priority\",\"value\":\"7\"")));
}

TEST(Trace, TellsTheStateAtTheEnd) {
  EXPECT_THAT(RunModules("ask-three", {"--summary"}).trace,
              AllOf(HasSubstr(" STATE "), HasSubstr("domain menu\n"), HasSubstr("domain volume\n"),
                    HasSubstr("0 press    menu "), HasSubstr("     1 calls, longest "),
                    HasSubstr("keys           1 taken\n")));
  EXPECT_THAT(RunModules("storm", {"--summary", "--only=nobody"}).trace,
              HasSubstr("0 on their way to the main loop, longest wait "));
}

TEST(Trace, DoesNotCountDroppedNotificationsAsOnTheirWay) {
  EXPECT_THAT(RunModules("tell-nobody", {"--summary"}).trace,
              AllOf(HasSubstr(" STATE "), Not(HasSubstr("on their way"))));
}

TEST(Trace, TellsWhatModulesLeaveBehind) {
  const std::string state = RunModules("leave", {"--summary", "--only=nobody"}).trace;
  EXPECT_THAT(state,
              AllOf(HasSubstr(" STATE    no callback is running on the main loop\n"), HasSubstr("domain menu\n"),
                    Not(HasSubstr("domain closed\n")),
                    ContainsRegex("0 press    closed +0 calls, longest 0\\.000 ms, deleted  OnKey\n"),
                    ContainsRegex("0 press    menu +0 calls, longest 0\\.000 ms  OnKey\n"),
                    HasSubstr("banners that this program has shown: 3 5\n"),
                    ContainsRegex("signal    tuner +type 0, profile 1, screen 0\n"), Not(HasSubstr("teletext"))));
  EXPECT_THAT(state,
              AllOf(ContainsRegex("PVR result callback +recorder +OnResult\n"), Not(HasSubstr("PVR state callback")),
                    ContainsRegex("state callback +light +OnState\n"), Not(HasSubstr("OnOtherState"))));
  const std::string json = RunModules("leave", {"--summary", "--json", "--only=nobody"}).trace;
  EXPECT_THAT(json, AllOf(HasSubstr("{\"event\":\"state\",\"domain\":\"menu\"}\n"),
                          HasSubstr("\"handler\":\"OnKey\",\"domain\":\"closed\",\"priority\":0,\"kind\":\"press\","
                                    "\"registered\":0,\"calls\":0,"),
                          HasSubstr("\"banners\":[3,5]}\n"),
                          HasSubstr("\"subscription\":\"signal\",\"module\":\"tuner\","
                                    "\"what\":\"type 0, profile 1, screen 0\"}\n"),
                          HasSubstr("\"PVR result callback\":\"OnResult\",\"module\":\"recorder\"}\n"),
                          HasSubstr("\"state callback\":\"OnState\",\"module\":\"light\"}\n")));
}

// A handler that does not return is what one wants to know the state of.
#ifndef __SANITIZE_THREAD__ // it holds a signal back until the program makes a system call
TEST(Trace, TellsTheStateOnASignalWhileAHandlerHangs) {
  const lumio::TemporaryDirectory directory;
  lumio::Program program({LUMIO_TRACE, "-o", "/dev/stdout", kNoStalls, kPrograms + "/trace-modules", "hang"},
                         Environment(directory));
  EXPECT_EQ(program.ReadLine(Never()), "hangs");
  program.Signal(SIGUSR1);
  EXPECT_THAT(*program.ReadLine(Never()), HasSubstr(" STATE    OnKeyThatHangs (menu) runs for "));
  EXPECT_THAT(*program.ReadLine(Never()), HasSubstr("domain menu"));
  EXPECT_THAT(*program.ReadLine(Never()), HasSubstr("2 press    menu "));
  program.WriteLine("go on");
  while (program.ReadLine(Never())) {
  }
  EXPECT_EQ(program.Wait(Never()), 0);
}
#endif

// The program prints more domains at its end than the output takes at once: the second signal comes while it prints.
#ifndef __SANITIZE_THREAD__ // as above
TEST(Trace, PutsTheStateOffWhileItPrints) {
  const lumio::TemporaryDirectory directory;
  lumio::Program program(
      {LUMIO_TRACE, "-o", "/dev/stdout", kNoStalls, "--summary", kPrograms + "/trace-modules", "many-domains"},
      Environment(directory));
  EXPECT_THAT(*program.ReadLine(Never()), HasSubstr(" STATE "));
  program.Signal(SIGUSR1);
  int states = 1;
  while (const auto line = program.ReadLine(Never())) {
    states += line->find(" STATE ") == std::string::npos ? 0 : 1;
  }
  EXPECT_EQ(program.Wait(Never()), 0);
  EXPECT_EQ(states, 2);
}
#endif

// --- Programs do not notice ------------------------------------------------------------------------------------------

TEST(Trace, LeavesTheProgramItsEnvironmentAndDescriptors) {
  const lumio::TemporaryDirectory directory;
  lumio::Program untraced({kPrograms + "/trace-modules", "environment"}, Environment(directory));
  for (const std::string &line : Lines(RunModules("environment", {"--record=" + directory / "session"}).output)) {
    EXPECT_EQ(untraced.ReadLine(Never()), line);
  }
  EXPECT_EQ(untraced.ReadLine(Never()), std::nullopt);
}

TEST(Trace, LeavesTheSignalToAProgramThatHandlesIt) {
  const Traced handler = RunModules("own-signal-handler");
  EXPECT_EQ(handler.output, "own handler\nown handler\n");
  EXPECT_EQ(handler.trace, "");
  const Traced event = RunModules("own-signal-event");
  EXPECT_EQ(event.output, "own event\n");
  EXPECT_EQ(event.trace, "");
  EXPECT_THAT(RunModules("no-signal-handler").trace, HasSubstr(" STATE "));
}

TEST(Trace, KeepsTheResultsOfTheExamples) {
  const Traced c = RunTraced({}, {kPrograms + "/trace-c"});
  EXPECT_EQ(c.output, "the handler took the key\n");
  EXPECT_THAT(c.trace, AllOf(HasSubstr(" press    Return "), HasSubstr("taken by example")));
  const Traced cpp = RunTraced({}, {kPrograms + "/trace-cpp"});
  EXPECT_EQ(cpp.output, "the module received the state\n");
  EXPECT_THAT(cpp.trace, HasSubstr(" state    1 "));
}

TEST(Trace, SeesALibraryThatAModuleBringsWithLocalNames) {
  const lumio::TemporaryDirectory directory;
  const std::string script =
      "cd " + kPrograms + " && exec " LUMIO_TRACE " -o /dev/stdout " + kNoStalls + " ./trace-dlopen";
  lumio::Program program({"/bin/sh", "-c", script}, Environment(directory));
  EXPECT_THAT(*program.ReadLine(Never()), HasSubstr(" banner   7 shown by module.so "));
  EXPECT_EQ(program.ReadLine(Never()), "the module received a change of banner 7");
  EXPECT_EQ(program.ReadLine(Never()), std::nullopt);
  EXPECT_EQ(program.Wait(Never()), 0);
}

TEST(Trace, RunsProgramsThatKnowNothingOfTheLibrary) {
  const Traced traced = RunTraced({}, {"/bin/sh", "-c", "echo here; exit 3"});
  EXPECT_EQ(traced.output, "here\n");
  EXPECT_EQ(traced.status, 3);
  EXPECT_EQ(traced.trace, "");
}

TEST(Trace, SaysWhatItCannotDo) {
  const lumio::TemporaryDirectory empty;
  EXPECT_EQ(RunTraced({}, {empty / "program"}).status, 127);
  EXPECT_EQ(RunTraced({}, {"/dev/null"}).status, 126);
  EXPECT_EQ(RunTraced({"--stall=soon"}, {"true"}).status, 2);
  EXPECT_EQ(RunTraced({}, {}).status, 2);
  EXPECT_EQ(RunTraced({"-o", empty / "folder/trace"}, {"true"}).status, 1);
  EXPECT_THAT(RunTraced({"--help"}, {}).output, StartsWith("usage: lumio-trace "));
}

// --- Record and replay -----------------------------------------------------------------------------------------------

// The text between `before` and `after`; empty when it does not contain them.
std::string Between(const std::string &text, const std::string &before, const std::string &after) {
  const size_t start = text.find(before);
  const size_t end = text.find(after, start + before.size());
  return start == std::string::npos || end == std::string::npos
             ? ""
             : text.substr(start + before.size(), end - start - before.size());
}

std::string Value(const std::string &json, const std::string &field) {
  return Between(json, "\"" + field + "\":\"", "\"");
}

// A key of the trace in the words of the viewer's journal.
std::string InWordsOfTheJournal(const std::string &json) {
  static const std::map<std::string, std::string> devices = {{"Advanced Touch REMOTE", "touch remote"},
                                                             {"HWKeys", "other device"}};
  static const std::map<std::string, std::string> outcomes = {
      {"declined", "taken by nobody"},
      {"burst", "dropped: burst"},
      {"stale", "dropped: stale"},
      {"stale release", "dropped: release after an ignored press"},
      {"aging", "passed on: factory aging mode"}};
  std::string asked;
  for (size_t at = json.find("\"domain\""); at != std::string::npos; at = json.find("\"domain\"", at + 1)) {
    asked += (asked.empty() ? "" : ", ") + Value(json.substr(at), "domain");
  }
  const std::string outcome = Value(json, "outcome");
  return Value(json, "key") + " " + Value(json, "kind") + " " + devices.at(Value(json, "device")) + " asked " +
         (asked.empty() ? "nobody" : asked) + " " +
         (outcome == "taken" ? "taken by " + Value(json, "taker") : outcomes.at(outcome));
}

// "   20:15:01.204  key     Up  press    touch remote    asked menu, volume  taken by volume  0.276 ms"
std::string InOneLine(const std::string &journal_line) {
  Words columns;
  for (size_t start = journal_line.find_first_not_of(' '); start != std::string::npos;) {
    const size_t end = journal_line.find("  ", start);
    columns.push_back(journal_line.substr(start, end - start));
    start = end == std::string::npos ? end : journal_line.find_first_not_of(' ', end);
  }
  return columns.at(2) + " " + columns.at(3) + " " + columns.at(4) + " " + columns.at(5) + " " + columns.at(6);
}

// Plays the evening and records it. Returns the keys of the viewer's journal. The transport stream is left out: what it
// carries comes from a file and not from the recording.
Words RecordEvening(const lumio::TemporaryDirectory &directory) {
  lumio::Program director({LUMIO_DIRECTOR, "--under",
                           LUMIO_TRACE " --json -o " + directory / "trace" + " --record=" + directory / "session",
                           "--scripted"},
                          {});
  Words journal;
  while (const auto line = director.ReadLine(Never())) {
    if (line->find("  key     ") != std::string::npos) {
      journal.push_back(InOneLine(*line));
    }
  }
  director.Wait(Never()); // whether the evening goes as expected is what the demo's own test checks
  return journal;
}

// Expects that the trace tells of each key what the viewer's journal tells.
void ExpectKeys(const Words &trace, const Words &journal) {
  Words traced;
  for (const std::string &line : trace) {
    EXPECT_THAT(line, Not(HasSubstr("\"mistake\"")));
    if (line.rfind("{\"event\":\"key\"", 0) == 0) {
      EXPECT_THAT(line, ContainsRegex(",\"late_ms\":[0-9]+[.][0-9]{3},\"asked\":"));
      traced.push_back(InWordsOfTheJournal(line));
    }
  }
  EXPECT_GT(traced.size(), 50u);
  ASSERT_EQ(traced.size(), journal.size());
  for (size_t i = 0; i < traced.size(); ++i) {
    EXPECT_EQ(traced[i], journal[i]) << "key " << i + 1;
  }
}

// A program that ThreadSanitizer watches cannot be replayed: the sanitizer reads the clock while it ends a thread, and
// cannot take the lock of the clock that follows the recording, because it has given up the thread's state.
#ifndef __SANITIZE_THREAD__

// A line of JSON without the numbers that say when something happened and how long it took.
std::string WithoutTimes(std::string json) {
  for (const std::string &name : {std::string("\"time\":"), std::string("_ms\":")}) {
    for (size_t at = json.find(name); at != std::string::npos; at = json.find(name, at + 1)) {
      const size_t number = at + name.size();
      json.erase(number, json.find_first_of(",}", number) - number);
    }
  }
  return json;
}

bool IsOfKind(const std::string &json, const Words &kinds) {
  return std::any_of(kinds.begin(), kinds.end(),
                     [&](const std::string &kind) { return json.rfind("{\"event\":\"" + kind + "\"", 0) == 0; });
}

// The trace without times. What is told on the threads of the services has no order among the rest: it comes behind it.
Words EventsIn(const std::string &file) {
  Words events;
  for (const std::string &line : Lines(Contents(file))) {
    events.push_back(WithoutTimes(line));
  }
  std::stable_partition(events.begin(), events.end(), [](const std::string &line) {
    return !IsOfKind(line, {"section", "dsm", "pvr"});
  });
  return events;
}

// Plays `session` to the viewer. Returns the exit status.
int Replay(const std::string &session, const Words &options) {
  Words words = {LUMIO_REPLAY};
  words.insert(words.end(), options.begin(), options.end());
  words.insert(words.end(), {session, LUMIO_VIEWER, "--studio", "--still", "--grab"});
  lumio::Program replay(words, {{"LUMIO_LOG", "none"}});
  while (replay.ReadLine(Never())) {
  }
  return *replay.Wait(Never());
}

// Returns the first lines that differ; empty if none do.
std::string Difference(Words recorded, Words replayed) {
  recorded.emplace_back("the end");
  replayed.emplace_back("the end");
  const auto [one, other] = std::mismatch(recorded.begin(), recorded.end(), replayed.begin(), replayed.end());
  return one == recorded.end() && other == replayed.end()
             ? ""
             : "recorded: " + (one == recorded.end() ? "" : *one) +
                   "\nreplayed: " + (other == replayed.end() ? "" : *other);
}

void ExpectSameDecisions(const lumio::TemporaryDirectory &directory) {
  EXPECT_EQ(Replay(directory / "session", {"--skip-waits", "--json", "-o", directory / "replayed"}), 0);
  EXPECT_EQ(Difference(EventsIn(directory / "trace"), EventsIn(directory / "replayed")), "");
}

#else

void ExpectSameDecisions(const lumio::TemporaryDirectory &) {}

#endif

TEST(Trace, RecordsASessionThatReplaysToTheSameDecisions) {
  const lumio::TemporaryDirectory directory;
  const Words journal = RecordEvening(directory);
  ExpectKeys(Lines(Contents(directory / "trace")), journal);
  EXPECT_THAT(Contents(directory / "trace"), ContainsRegex("\"outcome\":\"stale\",.*\"waited_for\":\"[^\"]"));
  for (int round = 0; round < 2; ++round) {
    ExpectSameDecisions(directory);
  }
}

#ifndef __SANITIZE_THREAD__ // as above

// The input in a recording. Leaves out its time, which begins at another moment in each session, and what the program
// did with it.
Words InputIn(const std::string &session) {
  Words input;
  for (const std::string &line : Lines(Contents(session))) {
    const std::string event = line.substr(line.find(' ') + 1);
    if (const std::string kind = event.substr(0, event.find(' ')); kind != "hold" && kind != "timer") {
      input.push_back(event);
    }
  }
  return input;
}

// Keys that come late and in bursts, banners that are shown already, a silent main loop, and a device that is plugged
// out and in.
constexpr char kSession[] = R"(lumio-record 1
0.010000 device "HWKeys"
0.100000 press "Up" "HWKeys" 0 0 12000
0.120000 banners 3
0.130000 banner 1 1
0.150000 release "Up" "HWKeys" 0 0 3000
0.200000 silence 300000
0.250000 press "Down" "HWKeys" 0 1 250100
0.501000 banner 1 1
0.300000 release "Down" "HWKeys" 0 1 201000
0.510000 press "1" "HWKeys" 0 0 1000
0.511000 banner 1 1
0.515000 press "2" "HWKeys" 1 0 2000
0.517000 banner 1 1
0.515000 press "3" "HWKeys" 1 0 3000
0.540000 release "1" "HWKeys" 0 0 1000
0.542000 release "2" "HWKeys" 0 0 1000
0.544000 release "3" "HWKeys" 0 0 1000
0.600000 unplug "HWKeys"
0.620000 plug "HWKeys"
0.640000 plug "Third Remote"
0.660000 press "c" "Third Remote" 0 0 2000
0.680000 release "c" "Third Remote" 0 0 2000
0.700000 press "c" "Other Remote" 0 0 2000
0.800000 release "c" "Other Remote" 0 0 2000
0.900000 press "q" "Other Remote" 0 0 2000
0.902000 end
0.902000 state 2
)";

TEST(Trace, RecordsOfAReplayWhatIsReplayed) {
  const lumio::TemporaryDirectory directory;
  std::ofstream(directory / "session") << kSession;
  EXPECT_EQ(Replay(directory / "session", {"--record=" + directory / "again", "-o", directory / "trace"}), 0);
  EXPECT_EQ(Difference(InputIn(directory / "session"), InputIn(directory / "again")), "");
  const std::string trace = Contents(directory / "trace");
  EXPECT_THAT(trace,
              AllOf(ContainsRegex(R"( press    Up +HWKeys +X [0-9]+\.[0-9]{3}, 12 ms late)"),
                    ContainsRegex(R"( release  Up +HWKeys +\+0\.0[0-9]{2} s  X [0-9]+\.[0-9]{3}, 3 ms late)"),
                    HasSubstr(" STALL    the main loop was silent for 300.000 ms, last seen after KeyDomain::Ask "
                              "(logger)\n"),
                    HasSubstr("; waited for what the main loop did after KeyDomain::Ask (logger)\n"),
                    ContainsRegex(" press    c +Other Remote ")));
}

// Two hours pass in a second, or in none.
TEST(Trace, ReplaysAtTheSpeedThatIsAskedFor) {
  const lumio::TemporaryDirectory directory;
  std::ofstream(directory / "session") << "lumio-record 1\n"
                                          "0.1 press \"Up\" \"HWKeys\" 0 0 1000\n"
                                          "7200.0 release \"Up\" \"HWKeys\" 0 0 1000\n"
                                          "7200.1 press \"q\" \"HWKeys\" 0 0 1000\n"; // ends the viewer
  for (const char *option : {"--speed=7200", "--skip-waits"}) {
    EXPECT_EQ(Replay(directory / "session", {option, "-o", directory / "trace"}), 0);
    EXPECT_THAT(Contents(directory / "trace"), ContainsRegex(" release  Up +HWKeys ")) << option;
  }
}

TEST(Trace, SaysWhenAProgramDoesNotFollowTheRecording) {
  const lumio::TemporaryDirectory directory;
  std::ofstream(directory / "session") << "lumio-record 1\n"
                                          "0.1 press \"q\" \"HWKeys\" 0 0 1000\n" // ends the viewer
                                          "0.2 press \"Up\" \"HWKeys\" 0 0 1000\n";
  lumio::Program replay({"/bin/sh", "-c", "exec \"$0\" \"$@\" 2>&1", LUMIO_REPLAY, "-o", directory / "trace",
                         directory / "session", LUMIO_VIEWER, "--studio", "--still", "--grab"},
                        {{"LUMIO_LOG", "none"}});
  std::string output;
  while (const auto line = replay.ReadLine(Never())) {
    output += *line + "\n";
  }
  EXPECT_EQ(replay.Wait(Never()), 1);
  EXPECT_THAT(output, HasSubstr("lumio-replay: the program does not reach an event that it reached in the recording, "
                                "before press Up\n"));
}

#endif

TEST(Trace, ReplaysRecordingsOnly) {
  const lumio::TemporaryDirectory directory;
  std::ofstream(directory / "other") << "lumio-record 99\n";
  for (const std::string &file : {directory / "other", directory / "missing"}) {
    lumio::Program replay({LUMIO_REPLAY, file, "true"}, {});
    EXPECT_EQ(replay.Wait(Never()), 1);
  }
  lumio::Program usage({LUMIO_REPLAY}, {});
  EXPECT_EQ(usage.Wait(Never()), 2);
}

// --- What modules do wrong -------------------------------------------------------------------------------------------

struct WrongUse {
  const char *scenario;
  const char *where; // the line that names function, argument, value and module
  const char *advice;
};

void PrintTo(const WrongUse &use, std::ostream *out) { *out << use.scenario; }

class TraceMistake : public testing::TestWithParam<WrongUse> {};

TEST_P(TraceMistake, IsTold) {
  const std::string trace =
      RunTraced({}, {kPrograms + "/trace-modules", GetParam().scenario}, {{"DISPLAY", ":99999"}}).trace;
  EXPECT_THAT(trace, AllOf(HasSubstr(std::string(" MISTAKE  ") + GetParam().where), HasSubstr(GetParam().advice)));
  EXPECT_THAT(trace, HasSubstr("(trace-modules)\n"));
}

constexpr WrongUse kWrongUses[] = {
    {"ecore-missing", "lumio_kevent_init, ", "Ecore is not initialised"},
    {"eina-missing", "lumio_banner_state_cb_add, ", "EFL is not initialised"},
    {"events-missing", "lumio_kevent_init, module menu, ", "Ecore's events are not initialised"},
    {"x-missing", "lumio_kevent_init, module menu, ", "X is not initialised"},
    {"domain-null", "lumio_kevent_init(domain = null), ", "a domain needs a name"},
    {"close-null", "lumio_kevent_fini(kevent = null), ", "the domain is null"},
    {"close-twice", "lumio_kevent_fini(kevent = 0x", "this is not an open domain"},
    {"add-to-closed", "lumio_kevent_handler_add(kevent = 0x", "this is not an open domain"},
    {"add-to-null", "lumio_kevent_handler_add(kevent = null), ", "the domain is null"},
    {"add-null", "lumio_kevent_handler_add(cb = null), module menu, ", "needs a callback"},
    {"add-type", "lumio_kevent_handler_add(type = 2), module menu, ", "LUMIO_KEVENT_PRESS"},
    {"add-priority", "lumio_kevent_handler_add(priority = 7), module menu, ", "use 0 (asked first) to 6"},
    {"delete-null", "lumio_kevent_handler_del(handler = null), ", "the handler is null"},
    {"delete-foreign", "lumio_kevent_handler_del(handler = 0x", "this is not a handler"},
    {"delete-twice", "lumio_kevent_handler_del(handler = 0x", "was deleted before"},
    {"cursor", "lumio_cursor_show_after_movement, ", "X is not initialised"},
    {"key-thread", "lumio_kevent_handler_add, module menu, ", "called off the main-loop thread"},
    {"banner-range", "lumio_set_banner_state(banner_id = 32), ", "use 0 to 31"},
    {"banner-state", "lumio_set_banner_state(state = 2), ", "use 0 or 1"},
    {"banner-null", "lumio_banner_state_cb_add(cb = null), ", "needs a callback"},
    {"banner-no-data", "lumio_banner_state_cb_add(data = null), ", "pass memory from malloc()"},
    {"banner-static", "lumio_banner_state_cb_add(data = 0x", "this is a static variable"},
    {"banner-stack", "lumio_banner_state_cb_add(data = 0x", "this is on the stack"},
#ifndef __SANITIZE_THREAD__ // it ends the program when the library frees the data
    {"banner-inside", "lumio_banner_state_cb_add(data = 0x", "this is not what malloc() returned"},
#endif
    {"banner-delete-null", "lumio_banner_state_cb_del(cb = null), ", "there is no such callback"},
    {"banner-delete-foreign", "lumio_banner_state_cb_del(cb = OnBanner (trace-modules)), ",
     "not registered for banner 3"},
    {"banner-thread", "lumio_set_banner_state, ", "called off the main-loop thread"},
    {"banner-no-place", "lumio_get_banner_state(state = null), ", "pass the address of an int"},
    {"signal-twice", "CTVServiceSubscriber::SetSignalCallback(cb = OnSignal (trace-modules)), module tuner, ",
     "set it once"},
    {"signal-without-callback", "CTVServiceSubscriber::SubscribeSignal, module tuner, ",
     "call SetSignalCallback() first"},
    {"signal-refused", "CTVServiceSubscriber::SubscribeSignal(type = 0), module tuner, ", "the service refused type 0"},
    {"signal-after-release", "CTVServiceSubscriber::SubscribeSignal, module tuner, ", "everything was released"},
    {"signal-kept", "CTVServiceSubscriber::UnsubscribeSignal(type = 0), module tuner, ", "the service refused to end"},
    {"signal-foreign", "CTVServiceSubscriber::UnsubscribeSignal(type = 0), module tuner, ", "has not subscribed"},
    {"signal-thread", "CTVServiceSubscriber::SubscribeSignal, module tuner, ", "called off the main-loop thread"},
    {"name-shared", "CTVServiceSubscriber::SubscribeSignal, module tuner, ",
     "OnSignal (trace-modules) of another object, and OnOtherSignal (trace-modules) is never called"},
    {"program-without-callback", "CTVServiceSubscriber::SubscribeProgram, module list, ",
     "this object has no programme callback"},
    {"program-without-any-callback", "CTVServiceSubscriber::SubscribeProgram, module list, ",
     "no module has set a programme callback"},
    {"program-of-another",
     "CTVServiceSubscriber::UnSubscribeProgram(handle = ", "this is the subscription of module guide"},
    {"program-foreign", "CTVServiceSubscriber::UnSubscribeProgram(handle = 77), module guide, ",
     "no subscription has this handle"},
    {"section-twice", "CTVServiceSubscriber::SetSectionCallback(cb = OnSection", "set it once"},
    {"section-set-null", "CTVServiceSubscriber::SetSectionCallback(cb = null), module list, ", "pass a function"},
    {"section-foreign", "CTVServiceSubscriber::UnsubscribeSection, module list, ",
     "no module has set a section callback"},
    {"section-without-callback", "CTVServiceSubscriber::SubscribeSection, module list, ",
     "call SetSectionCallback() first"},
    {"pes-refused", "CTVServiceSubscriber::SubscribePES, module meter, ", "to an earlier module"},
    {"pes-null", "CTVServiceSubscriber::SubscribePES(cb = null), module teletext, ", "without a callback"},
    {"pes-foreign", "CTVServiceSubscriber::UnsubscribePES, module teletext, ", "has not subscribed"},
    {"attach-twice", "CTVServiceSubscriber::AttachDsm, module data, ", "attaches once in its life"},
    {"attach-null", "CTVServiceSubscriber::AttachDsm(cb = null), module data, ", "pass a function"},
    {"detach-unattached", "CTVServiceSubscriber::DetachDsm, module other, ", "this module has not attached"},
    {"detach-before-attach", "CTVServiceSubscriber::DetachDsm, module data, ", "no module has attached"},
    {"dsm-before-attach", "CTVServiceSubscriber::GetDsmInstance, ", "no module has attached"},
    {"pvr-null", "CPvrServiceSubscriber::RegisterPvrCb(callback = null), module recorder, ", "needs a callback"},
    {"pvr-twice", "CPvrServiceSubscriber::RegisterPvrCb(callback = OnResult (trace-modules)), module light, ",
     "already registered by module recorder"},
    {"pvr-foreign", "CPvrServiceSubscriber::UnRegisterPvrStateCb(callback = OnPvrState", "is not registered"},
    {"pvr-inside", "CPvrServiceSubscriber::RegisterPvrStateCb, module inner, called by RegisterPvrInside",
     "holds pvrMutex"},
    {"pvr-kept", "CPvrServiceSubscriber::UnRegisterPvrCb(callback = OnResult", "the service refused"},
    {"state-null", "CLumioStateSubscriber::RegisterLumioStateChangeCb(callback = null), module light, ",
     "needs a callback"},
    {"state-foreign", "CLumioStateSubscriber::UnregisterLumioStateChangeCb(callback = OnState", "is not registered"},
    {"register-inside", "CLumioStateSubscriber::RegisterLumioStateChangeCb, module inner, called by RegisterInside",
     "holds viewerMutex"},
    {"announce-inside", "CLumioStateSubscriber::HandleStateChanged, called by AnnounceInside", "holds viewerMutex"},
    {"unload", "dlclose(handler = OnKey (libtrace-unloaded.so)), module menu, ", "delete it before"},
    {"tell-after-shutdown", "CTVServiceSubscriber::t_SignalCallback, called by ",
     "the service sent a notification while Ecore is not initialised"},
    {"shutdown-subscribed", "ecore_shutdown(signal = type 0, profile 1, screen 0), module tuner, ", "ReleaseAll()"},
};

INSTANTIATE_TEST_SUITE_P(Each, TraceMistake, testing::ValuesIn(kWrongUses), [](const auto &use) {
  std::string name = use.param.scenario;
  for (char &letter : name) {
    letter = letter == '-' ? '_' : letter;
  }
  return name;
});

#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__) // it replaces free() and tells of these itself
TEST(TraceMistakes, AreFreeingWhatTheLibraryFrees) {
  EXPECT_THAT(RunModules("banner-freed-again").trace,
              AllOf(HasSubstr(" MISTAKE  free(data = 0x"), HasSubstr("called by BannerFreedAgain (trace-modules)\n"),
                    HasSubstr("the library freed it")));
  EXPECT_THAT(RunModules("banner-freed-before").trace,
              AllOf(HasSubstr(" MISTAKE  free(data = 0x"), HasSubstr("gave it to the library")));
}
#endif

TEST(TraceMistakes, AreToldOncePerPlace) {
  const Words lines = Lines(RunModules("add-often").trace);
  EXPECT_EQ(std::count_if(lines.begin(), lines.end(),
                          [](const std::string &line) { return line.find(" MISTAKE ") != std::string::npos; }),
            3)
      << testing::PrintToString(lines);
}

TEST(TraceMistakes, EndTheProgramWhenThatIsAskedFor) {
  EXPECT_EQ(RunModules("add-priority", {"--abort"}).status, -SIGABRT);
  EXPECT_EQ(RunModules("add-priority").status, 0);
  EXPECT_EQ(RunModules("ask-three", {"--abort"}).status, 0);
}

} // namespace
