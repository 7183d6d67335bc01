// Records for each key which modules were asked, which one took it and how long that took.
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
  std::string device;             // X name of the device that sent it; empty if not known
  std::vector<std::string> asked; // modules, in the order they were asked
  std::string taker;              // the module that consumed the key, if any
  std::string unasked;            // why no module was asked
  double duration = 0;            // seconds until the last module answered
};

// Follows one key at a time and shows its journey when the journey ends.
class KeyJournal {
public:
  explicit KeyJournal(Presentation &screen) : screen_(screen) {}

  // Begins the journey of a key and ends that of the previous one.
  void Begin(const std::string &key, bool press, int source, const std::string &device);
  // Records that a module has answered for the current key.
  void Answered(const std::string &module, bool taken);
  // Records why the library has passed the current key on.
  void PassedOn(const std::string &why);
  // Ends the journey of the current key, if there is one.
  void End();

private:
  Presentation &screen_;
  std::optional<KeyJourney> current_;
  double begun_ = 0; // Ecore clock
};
