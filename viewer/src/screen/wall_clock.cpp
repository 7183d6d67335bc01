#include "wall_clock.h"

#include <ctime>

namespace {

std::tm Local(std::int64_t time) {
  const std::time_t seconds = time;
  std::tm local = {};
  localtime_r(&seconds, &local);
  return local;
}

} // namespace

std::int64_t WallClock::Now() const {
  const std::time_t now = std::time(nullptr);
  if (!still_) {
    return now;
  }
  std::tm evening = Local(now);
  evening.tm_hour = evening.tm_min = 20;
  evening.tm_sec = 0;
  evening.tm_isdst = -1;
  return std::mktime(&evening);
}

std::string HourAndMinute(std::int64_t time) { return HourMinuteSecond(time).substr(0, 5); }

std::string HourMinuteSecond(std::int64_t time) {
  const std::tm local = Local(time);
  char text[16];
  std::strftime(text, sizeof text, "%H:%M:%S", &local);
  return text;
}
