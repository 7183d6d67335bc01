// The program's own work on the main loop: its timers, and the calls that its threads hand over. Whether a timer ends
// before or after a key is a matter of microseconds, so a recording has each run in its place among the other events,
// and in a replay it runs there and nowhere else.
#pragma once

#include <string>

namespace lumio::trace {

// A recording names a timer by its function, and by the number of the timer among those with this function, counted
// from 1; a call by its function.

// Call these on the main-loop thread.
void RunTimer(const std::string &function, int number); // does nothing if the program has no such timer now
void RunCall(const std::string &function);              // runs the oldest one that waits
void LetTimersRun();                                    // by themselves again

// Returns whether a call of this function waits to be run.
bool IsCallWaiting(const std::string &function);

} // namespace lumio::trace
