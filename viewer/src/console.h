// Prints one line per event to standard output, in columns separated by two or more spaces.
#pragma once

#include <string>

#include "presentation.h"

class Console : public Presentation {
public:
  void Show(const std::string &item, const std::string &text) override;
  void Hide(const std::string &item) override;
  void ShowKey(const KeyJourney &journey) override;
};
