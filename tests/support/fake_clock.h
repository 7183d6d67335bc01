// The Ecore clock, which a test may stop and set.
#pragma once

#include <optional>

struct FakeClock {
  std::optional<double> now; // seconds; while it has no value, the real clock runs
};

extern FakeClock fake_clock;
