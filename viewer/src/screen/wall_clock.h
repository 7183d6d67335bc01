// The time of day, as the screen shows it.
#pragma once

#include <cstdint>
#include <string>

class WallClock {
public:
  // A clock that stands still always shows 20:20:00, so that pictures can be compared.
  explicit WallClock(bool still) : still_(still) {}

  // Seconds since the epoch.
  std::int64_t Now() const;
  bool IsStill() const { return still_; }

private:
  bool still_;
};

// Local time of day, "20:15".
std::string HourAndMinute(std::int64_t time);
// Local time of day, "20:15:00".
std::string HourMinuteSecond(std::int64_t time);
