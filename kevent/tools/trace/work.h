// Measures what keeps the main loop busy, and for how long.
#pragma once

#include "clock.h"
#include "player.h"
#include "text.h"

namespace lumio::trace {

// A running callback: it runs from the object's construction to its destruction. If it kept the main loop too long, the
// tracer reports it when it ends.
class Work {
public:
  // Both texts must outlive the object.
  Work(const char *module, const char *symbol);
  ~Work();
  Work(const Work &) = delete;
  Work &operator=(const Work &) = delete;

  // Call it when the callback has returned, or leave it to the destructor. Returns how long it took: in a replay, as
  // long as in the recording.
  Nanoseconds End();

private:
  Nanoseconds begin_;
  Nanoseconds end_ = kNotKnown;
  Nanoseconds own_ = 0; // without what ran within it
  bool on_main_loop_;
  Hold hold_;
};

// Call it when the main loop has reached an event that waited for it since `posted`. Reports a silence of the loop that
// was too long if no callback that the tracer knows explains it.
void NoteArrival(Nanoseconds posted);
// Call it when the main loop is about to wait for events.
void NoteIdle();

// Returns what a key that waited since `posted` waited for: the number of the last stall in that time, counted from 1;
// 0 if there was none.
int StallSince(Nanoseconds posted);
// Adds a key to what this stall cost. Returns who stalled; null for none.
const char *WaitedFor(int stall);

// Print, for the state, what runs now and what kept the main loop. Call them with the lock held or in a signal handler.
void AppendRunning(Text &text);
void PrintStalls(Text &text);

} // namespace lumio::trace
