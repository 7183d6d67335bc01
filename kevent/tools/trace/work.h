// What the main loop is kept busy with, and for how long.
#pragma once

#include "clock.h"
#include "text.h"

namespace lumio::trace {

// A callback that runs, from the object's construction to its destruction. What keeps the main loop too long is told
// when it ends.
class Work {
public:
  // Both texts outlive the object.
  Work(const char *module, const char *symbol);
  ~Work();
  Work(const Work &) = delete;
  Work &operator=(const Work &) = delete;

  Nanoseconds Elapsed() const { return Now() - begin_; }

private:
  Nanoseconds begin_;
  bool on_main_loop_;
};

// The main loop has come to an event that waited for it since `posted`. Tells when the loop was silent for too long
// without a callback that the tracer knows.
void NoteArrival(Nanoseconds posted);
// The main loop is about to wait for events.
void NoteIdle();

// What an event that waited since `posted` waited for: the last callback that kept the loop too long meanwhile; null
// when there was none. Counts it as the cost of that callback.
const char *WaitedFor(Nanoseconds posted);

// For the state: what runs now, and what kept the main loop. With the lock held or in a signal handler.
void AppendRunning(Text &text);
void PrintStalls(Text &text);

} // namespace lumio::trace
