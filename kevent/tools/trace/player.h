// Plays a recording to the program, on a thread of its own: each event at its recorded time, but not before the program
// has handled the previous one. The program's clock follows the recording (program_clock.h), and the library receives
// what its decisions depend on as it did in the recording.
#pragma once

#include <Ecore_Input.h>

#include <string>

#include "program_clock.h"
#include "record.h"

namespace lumio::trace {

// Call it when the main loop is idle for the first time after the library was installed. Starts the player.
void StartReplay();
// Call it when the main loop has ended.
void EndReplay();
// Call it when the main loop is idle. Returns whether the library may know.
bool NoteReplayIdle();

bool IsReplaying();
// Returns whether the program's timers and calls wait for their places in the recording.
bool IsInRecordedOrder();
// Returns whether the player has sent this notification, which is one of the recording. The services send what they
// send by themselves, too: the program must not receive that.
bool IsOfReplay(const std::string &notification);

// Returns the word of the banners that were shown before the recording.
int RecordedBanners();

// Records a notification of a service's thread. Returns whether the program may receive it.
template <class Event> bool Admit(const Event &event) {
  if (!IsRecording() && !IsReplaying()) {
    return true;
  }
  const std::string text = TextOf(event);
  RecordService(text);
  return !IsReplaying() || IsOfReplay(text);
}

// Call these when the program reaches an event.
void BeginKey(Ecore_Event_Key *key); // gives it the recorded time stamp
void BeginNotification();
void BeginOwn(); // what the program does by itself
void BeginPlug();
// Call it when a service's thread has handled one.
void EndServiceCall();

// Call it when the program is about to ask a service for this, with the number of the call, counted from 1. Makes the
// service refuse the call if it did so in the recording.
int NoteRequest(const char *call);

// Returns how long the main loop was silent before the event that it reaches now: as recorded, or else `silence`.
Nanoseconds SilenceBefore(Nanoseconds silence);

// Returns the stall that the key which begins now waited for: as recorded, or else `stall`.
int WaitOfKey(int stall);

// A callback on the main loop that takes as long as in the recording.
struct Hold {
  int callback = 0;
  Nanoseconds begin = 0;
  Nanoseconds limit = kNoLimit; // of the callback that it runs in
};
Hold BeginHold(int callback);
// Waits until the callback has taken as long, and the events that came meanwhile are there.
void EndHold(const Hold &hold);
// Returns how long the callback itself kept the main loop: as recorded, or else `own`.
Nanoseconds OwnTime(const Hold &hold, Nanoseconds own);

} // namespace lumio::trace
