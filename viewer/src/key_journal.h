// What becomes of each key: which modules were asked, who took it, how long it took.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "presentation.h"

struct KeyJourney {
  double time = 0;                // seconds since the epoch
  std::string key;                // X name of the key
  bool press = false;             // or release
  int source = 0;                 // LUMIO_EVENT_SOURCE_...
  std::vector<std::string> asked; // modules, in the order they were asked
  std::string taker;              // the module that consumed the key, if any
  bool passed_on = false;         // the library left the key to the handlers behind its own
  double duration = 0;            // seconds until the last module had answered
};

// Follows one key at a time and shows its journey when it has ended.
class KeyJournal {
public:
  explicit KeyJournal(Presentation &screen) : screen_(screen) {}

  // A key event has come. Ends the one before.
  void Begin(const std::string &key, bool press, int source);
  // A module has answered for the current key.
  void Answered(const std::string &module, bool taken);
  // The library has left the current key alone.
  void PassedOn();
  // Nothing more happens to the current key, if there is one.
  void End();

private:
  Presentation &screen_;
  std::optional<KeyJourney> current_;
  double begun_ = 0; // Ecore clock
};
