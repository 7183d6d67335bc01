#include "stream_time.h"

namespace lumio::broadcast {

namespace {

constexpr std::uint64_t kFrequency = 27'000'000;
constexpr std::uint64_t kCycle = (std::uint64_t{1} << 33) * 300;
constexpr std::uint64_t kFarthest = 2 * kFrequency; // a stream sends its clock at least ten times a second
constexpr unsigned kPatience = 20'000;              // packets; at 40 Mbit/s, 0.75 seconds
constexpr unsigned kNominalRate = 3324;             // packets a second, 5 Mbit/s

} // namespace

void StreamTime::Clock(std::uint64_t pcr, bool is_discontinuous) {
  const std::uint64_t difference = (pcr + kCycle - last_) % kCycle;
  if (known_ && !is_discontinuous && difference <= kFarthest) {
    position_ += Nanoseconds(difference * 1000 / (kFrequency / 1'000'000));
  }
  known_ = true;
  last_ = pcr;
  packets_ = 0;
}

void StreamTime::Packet() {
  if (++packets_ > kPatience) {
    position_ += Nanoseconds(std::chrono::seconds(1)) / kNominalRate;
  }
}

} // namespace lumio::broadcast
