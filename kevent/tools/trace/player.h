// Plays a recording to the program, on a thread of its own: one event after the other, each when the program has got to
// the one before and the recorded time has come.
#pragma once

#include "clock.h"

namespace lumio::trace {

// The program has got to an event: on the main loop, which becomes idle after it, or on a thread of a service, which
// has handled it.
void NoteReplayed(bool on_main_loop);
// The main loop is idle; the first time, the player starts.
void NoteReplayIdle();

// The program is about to ask a service for this; the number of the call, counted from 1. Has the service refuse it
// when it did so when it was recorded.
int NoteRequest(const char *call);

// A handler of a key has answered after `took`. Waits for as long as it took when it was recorded, and until the keys
// are there that came meanwhile. Returns how long it has waited.
Nanoseconds HoldBack(int key, int handler, Nanoseconds took);

} // namespace lumio::trace
