#include "ratio_reporter.h"

#include <algorithm>
#include <iomanip>

namespace {

constexpr char kLibrary[] = "/library";
constexpr char kBare[] = "/bare";

// The name with `what` replaced; empty when it has no such part.
std::string Replaced(std::string name, const std::string &what, const std::string &with) {
  const size_t at = name.find(what);
  return at == std::string::npos ? "" : name.replace(at, what.size(), with);
}

} // namespace

void RatioReporter::ReportRuns(const std::vector<Run> &runs) {
  ConsoleReporter::ReportRuns(runs);
  for (const Run &run : runs) {
    if (run.run_type == Run::RT_Iteration && !run.error_occurred) {
      const double seconds = run.cpu_accumulated_time / static_cast<double>(run.iterations);
      const auto [entry, is_new] = m_seconds.emplace(run.run_name.str(), seconds);
      entry->second = is_new ? seconds : std::min(entry->second, seconds);
    }
  }
}

void RatioReporter::Finalize() {
  ConsoleReporter::Finalize();
  std::ostream &out = GetOutputStream();
  for (const auto &[name, seconds] : m_seconds) {
    const auto bare = m_seconds.find(Replaced(name, kLibrary, kBare));
    if (bare != m_seconds.end()) {
      out << std::left << std::setw(40) << Replaced(name, kLibrary, "") << std::fixed << std::setprecision(2)
          << seconds / bare->second << " times the bare work\n";
    }
  }
}
