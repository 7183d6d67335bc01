// The demo as a test: its director checks every line that the viewer prints.
#include <gmock/gmock.h>

#include <cstdlib>
#include <fstream>
#include <string>
#include <vector>

#include "process.h"
#include "temporary_directory.h"

using testing::ContainsRegex;

namespace {

using Lines = std::vector<std::string>;

Lines LinesOf(Process &process) {
  const auto deadline = Clock::now() + std::chrono::minutes(9);
  Lines lines;
  while (const auto line = process.ReadLine(deadline)) {
    lines.push_back(*line);
  }
  EXPECT_EQ(EXIT_SUCCESS, process.Wait(deadline)) << testing::PrintToString(lines);
  return lines;
}

// What the viewer and lumio-keylog call the same thing.
struct Outcome {
  const char *viewer;
  const char *log;
};
constexpr Outcome kOutcomes[] = {
    {" asked nobody  passed on ", ": factory aging mode| dropped: stale| dropped: release after an ignored press"},
    {" asked nobody  dropped ", " dropped: burst"},
    {" taken by nobody ", " declined by all who were asked"},
    {" taken by menu ", " taken by menu at priority 0"},
    {" taken by power ", " taken by power at priority 1"},
    {" taken by volume ", " taken by volume at priority 2"},
    {" taken by channel ", " taken by channel at priority 3"},
    {" taken by ", " taken by (info|guide|data|captions) at priority 4"},
};

TEST(Demo, GoesAsTheScriptExpectsAndLeavesALogThatTellsTheSame) {
  const TemporaryDirectory directory;
  Process director({LUMIO_DIRECTOR, "--keep", directory / ""}, {});
  Lines told;
  for (const std::string &line : LinesOf(director)) {
    if (line.find("  key  ") != std::string::npos) {
      told.push_back(line);
    }
  }
  Process keylog({LUMIO_KEYLOG, directory / "evening.log"}, {});
  const Lines logged = LinesOf(keylog);
  ASSERT_GT(told.size(), 40U);
  ASSERT_GT(logged.size(), told.size()); // the counts stand behind the keys
  for (size_t i = 0; i < told.size(); ++i) {
    for (const Outcome &outcome : kOutcomes) {
      if (told[i].find(outcome.viewer) != std::string::npos) {
        EXPECT_THAT(logged[i], ContainsRegex(outcome.log)) << told[i];
        break;
      }
    }
  }
}

TEST(Demo, RefusesOptionsThatItDoesNotKnow) {
  Process director({LUMIO_DIRECTOR, "--loud"}, {});
  EXPECT_EQ(EXIT_FAILURE, director.Wait(Clock::now() + std::chrono::minutes(1)));
}

} // namespace
