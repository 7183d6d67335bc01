// Words for a key's journey.
#pragma once

#include <string>

#include "key_journal.h"

constexpr char kTakenByNobody[] = "taken by nobody";

// Local time of day with milliseconds.
std::string TimeOfDay(double seconds);
// "press" or "release".
const char *Kind(const KeyJourney &journey);
// The modules that were asked, or "nobody".
std::string Asked(const KeyJourney &journey);
// "taken by menu", or why no module took it.
std::string Outcome(const KeyJourney &journey);
// The time until the last module had answered.
std::string Duration(const KeyJourney &journey);
