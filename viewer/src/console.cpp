#include "console.h"

#include <kevent.h>

#include <Ecore.h>

#include <cmath>
#include <cstdio>
#include <ctime>

#include "join.h"
#include "key_journal.h"

namespace {

const char *SourceName(int source) {
  switch (source) {
  case LUMIO_EVENT_SOURCE_REMOTE:
    return "remote control";
  case LUMIO_EVENT_SOURCE_PANEL:
    return "panel keys";
  case LUMIO_EVENT_SOURCE_TOUCH:
    return "touch remote";
  case LUMIO_EVENT_SOURCE_FUNCTION_OSD:
    return "function-osd";
  default:
    return "other device";
  }
}

// Local time of day with milliseconds.
std::string TimeOfDay(double seconds) {
  const auto whole = static_cast<std::time_t>(seconds);
  const auto milliseconds = static_cast<int>((seconds - std::floor(seconds)) * 1000);
  std::tm local{};
  localtime_r(&whole, &local);
  char text[32];
  std::snprintf(text, sizeof text, "%02d:%02d:%02d.%03d", local.tm_hour, local.tm_min, local.tm_sec, milliseconds);
  return text;
}

std::string Asked(const KeyJourney &journey) {
  return journey.asked.empty() ? "nobody" : lumio::Join(journey.asked, ", ");
}

std::string Outcome(const KeyJourney &journey) {
  if (!journey.taker.empty()) {
    return "taken by " + journey.taker;
  }
  if (!journey.asked.empty()) {
    return "taken by nobody";
  }
  return journey.passed_on ? "passed on" : "dropped";
}

std::string Duration(const KeyJourney &journey) {
  if (journey.asked.empty()) {
    return "-";
  }
  char text[32];
  std::snprintf(text, sizeof text, "%.3f ms", journey.duration * 1000);
  return text;
}

void PrintItem(const std::string &item, const std::string &text) {
  std::printf("%s  screen  %-20s  %s\n", TimeOfDay(ecore_time_unix_get()).c_str(), item.c_str(), text.c_str());
  std::fflush(stdout);
}

} // namespace

void Console::Show(const std::string &item, const std::string &text) { PrintItem(item, text); }

void Console::Hide(const std::string &item) { PrintItem(item, "(hidden)"); }

void Console::ShowKey(const KeyJourney &journey) {
  std::printf("%s  key     %-20s  %-7s  %-14s  asked %s  %s  %s\n", TimeOfDay(journey.time).c_str(),
              journey.key.c_str(), journey.press ? "press" : "release", SourceName(journey.source),
              Asked(journey).c_str(), Outcome(journey).c_str(), Duration(journey).c_str());
  std::fflush(stdout);
}
