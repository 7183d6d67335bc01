#include "key_words.h"

#include <cmath>
#include <cstdio>
#include <ctime>

#include "join.h"

std::string TimeOfDay(double seconds) {
  const auto whole = static_cast<std::time_t>(seconds);
  const auto milliseconds = static_cast<int>((seconds - std::floor(seconds)) * 1000);
  std::tm local{};
  localtime_r(&whole, &local);
  char text[32];
  std::snprintf(text, sizeof text, "%02d:%02d:%02d.%03d", local.tm_hour, local.tm_min, local.tm_sec, milliseconds);
  return text;
}

const char *Kind(const KeyJourney &journey) { return journey.press ? "press" : "release"; }

std::string Asked(const KeyJourney &journey) {
  return "asked " + (journey.asked.empty() ? "nobody" : lumio::Join(journey.asked, ", "));
}

std::string Outcome(const KeyJourney &journey) {
  if (!journey.taker.empty()) {
    return "taken by " + journey.taker;
  }
  if (!journey.asked.empty()) {
    return kTakenByNobody;
  }
  return journey.unasked;
}

std::string Duration(const KeyJourney &journey) {
  if (journey.asked.empty()) {
    return "-";
  }
  char text[32];
  std::snprintf(text, sizeof text, "%.3f ms", journey.duration * 1000);
  return text;
}
