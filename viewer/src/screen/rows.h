// A column of rows in a box of the theme.
#pragma once

#include <Evas.h>

#include <vector>

#include "canvas.h"

class Rows {
public:
  // Puts `count` objects of the group into the box, which shares its height among them.
  Rows(const Canvas &canvas, const char *box, const char *group, size_t count);

  size_t Count() const { return rows_.size(); }
  Evas_Object *operator[](size_t row) const { return rows_.at(row); }
  // Marks the row as the one under the cursor.
  void SetCursor(size_t row) const;

private:
  std::vector<Evas_Object *> rows_; // the canvas owns them
};
