// Prints how many times as long the library takes as the other sides of each comparison.
#pragma once

#include <benchmark/benchmark.h>

#include <string>
#include <vector>

// Name a benchmark NAME/SIDE or NAME/SIDE/ARGUMENTS. The reporter compares the side `library` with each other side that
// has the same name and arguments: `bare`, the same work without the library, or another library. If there is no other
// side, it compares the library with itself at the first arguments, which shows how the cost grows.
//
// The reporter compares CPU time, or real time if the benchmark uses real time. Of several repetitions it takes the
// fastest, which was disturbed least.
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

  std::vector<Measurement> measurements_; // in the order in which they ran
};
