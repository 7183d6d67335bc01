// What holds for the whole traced process: the options, the lock over what is known, and what is written.
#pragma once

#include <mutex>

#include "options.h"
#include "text.h"

namespace lumio::trace {

const Options &TheOptions();

// Guards all that the tracer knows of the modules. SIGUSR1 asks for the state at any moment: when the lock is held
// then, whoever holds it prints the state as it gives the lock back.
class Lock {
public:
  Lock();
  ~Lock();
  Lock(const Lock &) = delete;
  Lock &operator=(const Lock &) = delete;
};

// Tells the state on SIGUSR1, unless the program handles the signal. To be called again with an address in Ecore after
// that has come up or gone.
void ListenForSignal(const void *ecore);
// The program handles the signal by way of Ecore.
void LeaveSignalToProgram();

// "20:15:01.204", as every line of the trace begins.
void AppendClock(Text &text, Nanoseconds wall);
// Seconds since the epoch for JSON.
void AppendUnixTime(Text &text, Nanoseconds wall);

// The beginning of a line about an event: time and kind. In JSON: the object's first fields.
void AppendHead(Text &text, Nanoseconds wall, const char *kind);
// The beginning of a line that goes on with the event of the line before.
constexpr char kMore[] = "             |        ";
constexpr char kEnd[] = "             =        ";

// Writes what is in `text` at once, so that lines of several threads are never mixed, and clears it.
void Put(Text &text);

} // namespace lumio::trace
