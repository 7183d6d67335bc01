// lumio-keylog on the log of the demo, whose director sees the same keys from the other side.
#include <gmock/gmock.h>

#include <algorithm>
#include <cstdlib>
#include <string>
#include <vector>

#include "process.h"

using testing::AllOf;
using testing::AnyOf;
using testing::ElementsAreArray;
using testing::HasSubstr;
using testing::Matcher;

namespace {

std::vector<std::string> LinesOf(const std::vector<std::string> &command) {
  Process process(command, {});
  const auto deadline = Clock::now() + std::chrono::minutes(9);
  std::vector<std::string> lines;
  while (const auto line = process.ReadLine(deadline)) {
    lines.push_back(*line);
  }
  EXPECT_EQ(process.Wait(deadline), EXIT_SUCCESS);
  return lines;
}

// What lumio-keylog has to say of the key in a line of the director, for example
//   ok      Up press: asked menu, channel, taken by channel
Matcher<std::string> Expected(const std::string &line) {
  const std::string asked = ": asked ";
  const size_t colon = line.find(asked);
  const size_t kind = line.rfind(' ', colon);
  const size_t name = line.rfind(' ', kind - 1) + 1;
  const size_t modules = colon + asked.size();
  const size_t outcome = line.rfind(", ") + 2;
  const std::string taker = line.substr(outcome);
  std::string declined = line.substr(modules, outcome - 2 - modules);
  if (declined == "nobody") {
    return AnyOf(HasSubstr("dropped: "), HasSubstr("passed on: ")); // the log does not name these keys
  }
  std::string story = "declined by all who were asked: ";
  if (taker != "taken by nobody") {
    const size_t last = declined.rfind(", ");
    story = taker + " at priority ";
    declined = last == std::string::npos ? "" : "; declined by " + declined.substr(0, last);
  }
  return AllOf(HasSubstr("  " + line.substr(name, kind - name) + " "), HasSubstr(line.substr(kind, colon - kind) + " "),
               HasSubstr(story), testing::EndsWith(declined));
}

TEST(KeylogOfTheDemo, TellsOfEachKeyWhatTheDirectorSaw) {
  char directory[] = "/tmp/lumio-keylog-XXXXXX";
  ASSERT_NE(mkdtemp(directory), nullptr);
  std::vector<Matcher<std::string>> expected;
  for (const std::string &line : LinesOf({LUMIO_DIRECTOR, "--keep", directory})) {
    if (line.find(": asked ") != std::string::npos) {
      expected.push_back(Expected(line));
    }
  }
  std::vector<std::string> keys = LinesOf({KEYLOG, std::string(directory) + "/evening.log"});
  keys.erase(std::find(keys.begin(), keys.end(), ""), keys.end()); // the counts
  EXPECT_GT(keys.size(), 30u);
  EXPECT_THAT(keys, ElementsAreArray(expected));
  EXPECT_EQ(system(("rm -r " + std::string(directory)).c_str()), 0);
}

} // namespace
