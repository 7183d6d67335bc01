// The stream's time, from the clock that it carries.
#pragma once

#include <chrono>
#include <cstdint>

namespace lumio::broadcast {

class StreamTime {
public:
  using Nanoseconds = std::chrono::nanoseconds;

  // Takes the programme clock of a packet: 33 bits at 90 kHz times 300 at 27 MHz, wrapping around. If it jumps back or
  // far ahead, the time continues without a gap.
  void Clock(std::uint64_t pcr, bool is_discontinuous);
  // Counts a packet. If the clock is missing for long, packets count at a nominal rate.
  void Packet();
  // Call it when another clock follows.
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
