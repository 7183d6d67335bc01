// Prints how many times as long the library takes as what stands beside it.
#pragma once

#include <benchmark/benchmark.h>

#include <string>
#include <vector>

// A benchmark is named NAME/SIDE or NAME/SIDE/ARGUMENTS. The side `library` is compared with each other side of the
// same name and arguments: with the `bare` work, or with somebody else's way to do it. Where there is no other side, it
// is compared with itself at the first arguments, which shows how its cost grows.
//
// It is CPU time that is compared, and where a benchmark uses real time, that; of several repetitions the fastest
// counts, being the one that was disturbed least.
class RatioReporter : public benchmark::ConsoleReporter {
public:
  RatioReporter() : ConsoleReporter(OO_Tabular) {}

  void ReportRuns(const std::vector<Run> &runs) override;
  void Finalize() override;

private:
  struct Measurement {
    std::string name, side, arguments;
    double seconds; // for one iteration

    bool IsOf(const Measurement &other) const {
      return name == other.name && side == other.side && arguments == other.arguments;
    }
  };

  void PrintRatiosOf(const Measurement &library);
  void Print(const Measurement &library, const Measurement &other, const std::string &what);

  std::vector<Measurement> measurements_; // in the order of the runs
};
