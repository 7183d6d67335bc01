// Where the viewer shows what happens. Modules know this interface only, whatever draws behind it.
#pragma once

#include <string>

struct KeyJourney;

// Called on the main-loop thread.
class Presentation {
public:
  virtual ~Presentation() = default;

  // Shows `text` as the named item of the screen, in place of what the item showed before.
  virtual void Show(const std::string &item, const std::string &text) = 0;
  // Takes the named item off the screen.
  virtual void Hide(const std::string &item) = 0;
  // Reports what became of one key event.
  virtual void ShowKey(const KeyJourney &journey) = 0;
};
