// A list that shows the rows around its cursor.
#pragma once

#include <string>

#include "../presentation.h"
#include "rows.h"

class ListView {
public:
  // Fills the box "ITEM:rows" of the theme.
  ListView(const Canvas &canvas, const std::string &item, size_t rows);

  // Another list than the one shown begins with the entry under its cursor, if there are enough after it.
  void Show(const Details &list);
  // Returns the visible entries as the theme shows them, separated by "; ", with the one under the cursor in brackets.
  std::string Shown() const;

private:
  Rows rows_;
  std::vector<std::string> entries_;
  size_t first_ = 0; // entry on the first row
};
