// Shows what happens in the viewer. Modules know this interface only, not what draws behind it.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

struct KeyJourney;

// What an item has besides its text. A presentation without room for it leaves it out.
struct Details {
  std::vector<std::string> entries = {}; // of a list
  size_t cursor = 0;                     // the entry under the cursor
  std::int64_t start = 0;                // of a programme, in seconds since the epoch
  std::int64_t end = 0;
};

// All functions are called on the main-loop thread.
class Presentation {
public:
  virtual ~Presentation() = default;

  // Shows `text` as the named item of the screen and replaces what the item showed before.
  virtual void Show(const std::string &item, const std::string &text, const Details &details = {}) = 0;
  // Removes the named item from the screen.
  virtual void Hide(const std::string &item) = 0;
  // Draws immediately what was shown so far. A module calls it before work that keeps the main loop busy.
  virtual void Refresh() {}
  // Announces a key event. What is shown until ShowKey is a consequence of the key.
  virtual void BeginKey() {}
  // Shows what happened to the key event.
  virtual void ShowKey(const KeyJourney &journey) = 0;
};
