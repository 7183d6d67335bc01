// Runs the demo as a test: its director checks every line that the viewer prints, and lumio-keylog must report the same
// from the viewer's log.
#include <gmock/gmock.h>

#include <algorithm>
#include <cstdlib>
#include <map>
#include <string>
#include <vector>

#include "program.h"
#include "temporary_directory.h"

using testing::AllOf;
using testing::AnyOf;
using testing::ElementsAreArray;
using testing::EndsWith;
using testing::HasSubstr;
using testing::Matcher;

namespace {

std::vector<std::string> LinesOf(const std::vector<std::string> &command) {
  lumio::Program process(command, {});
  const auto deadline = lumio::Clock::now() + std::chrono::minutes(9);
  std::vector<std::string> lines;
  while (const auto line = process.ReadLine(deadline)) {
    lines.push_back(*line);
  }
  EXPECT_EQ(process.Wait(deadline), EXIT_SUCCESS) << testing::PrintToString(lines);
  return lines;
}

int PriorityOf(const std::string &module) {
  const std::map<std::string, int> first = {{"menu", 0},    {"power", 1},  {"volume", 2},
                                            {"channel", 3}, {"panels", 5}, {"teletext", 5}};
  const auto found = first.find(module);
  return found == first.end() ? 4 : found->second;
}

// Matches what lumio-keylog prints for the key in a line of the director, for example
//   ok      Up press: asked menu, channel, taken by channel
Matcher<std::string> Expected(const std::string &line) {
  const std::string asked = ": asked ", taken = "taken by ";
  const size_t colon = line.find(asked);
  const size_t kind = line.rfind(' ', colon);
  const size_t name = line.rfind(' ', kind - 1) + 1;
  const size_t modules = colon + asked.size();
  const size_t comma = line.rfind(", ");
  const std::string outcome = line.substr(comma + 2);
  std::string declined = line.substr(modules, comma - modules);
  if (declined == "nobody") {
    return EndsWith(" " + outcome); // the log does not name these keys
  }
  // The log has no answer to the last keys.
  Matcher<std::string> story = AnyOf(HasSubstr("declined by all who were asked: "), HasSubstr("; asked: "));
  if (outcome != "taken by nobody") {
    const size_t last = declined.rfind(", ");
    story = HasSubstr(outcome + " at priority " + std::to_string(PriorityOf(outcome.substr(taken.size()))));
    declined = last == std::string::npos ? "" : "; declined by " + declined.substr(0, last);
  }
  return AllOf(HasSubstr("  " + line.substr(name, kind - name) + " "), HasSubstr(line.substr(kind, colon - kind) + " "),
               story, EndsWith(declined));
}

// Lines about keys begin with a line number of the log.
bool IsKey(const std::string &line) { return line.size() > 6 && line[5] >= '0' && line[5] <= '9'; }

TEST(Demo, PlaysAsScriptedAndLogsTheSame) {
  const lumio::TemporaryDirectory directory;
  const std::string log = directory / "keys.log";
  setenv("LUMIO_LOG", log.c_str(), 1);
  std::vector<Matcher<std::string>> expected;
  for (const std::string &line : LinesOf({LUMIO_DIRECTOR, "--keep", directory / ""})) {
    if (line.find(": asked ") != std::string::npos) {
      expected.push_back(Expected(line));
    }
  }
  std::vector<std::string> keys = LinesOf({LUMIO_KEYLOG, log});
  keys.erase(std::find(keys.begin(), keys.end(), ""), keys.end()); // the counts
  keys.erase(std::remove_if(keys.begin(), keys.end(), [](const std::string &line) { return !IsKey(line); }),
             keys.end());
  EXPECT_GT(keys.size(), 40U);
  EXPECT_THAT(keys, ElementsAreArray(expected));
}

TEST(Demo, RefusesUnknownOptions) {
  lumio::Program director({LUMIO_DIRECTOR, "--loud"}, {});
  EXPECT_EQ(EXIT_FAILURE, director.Wait(lumio::Clock::now() + std::chrono::minutes(1)));
}

} // namespace
