// A presentation that records the keys it is shown.
#pragma once

#include <string>
#include <vector>

#include "key_journal.h"

class KeyScreen : public Presentation {
public:
  void Show(const std::string &, const std::string &, const Details &) override {}
  void Hide(const std::string &) override {}
  void ShowKey(const KeyJourney &journey) override { journeys.push_back(journey); }

  std::vector<KeyJourney> journeys;
};
