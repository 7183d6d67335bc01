// Compares a storm of signal notifications in a program that lumio-trace runs with the same storm without lumio-trace.
// Measures the processor time of the program, because the speed of the disk varies. The counter shows the program's
// peak memory; what the trace adds to it does not grow with the storm.
#include <benchmark/benchmark.h>

#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <string>
#include <vector>

#include "temporary_directory.h"

namespace {

constexpr const char *kStorm = "1000000"; // notifications

[[noreturn]] void Exec(const std::vector<std::string> &command, const std::string &store) {
  setenv("LUMIO_LOG", "none", 1);
  setenv("LUMIO_VCONF_DIR", store.c_str(), 1);
  unsetenv("LD_PRELOAD");
  std::vector<char *> words;
  words.reserve(command.size() + 1);
  for (const std::string &word : command) {
    words.push_back(const_cast<char *>(word.c_str()));
  }
  words.push_back(nullptr);
  execv(words[0], words.data());
  _exit(127);
}

double Seconds(const timeval &time) {
  return static_cast<double>(time.tv_sec) + 1e-6 * static_cast<double>(time.tv_usec);
}

void Storm(benchmark::State &state, const std::vector<std::string> &under) {
  const lumio::TemporaryDirectory directory;
  std::vector<std::string> command = under;
  if (!under.empty()) {
    command.insert(command.end(), {"-o", directory / "trace"});
  }
  command.insert(command.end(), {LUMIO_TRACE_MODULES, "storm", kStorm});
  rusage usage = {};
  while (state.KeepRunning()) {
    const pid_t pid = fork();
    if (pid == 0) {
      Exec(command, directory.Path());
    }
    int status = 0;
    if (wait4(pid, &status, 0, &usage) != pid || status != 0) {
      state.SkipWithError("the storm failed");
    }
    state.SetIterationTime(Seconds(usage.ru_utime) + Seconds(usage.ru_stime));
  }
  state.counters["MiB"] = static_cast<double>(usage.ru_maxrss) / 1024;
}

BENCHMARK_CAPTURE(Storm, untraced, {})->Name("traced_storm/bare")->UseManualTime()->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(Storm, traced, {LUMIO_TRACE})
    ->Name("traced_storm/library")
    ->UseManualTime()
    ->Unit(benchmark::kMillisecond);

} // namespace
