#include "console.h"

#include <Ecore.h>

#include <algorithm>
#include <cstdio>

#include "key_words.h"
#include "source_name.h"

namespace {

// Standard output may be a pipe whose reader wants each line at once.
void Write(const std::string &lines) {
  std::fwrite(lines.data(), 1, lines.size(), stdout);
  std::fflush(stdout);
}

std::string Padded(std::string text, size_t width) {
  text.resize(std::max(text.size(), width), ' ');
  return text;
}

std::string Line(double time, const std::string &kind, const std::string &item, const std::string &rest) {
  return TimeOfDay(time) + "  " + Padded(kind, 6) + "  " + Padded(item, 20) + "  " + rest + "\n";
}

} // namespace

void Console::Show(const std::string &item, const std::string &text, const Details &) { Print("screen", item, text); }

void Console::Hide(const std::string &item) { Print("screen", item, "(hidden)"); }

void Console::PrintCanvas(const std::string &item, const std::string &shown) { Print("canvas", item, shown); }

// Lines caused by a key come after the line of the key, which is complete only when all modules have answered.
void Console::Print(const std::string &kind, const std::string &item, const std::string &text) {
  waiting_ += Line(ecore_time_unix_get(), kind, item, text);
  if (!key_is_open_) {
    Refresh();
  }
}

void Console::Refresh() {
  if (!waiting_.empty()) {
    Write(waiting_);
    waiting_.clear();
    printed_until_ = ecore_time_unix_get();
  }
}

// If lines of a key were printed already, its own line has the time of its end.
void Console::ShowKey(const KeyJourney &journey) {
  key_is_open_ = false;
  const double time = journey.time < printed_until_ ? ecore_time_unix_get() : journey.time;
  Write(Line(time, "key", journey.key,
             Padded(Kind(journey), 7) + "  " + Padded(lumio::SourceName(journey.source), 14) + "  " + Asked(journey) +
                 "  " + Outcome(journey) + "  " + Duration(journey)));
  Refresh();
}
