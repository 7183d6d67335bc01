// The Ecore clock, which a test can stop and set.
#pragma once

#include <functional>
#include <optional>

struct FakeClock {
  std::optional<double> now;     // seconds; without a value, the real clock runs
  std::function<void()> on_read; // called before each answer
};

extern FakeClock fake_clock;
