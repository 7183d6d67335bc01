// Plays a recording to the program, on a thread of its own: each event at its recorded time, but not before the program
// has reached the previous one.
#pragma once

#include "clock.h"

namespace lumio::trace {

// Call it when the program has reached an event: on the main loop, which becomes idle after it, or on a thread of a
// service, which has handled it.
void NoteReplayed(bool on_main_loop);
// Call it when the main loop is idle. The first call starts the player.
void NoteReplayIdle();

// Call it when the program is about to ask a service for this, with the number of the call, counted from 1. Makes the
// service refuse the call if it did so in the recording.
int NoteRequest(const char *call);

// Call it when a handler of a key has answered after `took`. Waits until the handler has taken as long as in the
// recording and the keys that came meanwhile are there. Returns how long it has waited.
Nanoseconds HoldBack(int key, int handler, Nanoseconds took);

} // namespace lumio::trace
