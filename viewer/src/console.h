// A presentation on standard output: one line per event, in columns two or more blanks apart and in the order of their
// times.
#pragma once

#include <string>

#include "presentation.h"

class Console : public Presentation {
public:
  void Show(const std::string &item, const std::string &text, const Details &details) override;
  void Hide(const std::string &item) override;
  void Refresh() override;
  void BeginKey() override { key_is_open_ = true; }
  void ShowKey(const KeyJourney &journey) override;

  // Prints what the canvas shows for an item or key.
  void PrintCanvas(const std::string &item, const std::string &shown);

private:
  void Print(const std::string &kind, const std::string &item, const std::string &text);

  bool key_is_open_ = false; // its line comes before the waiting ones
  double printed_until_ = 0; // time of the last line that was printed before its key's
  std::string waiting_;      // lines
};
