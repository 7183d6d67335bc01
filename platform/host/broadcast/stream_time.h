// The stream's time, from the clock that it carries.
#pragma once

#include <chrono>
#include <cstdint>

namespace lumio::broadcast {

class StreamTime {
public:
  using Nanoseconds = std::chrono::nanoseconds;

  // The programme clock as it stands in a packet: 33 bits at 90 kHz times 300 at 27 MHz, wrapping around. Where it
  // jumps, back or far ahead, the stream goes on without a gap.
  void Clock(std::uint64_t pcr, bool is_discontinuous);
  // A packet went by. Without a clock for long, packets come at a nominal rate.
  void Packet();
  // What follows has another clock.
  void Interrupt() { known_ = false; }

  // Since the beginning.
  Nanoseconds Position() const { return position_; }

private:
  bool known_ = false;
  std::uint64_t last_ = 0;
  unsigned packets_ = 0; // since the last clock
  Nanoseconds position_{0};
};

} // namespace lumio::broadcast
