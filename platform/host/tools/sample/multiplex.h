// Puts what is on air into one transport stream, in the order of time.
#pragma once

#include <functional>
#include <map>
#include <vector>

#include "transport_stream.h"

namespace lumio::sample {

class Multiplex {
public:
  // Adds what `write` appends, to be sent at `seconds` from the beginning. What is added first goes first among equals.
  void At(double seconds, std::function<void(ts::Stream &)> write);

  // The clock of a service goes with this PID.
  void AddClock(unsigned pid) { clocks_.push_back(pid); }

  // The bytes of all that was added before `seconds`.
  ts::Bytes Write(double seconds) const;

private:
  std::multimap<double, std::function<void(ts::Stream &)>> units_;
  std::vector<unsigned> clocks_;
};

} // namespace lumio::sample
