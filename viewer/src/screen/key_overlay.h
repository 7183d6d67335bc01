// Shows the last keys and what happened to them on rows of the theme.
#pragma once

#include <Ecore.h>

#include <array>
#include <deque>
#include <string>

#include "rows.h"

struct KeyJourney;

class KeyOverlay {
public:
  explicit KeyOverlay(const Canvas &canvas);
  ~KeyOverlay();
  KeyOverlay(const KeyOverlay &) = delete;
  KeyOverlay &operator=(const KeyOverlay &) = delete;

  // Adds a key at the top and removes the oldest one.
  void Show(const KeyJourney &journey);
  // While the overlay is not shown its rows are not drawn either.
  void SetShown(bool shown);
  // Returns a row as the theme shows it, in the columns of a console line. Row 0 is the newest.
  std::string Row(size_t row);

private:
  static constexpr size_t kColumns = 7;
  using Line = std::array<std::string, kColumns>;

  void WriteSoon();
  void Write();
  void WriteRow(size_t row, const Line &line);

  Rows rows_;
  std::deque<Line> lines_; // the newest first
  bool shown_ = false;
  bool written_ = true;
  Ecore_Job *job_ = nullptr; // writes once the waiting keys are dispatched
};
