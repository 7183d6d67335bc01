// A recording, read from its file.
#pragma once

#include <map>
#include <string>
#include <utility>
#include <vector>

#include "clock.h"

namespace lumio::trace {

struct RecordedEvent {
  Nanoseconds time = 0;           // since the main loop was idle for the first time
  std::string kind;               // "press", "signal", ...
  std::vector<std::string> words; // numbers and texts; bytes are a text

  bool IsNotification() const {
    return kind == "signal" || kind == "program" || kind == "section" || kind == "pes" || kind == "caption" ||
           kind == "dsm";
  }
  // Whether the program does this by itself.
  bool IsOwn() const { return kind == "banner" || kind == "state"; }
  bool IsKey() const { return kind == "press" || kind == "release"; }
  // Whether this is a key that came before the main loop was done with the previous one.
  bool is_queued = false;
  long long Number(size_t word) const;
  const std::string &Word(size_t word) const;
};

struct Recording {
  std::vector<RecordedEvent> events;                    // to play
  std::map<std::pair<int, int>, Nanoseconds> holds;     // by key and handler
  std::map<std::pair<std::string, int>, bool> refusals; // by call and its number
  std::map<int, bool> aging;                            // keys that found the aging mode on
};

// Throws std::runtime_error with a text for the user.
Recording ReadRecording(const std::string &file);

} // namespace lumio::trace
