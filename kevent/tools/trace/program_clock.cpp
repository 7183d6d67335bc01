#include "program_clock.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <mutex>
#include <thread>

#include "next.h"

namespace lumio::trace {

namespace {

Next<int(clockid_t, timespec *)> g_clock_gettime("clock_gettime");
Next<int(pthread_cond_t *, pthread_mutex_t *, clockid_t, const timespec *)> g_clockwait("pthread_cond_clockwait");

std::atomic<bool> g_follows{false};    // whether the clock differs from the computer's
std::mutex &g_mutex = *new std::mutex; // never destroyed: all threads read the time until the end
Nanoseconds g_behind = 0;              // how far the clock is behind the computer's
Nanoseconds g_limit = kNoLimit;
Nanoseconds g_callback_limit = kNoLimit;

int g_looks = 0; // at a clock that stands

// Call it with the lock held. Time that passes while the clock stands is lost for ever. A callback that waits for a
// time and looks at the clock all the while would wait for ever: then the clock creeps on.
Nanoseconds ReadLocked() {
  constexpr int kManyLooks = 100000;
  constexpr Nanoseconds kStep = kMillisecond / 1000;
  const Nanoseconds computer = ComputerClock();
  g_looks = computer - g_behind > g_callback_limit ? g_looks + 1 : 0;
  g_callback_limit += g_looks > kManyLooks ? kStep : 0;
  const Nanoseconds time = std::min(computer - g_behind, g_callback_limit != kNoLimit ? g_callback_limit : g_limit);
  g_behind = computer - time;
  return time;
}

// Returns the computer's time for a time of the program's clock, so that a wait takes as long as the program wants.
timespec ToComputerClock(const timespec &time) {
  const std::lock_guard<std::mutex> lock(g_mutex);
  ReadLocked();
  const Nanoseconds on_computer = time.tv_sec * kSecond + time.tv_nsec + g_behind;
  return {on_computer / kSecond, on_computer % kSecond};
}

// Returns whether a time cannot be a date: a condition variable does not tell its clock.
bool IsMonotonic(const timespec &time) {
  timespec date;
  g_clock_gettime(CLOCK_REALTIME, &date);
  return time.tv_sec < date.tv_sec / 2;
}

bool IsMonotonic(clockid_t clock) { return clock == CLOCK_MONOTONIC || clock == CLOCK_MONOTONIC_COARSE; }

} // namespace

Nanoseconds ComputerClock() {
  timespec time;
  g_clock_gettime(CLOCK_MONOTONIC, &time);
  return time.tv_sec * kSecond + time.tv_nsec;
}

void LimitClock(Nanoseconds limit) {
  const std::lock_guard<std::mutex> lock(g_mutex);
  g_limit = std::max(limit, ReadLocked());
  g_follows = true;
}

Nanoseconds LimitCallback(Nanoseconds limit) {
  const std::lock_guard<std::mutex> lock(g_mutex);
  const Nanoseconds now = ReadLocked();
  const Nanoseconds previous = g_callback_limit;
  g_callback_limit = std::max(limit, now);
  g_limit = std::max(g_limit, now);
  return previous;
}

void MoveClockTo(Nanoseconds time) {
  const std::lock_guard<std::mutex> lock(g_mutex);
  g_behind -= std::max<Nanoseconds>(time - ReadLocked(), 0);
  g_limit = std::max(g_limit, time);
  g_callback_limit = std::max(g_callback_limit, time);
}

bool WaitForClock(Nanoseconds time) {
  constexpr Nanoseconds kLeast = kMillisecond / 5;
  constexpr Nanoseconds kMost = 5 * kMillisecond; // the clock may be moved meanwhile
  constexpr Nanoseconds kPatience = 60 * kSecond;
  const Nanoseconds begin = ComputerClock();
  for (Nanoseconds left = time - Now(); left > 0; left = time - Now()) {
    if (ComputerClock() - begin > kPatience + left) {
      return false;
    }
    std::this_thread::sleep_for(std::chrono::nanoseconds(std::clamp(left, kLeast, kMost)));
  }
  return true;
}

} // namespace lumio::trace

using namespace lumio::trace;

extern "C" {

__attribute__((visibility("default"))) int clock_gettime(clockid_t clock, timespec *time) noexcept {
  if (!IsMonotonic(clock) || !g_follows) {
    return g_clock_gettime(clock, time);
  }
  const std::lock_guard<std::mutex> lock(g_mutex);
  const Nanoseconds now = ReadLocked();
  *time = {now / kSecond, now % kSecond};
  return 0;
}

__attribute__((visibility("default"))) int pthread_cond_clockwait(pthread_cond_t *condition, pthread_mutex_t *mutex,
                                                                  clockid_t clock, const timespec *until) {
  const bool differs = IsMonotonic(clock) && g_follows;
  const timespec computers = differs ? ToComputerClock(*until) : *until;
  return g_clockwait(condition, mutex, clock, &computers);
}

__attribute__((visibility("default"))) int pthread_cond_timedwait(pthread_cond_t *condition, pthread_mutex_t *mutex,
                                                                  const timespec *until) {
  return pthread_cond_clockwait(condition, mutex, IsMonotonic(*until) ? CLOCK_MONOTONIC : CLOCK_REALTIME, until);
}

} // extern "C"
