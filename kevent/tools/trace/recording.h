// A recording, read from its file.
#pragma once

#include <map>
#include <string>
#include <utility>
#include <vector>

#include "clock.h"

namespace lumio::trace {

// Who handles an event.
enum class EventClass {
  kKey,          // the main loop
  kNotification, // the main loop
  kService,      // the service's own thread
  kOwn,          // the program does it by itself
  kTimer,        // the main loop; a timer of the program
  kCall,         // the main loop; what a thread of the program has handed over
  kPlug,         // the main loop
  kSilence,      // the main loop
  kEnd,          // nobody
};
constexpr int kEventClasses = 9;

struct RecordedEvent {
  Nanoseconds time = 0;           // when it was sent, since the main loop was idle for the first time
  std::string kind;               // "press", "signal", ...
  std::vector<std::string> words; // numbers and texts; bytes are a text
  EventClass event_class = EventClass::kEnd;
  std::string notification; // the line without its times; empty for other events
  // Whether it was sent while the main loop was busy, so that it is sent to a busy main loop again.
  bool is_queued = false;

  bool Is(EventClass other) const { return event_class == other; }
  // Whether this is a key that came before the main loop was idle after the previous key.
  bool IsInBurst() const { return Is(EventClass::kKey) && Number(2) != 0; }
  // Returns the number of the stall that a key waited for; 0 for none.
  int Stall() const { return static_cast<int>(Number(3)); }
  // Returns how long after its time stamp the main loop reached it; any number if the time stamp does not belong to
  // this computer's clock.
  Nanoseconds Late() const;
  // Returns when the main loop reached it.
  Nanoseconds Begin() const;
  long long Number(size_t word) const;
  const std::string &Word(size_t word) const;
};

// A time in which one thing kept the main loop.
struct Busy {
  Nanoseconds begin;
  Nanoseconds end;
  Nanoseconds own; // without what ran within it
};

struct Recording {
  std::vector<RecordedEvent> events;                    // to play
  std::map<int, Busy> holds;                            // by callback
  std::map<std::pair<std::string, int>, bool> refusals; // by call and its number
  std::map<int, bool> aging;                            // keys that found the aging mode on
  int banners = 0;                                      // shown before the recording; a bit for each
  std::string device;                                   // that sent keys before the recording; empty if none did
};

// Returns whether a key that is so late has a time stamp of this computer's clock.
constexpr bool IsLateness(Nanoseconds late) { return late >= -100 * kMillisecond && late <= 600 * kSecond; }

// Throws std::runtime_error with a text for the user.
Recording ReadRecording(const std::string &file);

} // namespace lumio::trace
