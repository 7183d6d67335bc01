// Runs a command to its end.
#pragma once

#include <chrono>
#include <optional>
#include <string>
#include <vector>

#include "program.h"
#include "stderr_of.h"

// A deadline after the time limit of the suite.
inline lumio::Clock::time_point Never() { return lumio::Clock::now() + std::chrono::hours(1); }

struct Ran {
  std::string output;
  std::string error;
  std::optional<int> status;
};

inline Ran RunCommand(const std::vector<std::string> &command) {
  Ran ran;
  ran.error = StderrOf([&] {
    lumio::Program process(command, {});
    while (const auto line = process.ReadLine(Never())) {
      ran.output += *line + "\n";
    }
    ran.status = process.Wait(Never());
  });
  return ran;
}
