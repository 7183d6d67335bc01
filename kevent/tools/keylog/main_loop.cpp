#include "main_loop.h"

#include <algorithm>

namespace keylog {
namespace {

constexpr size_t kGaps = 64;     // enough for the lines of the few keys of a busy stretch
constexpr size_t kBurstKeys = 2; // presses that the library lets through while the main loop does not become idle

} // namespace

void MainLoop::Logged(double time, const std::string &last_asked) {
  if (time < 0) {
    return;
  }
  if (last_line_ >= 0 && time > last_line_) {
    gaps_.push_back({last_line_, time, last_asked});
    if (gaps_.size() > kGaps) {
      gaps_.pop_front();
    }
  }
  last_line_ = time;
}

void MainLoop::Examined(double viewer_seconds) {
  const double offset = viewer_seconds - server_seconds_;
  clock_offset_ = has_offset_ ? std::min(clock_offset_, offset) : offset;
  has_offset_ = true;
  lateness_ = offset - clock_offset_;
}

void MainLoop::LetThrough(double time) {
  let_through_.push_back(time - lateness_);
  lateness_ = 0;
  if (let_through_.size() > kBurstKeys) {
    let_through_.pop_front();
  }
}

MainLoop::Silence MainLoop::Longest(double since, double until) const {
  Silence longest;
  for (const Gap &gap : gaps_) {
    const double seconds = std::min(gap.end, until) - std::max(gap.begin, since);
    if (seconds > longest.seconds) {
      longest = {seconds, gap.last_asked};
    }
  }
  return longest.seconds > 0 ? longest : Silence();
}

MainLoop::Silence MainLoop::BeforeStale(double time) const {
  return time < 0 ? Silence() : Longest(time - lateness_, time);
}

MainLoop::Silence MainLoop::BeforeBurst(double time) const {
  if (time < 0 || let_through_.empty()) {
    return {};
  }
  return Longest(*std::min_element(let_through_.begin(), let_through_.end()), time);
}

} // namespace keylog
