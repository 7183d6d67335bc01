#include "multiplex.h"

namespace lumio::sample {
namespace {

constexpr double kClockInterval = 0.04; // seconds; a stream has to have one at least every 0.1 s

} // namespace

void Multiplex::At(double seconds, std::function<void(ts::Stream &)> write) {
  units_.emplace(seconds, std::move(write));
}

ts::Bytes Multiplex::Write(double seconds) const {
  ts::Stream stream;
  auto unit = units_.begin();
  for (int tick = 0; tick * kClockInterval < seconds; ++tick) {
    for (const unsigned pid : clocks_) {
      stream.Pcr(pid, tick * kClockInterval);
    }
    for (; unit != units_.end() && unit->first < (tick + 1) * kClockInterval; ++unit) {
      unit->second(stream);
    }
  }
  return std::move(stream.bytes);
}

} // namespace lumio::sample
