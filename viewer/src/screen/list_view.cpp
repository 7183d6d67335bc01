#include "list_view.h"

#include <Edje.h>

#include <algorithm>

#include "join.h"

namespace {

constexpr char kText[] = "text";

} // namespace

ListView::ListView(const Canvas &canvas, const std::string &item, size_t rows)
    : rows_(canvas, (item + ":rows").c_str(), "row", rows) {}

void ListView::Show(const Details &list) {
  const size_t count = rows_.Count();
  if (list.entries != entries_) {
    entries_ = list.entries;
    first_ = list.cursor;
  }
  // The cursor stays in view, and no row at the end stays empty while there is an entry for it.
  const size_t last_first = list.entries.size() > count ? list.entries.size() - count : 0;
  const size_t lowest = list.cursor >= count ? list.cursor - count + 1 : 0;
  first_ = std::min({std::max(first_, lowest), list.cursor, last_first});
  for (size_t row = 0; row < count; ++row) {
    const size_t entry = first_ + row;
    edje_object_part_text_unescaped_set(rows_[row], kText,
                                        entry < list.entries.size() ? list.entries[entry].c_str() : "");
  }
  rows_.SetCursor(list.entries.empty() ? count : list.cursor - first_);
}

std::string ListView::Shown() const {
  std::vector<std::string> entries;
  for (size_t row = 0; row < rows_.Count(); ++row) {
    const char *text = edje_object_part_text_get(rows_[row], kText);
    if (text && *text) {
      const bool here = std::string(edje_object_part_state_get(rows_[row], "cursor", nullptr)) == "here";
      entries.push_back(here ? "[" + std::string(text) + "]" : text);
    }
  }
  return lumio::Join(entries, "; ");
}
