// Compares the time that lumio-keylog takes to summarise a log of 100 MB with that of grep, which only counts its
// lines.
#include <benchmark/benchmark.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <string>

#include "temporary_directory.h"

namespace {

constexpr size_t kSize = 100 << 20; // bytes

// Returns the lines of one press in the format of the desktop's log.
std::string Press(int number) {
  char clock[40];
  snprintf(clock, sizeof clock, "2026-11-21 %02d:%02d:%02d.%03d", number / 36000 % 24, number / 600 % 60,
           number / 10 % 60, number % 10 * 100);
  std::string lines;
  for (const char *message :
       {"key timestamp = 1111.333000", "timestamp_init = 1111.329000, app_cb_time_init = 1111.332735",
        "cur = 1111.860311", "[menu] XF86AudioRaiseVolume key press handling....",
        "[volume] XF86AudioRaiseVolume key press handling....",
        "XF86AudioRaiseVolume key [type: 0]  press was handled by [volume], priority[2]."}) {
    lines.append(clock).append(" 4711 V lumio-kevent: kevent.cpp: _key_cb(445) > [_key_cb:445] ").append(message);
    lines += '\n';
  }
  return lines;
}

// Returns the path of the log. Writes it at the first call.
const std::string &Log() {
  static const lumio::TemporaryDirectory directory;
  static const std::string path = [] {
    std::string name = directory / "log";
    std::ofstream log(name);
    size_t size = 0;
    for (int number = 0; size < kSize; ++number) {
      const std::string lines = Press(number);
      size += lines.size();
      log << lines;
    }
    return name;
  }();
  return path;
}

void Read(benchmark::State &state, const std::string &command) {
  // The pipe is for grep, which stops at the first match if its output is /dev/null.
  const std::string line = command + " " + Log() + " | cat >/dev/null";
  while (state.KeepRunning()) {
    if (system(line.c_str()) != 0) {
      state.SkipWithError("the command failed");
    }
  }
}

BENCHMARK_CAPTURE(Read, grep, "grep -c kevent")->Name("keylog/grep")->UseRealTime()->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(Read, keylog, LUMIO_KEYLOG " --summary")
    ->Name("keylog/library")
    ->UseRealTime()
    ->Unit(benchmark::kMillisecond);

} // namespace
