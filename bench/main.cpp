// Runs the benchmarks with or without the platform's log and store:
//   --platform=real  use a store for this run only and write the log to /dev/null (the default)
//   --platform=none  replace them with functions that do nothing, to measure the library alone
#include <benchmark/benchmark.h>
#include <lumio-host/testing.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "ratio_reporter.h"

namespace {

// Removes the option from the arguments. Returns whether it was there.
bool TakeOption(int *argc, char **argv, const char *option) {
  char **end = std::remove_if(argv + 1, argv + *argc, [option](const char *given) { return !strcmp(given, option); });
  const bool taken = end != argv + *argc;
  *argc = static_cast<int>(end - argv);
  *end = nullptr;
  return taken;
}

// Restarts the program with the platform's functions replaced. Returns only on failure.
void RestartWithoutPlatform(char **argv) {
  setenv("LD_PRELOAD", NO_PLATFORM, 1);
  execv("/proc/self/exe", argv);
  perror(argv[0]);
}

void Run() {
  setenv("LUMIO_LOG", "/dev/null", 1);
  const lumio::testing::Session session;
  const lumio::testing::EmptyStore store;
  RatioReporter reporter;
  benchmark::RunSpecifiedBenchmarks(&reporter);
}

} // namespace

int main(int argc, char **argv) {
  if (TakeOption(&argc, argv, "--platform=none")) {
    RestartWithoutPlatform(argv);
    return 1;
  }
  TakeOption(&argc, argv, "--platform=real");
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) {
    return 1;
  }
  Run();
  return 0;
}
