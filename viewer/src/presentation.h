// Shows what happens in the viewer. Modules know this interface only, not what draws behind it.
#pragma once

#include <string>

struct KeyJourney;

// All functions are called on the main-loop thread.
class Presentation {
public:
  virtual ~Presentation() = default;

  // Shows `text` as the named item of the screen and replaces what the item showed before.
  virtual void Show(const std::string &item, const std::string &text) = 0;
  // Removes the named item from the screen.
  virtual void Hide(const std::string &item) = 0;
  // Shows what happened to one key event.
  virtual void ShowKey(const KeyJourney &journey) = 0;
};
