#pragma once

#include <poll.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <climits>

namespace lumio {

using Clock = std::chrono::steady_clock;

// Waits until the descriptor has something to read or is at its end. Returns false at the deadline. A signal does not
// end the wait: the end of a child process sends one.
inline bool WaitReadable(int descriptor, Clock::time_point deadline) {
  pollfd waited = {descriptor, POLLIN, 0};
  int ready;
  do {
    const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now());
    ready = poll(&waited, 1, static_cast<int>(std::clamp<long long>(left.count(), 0, INT_MAX)));
  } while (ready < 0 && errno == EINTR);
  return ready > 0;
}

} // namespace lumio
