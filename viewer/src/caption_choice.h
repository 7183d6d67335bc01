// Chooses what to show where a service carries the same captions twice, as teletext and as line 21.
#pragma once

#include <TVServiceTypes.h>

#include <deque>
#include <optional>
#include <string>

// Of several languages it chooses the one that comes first. Each caption is shown when its first source has it.
class CaptionChoice {
public:
  // Returns whether the caption is to be shown or, if it is empty, the one before to vanish.
  bool Accepts(const TSCaption &caption);
  // Call it when another service is shown.
  void Reset();

private:
  struct Shown {
    std::string text;
    unsigned long long pts;
  };

  std::optional<int> language_;
  std::deque<Shown> shown_; // the newest last
};
