// The monotonic clock that the program reads. While a session is replayed, it follows the recording: it goes as fast as
// the computer's, but stops at each event until the program has got to the event, however busy the machine is. Thus
// timers end before the same events as in the recording.
#pragma once

#include <limits>

#include "clock.h"

namespace lumio::trace {

constexpr Nanoseconds kNoLimit = std::numeric_limits<Nanoseconds>::max();

// Stops the clock when it comes to `limit`, or lets it go on. A limit in the past stops it at once.
void LimitClock(Nanoseconds limit);

// Sets another limit for the time of a callback; kNoLimit ends it, and the limit from before counts again. Returns the
// previous limit of this kind.
Nanoseconds LimitCallback(Nanoseconds limit);

// Moves the clock forward to `time`, and its limits with it. A clock that is past the time stays as it is.
void MoveClockTo(Nanoseconds time);

// Returns the computer's monotonic clock.
Nanoseconds ComputerClock();

// Returns when the clock has come to `time`; false if it was stopped before, for so long that it will not come.
bool WaitForClock(Nanoseconds time);

} // namespace lumio::trace
