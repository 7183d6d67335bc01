// The time of day, as the screen shows it.
#pragma once

#include <cstdint>
#include <string>

class WallClock {
public:
  // One that stands still shows 20:20:00 for ever, so that a picture can be compared with another.
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
