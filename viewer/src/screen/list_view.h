// A list with a cursor, of which the rows around the cursor are shown.
#pragma once

#include <string>

#include "../presentation.h"
#include "rows.h"

class ListView {
public:
  // Fills the box "ITEM:rows" of the theme.
  ListView(const Canvas &canvas, const std::string &item, size_t rows);

  void Show(const Details &list);
  // The entries that can be seen, as the theme has them, with "; " between them and the one under the cursor in
  // brackets.
  std::string Shown() const;

private:
  Rows rows_;
  size_t first_ = 0; // entry on the first row
};
