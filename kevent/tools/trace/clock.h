// The tracer's times: nanoseconds on the monotonic clock, which the X server and Ecore use, too.
#pragma once

#include <ctime>

#include <cstdint>

namespace lumio::trace {

using Nanoseconds = std::int64_t;

constexpr Nanoseconds kMillisecond = 1000000;
constexpr Nanoseconds kSecond = 1000 * kMillisecond;
constexpr Nanoseconds kNotKnown = -1;

inline Nanoseconds Read(clockid_t clock) {
  timespec time;
  clock_gettime(clock, &time);
  return time.tv_sec * kSecond + time.tv_nsec;
}

inline Nanoseconds Now() { return Read(CLOCK_MONOTONIC); }
inline Nanoseconds WallClock() { return Read(CLOCK_REALTIME); }

} // namespace lumio::trace
