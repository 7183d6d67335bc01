// Prints how many times as long the library takes as the bare work that it wraps.
#pragma once

#include <benchmark/benchmark.h>

#include <map>
#include <string>
#include <vector>

// A comparison is a pair of benchmarks, NAME/bare and NAME/library, or NAME/bare/ARGUMENTS and NAME/library/ARGUMENTS.
// It is CPU time that is compared; of several repetitions the fastest counts, being the one that was disturbed least.
class RatioReporter : public benchmark::ConsoleReporter {
public:
  RatioReporter() : ConsoleReporter(OO_Tabular) {}

  void ReportRuns(const std::vector<Run> &runs) override;
  void Finalize() override;

private:
  std::map<std::string, double> m_seconds; // of CPU time for one iteration, by name of the benchmark
};
