#include "key_overlay.h"

#include <Edje.h>

#include <algorithm>
#include <array>

#include "../key_words.h"
#include "source_name.h"

namespace {

constexpr size_t kKeys = 10;
constexpr std::array<const char *, 7> kParts = {"time", "key", "kind", "device", "asked", "outcome", "duration"};
constexpr size_t kKind = 2;
constexpr size_t kOutcome = 5;

// The signals by which the theme gives a row its colours.
void SetState(Evas_Object *row, const std::string &kind, const std::string &outcome) {
  const bool taken = outcome.rfind("taken by ", 0) == 0;
  edje_object_signal_emit(row, kind.c_str(), "kind");
  edje_object_signal_emit(row, !taken ? "dropped" : outcome == kTakenByNobody ? "nobody" : "taken", "outcome");
}

} // namespace

KeyOverlay::KeyOverlay(const Canvas &canvas) : rows_(canvas, "keys:rows", "key row", kKeys) { rows_.SetCursor(0); }

KeyOverlay::~KeyOverlay() {
  if (job_) {
    ecore_job_del(job_);
  }
}

void KeyOverlay::Show(const KeyJourney &journey) {
  lines_.push_front({TimeOfDay(journey.time), journey.key, Kind(journey),
                     journey.device.empty() ? lumio::SourceName(journey.source) : journey.device, Asked(journey),
                     Outcome(journey), Duration(journey)});
  lines_.resize(std::min(lines_.size(), kKeys));
  written_ = false;
  WriteSoon();
}

void KeyOverlay::SetShown(bool shown) {
  shown_ = shown;
  WriteSoon();
}

std::string KeyOverlay::Row(size_t row) {
  Write();
  std::string line;
  for (const char *part : kParts) {
    const char *text = edje_object_part_text_get(rows_[row], part);
    line.append(line.empty() ? "" : "  ").append(text ? text : "");
  }
  return line;
}

void KeyOverlay::WriteSoon() {
  if (shown_ && !job_) {
    job_ = ecore_job_add(
        [](void *data) {
          auto *self = static_cast<KeyOverlay *>(data);
          self->job_ = nullptr;
          self->Write();
        },
        this);
  }
}

void KeyOverlay::Write() {
  for (size_t row = 0; !written_ && row < lines_.size(); ++row) {
    WriteRow(row, lines_[row]);
  }
  edje_message_signal_process();
  written_ = true;
}

void KeyOverlay::WriteRow(size_t row, const Line &line) {
  for (size_t column = 0; column < kColumns; ++column) {
    edje_object_part_text_unescaped_set(rows_[row], kParts[column], line[column].c_str());
  }
  SetState(rows_[row], line[kKind], line[kOutcome]);
}
