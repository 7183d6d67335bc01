// A presentation on standard output: one line per event, in columns two or more blanks apart.
#pragma once

#include <string>

#include "presentation.h"

class Console : public Presentation {
public:
  void Show(const std::string &item, const std::string &text) override;
  void Hide(const std::string &item) override;
  void ShowKey(const KeyJourney &journey) override;
};
