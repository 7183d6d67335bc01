// The last keys and what became of them, on rows of the theme.
#pragma once

#include <string>

#include "rows.h"

struct KeyJourney;

class KeyOverlay {
public:
  explicit KeyOverlay(const Canvas &canvas);

  // The newest key comes on top; the oldest one leaves.
  void Show(const KeyJourney &journey);
  // The newest row, as the theme has it, in the columns of a line of the console.
  std::string Newest() const { return Row(0); }
  std::string Row(size_t row) const;

private:
  Rows rows_;
};
