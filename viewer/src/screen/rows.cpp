#include "rows.h"

#include <Edje.h>

Rows::Rows(const Canvas &canvas, const char *box, const char *group, size_t count) {
  for (size_t i = 0; i < count; ++i) {
    Evas_Object *row = canvas.Add(group);
    evas_object_size_hint_weight_set(row, EVAS_HINT_EXPAND, EVAS_HINT_EXPAND);
    evas_object_size_hint_align_set(row, EVAS_HINT_FILL, EVAS_HINT_FILL);
    edje_object_part_box_append(canvas.Theme(), box, row);
    rows_.push_back(row);
  }
}

void Rows::SetCursor(size_t cursor) const {
  for (size_t i = 0; i < rows_.size(); ++i) {
    edje_object_signal_emit(rows_[i], i == cursor ? "here" : "away", "cursor");
  }
  edje_message_signal_process();
}
