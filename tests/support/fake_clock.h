// The Ecore clock, which a test can stop and set.
#pragma once

#include <optional>

struct FakeClock {
  std::optional<double> now; // seconds; without a value, the real clock runs
};

extern FakeClock fake_clock;
