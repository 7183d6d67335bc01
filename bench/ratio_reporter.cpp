#include "ratio_reporter.h"

#include <algorithm>
#include <iomanip>

namespace {

constexpr char kLibrary[] = "library";

} // namespace

void RatioReporter::ReportRuns(const std::vector<Run> &runs) {
  ConsoleReporter::ReportRuns(runs);
  for (const Run &run : runs) {
    const std::string &name = run.run_name.function_name;
    const size_t slash = name.find('/');
    if (run.run_type != Run::RT_Iteration || run.error_occurred || slash == std::string::npos) {
      continue;
    }
    const bool is_real_time = !run.run_name.time_type.empty(); // or a time that the benchmark measures itself
    const double seconds = is_real_time ? run.real_accumulated_time : run.cpu_accumulated_time;
    const Measurement measurement = {name.substr(0, slash), name.substr(slash + 1), run.run_name.args,
                                     seconds / static_cast<double>(run.iterations)};
    const auto known = std::find_if(measurements_.begin(), measurements_.end(),
                                    [&](const Measurement &other) { return other.IsOf(measurement); });
    if (known == measurements_.end()) {
      measurements_.push_back(measurement);
    } else {
      known->seconds = std::min(known->seconds, measurement.seconds);
    }
  }
}

void RatioReporter::Finalize() {
  ConsoleReporter::Finalize();
  for (const Measurement &measurement : measurements_) {
    if (measurement.side == kLibrary) {
      PrintRatiosOf(measurement);
    }
  }
}

void RatioReporter::PrintRatiosOf(const Measurement &library) {
  bool is_alone = true;
  for (const Measurement &other : measurements_) {
    if (other.name == library.name && other.side != kLibrary) {
      is_alone = false;
      if (other.arguments == library.arguments) {
        Print(library, other, other.side);
      }
    }
  }
  const Measurement &first = *std::find_if(measurements_.begin(), measurements_.end(),
                                           [&](const Measurement &other) { return other.name == library.name; });
  if (is_alone && &first != &library) {
    Print(library, first, "with " + first.arguments);
  }
}

void RatioReporter::Print(const Measurement &library, const Measurement &other, const std::string &what) {
  const std::string name = library.arguments.empty() ? library.name : library.name + "/" + library.arguments;
  GetOutputStream() << std::left << std::setw(32) << name << std::right << std::fixed << std::setprecision(2)
                    << std::setw(6) << library.seconds / other.seconds << " times as long as " << what << "\n";
}
