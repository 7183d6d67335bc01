#include "key_overlay.h"

#include <Edje.h>

#include <array>

#include "../key_words.h"

namespace {

constexpr size_t kKeys = 10;
constexpr std::array<const char *, 7> kColumns = {"time", "key", "kind", "device", "asked", "outcome", "duration"};

const char *Text(Evas_Object *row, const char *column) {
  const char *text = edje_object_part_text_get(row, column);
  return text ? text : "";
}

void SetText(Evas_Object *row, const char *column, const std::string &text) {
  edje_object_part_text_unescaped_set(row, column, text.c_str());
}

// The signals by which the theme gives a row its colours.
void SetState(Evas_Object *row, const std::string &kind, const std::string &outcome) {
  const bool taken = outcome.rfind("taken by ", 0) == 0;
  edje_object_signal_emit(row, kind.c_str(), "kind");
  edje_object_signal_emit(row, !taken ? "dropped" : outcome == kTakenByNobody ? "nobody" : "taken", "outcome");
}

} // namespace

KeyOverlay::KeyOverlay(const Canvas &canvas) : rows_(canvas, "keys:rows", "key row", kKeys) {}

void KeyOverlay::Show(const KeyJourney &journey) {
  for (size_t row = kKeys - 1; row > 0; --row) {
    for (const char *column : kColumns) {
      SetText(rows_[row], column, Text(rows_[row - 1], column));
    }
    SetState(rows_[row], Text(rows_[row], "kind"), Text(rows_[row], "outcome"));
  }
  Evas_Object *newest = rows_[0];
  SetText(newest, "time", TimeOfDay(journey.time));
  SetText(newest, "key", journey.key);
  SetText(newest, "kind", Kind(journey));
  SetText(newest, "device", journey.device.empty() ? SourceName(journey.source) : journey.device);
  SetText(newest, "asked", Asked(journey));
  SetText(newest, "outcome", Outcome(journey));
  SetText(newest, "duration", Duration(journey));
  SetState(newest, Kind(journey), Outcome(journey));
  rows_.SetCursor(0);
}

std::string KeyOverlay::Row(size_t row) const {
  std::string line;
  for (const char *column : kColumns) {
    line.append(line.empty() ? "" : "  ").append(Text(rows_[row], column));
  }
  return line;
}
