// What the whole traced process shares: the options, the lock, and the output.
#pragma once

#include <mutex>

#include "options.h"
#include "text.h"

namespace lumio::trace {

const Options &TheOptions();

// Guards everything that the tracer knows about the modules. SIGUSR1 can ask for the state at any moment. If the lock
// is held at that moment, its holder prints the state when it releases the lock.
class Lock {
public:
  Lock();
  ~Lock();
  Lock(const Lock &) = delete;
  Lock &operator=(const Lock &) = delete;
};

// Prints the state on SIGUSR1, unless the program handles the signal. Call it again, with an address in Ecore, after
// Ecore was initialised or shut down.
void ListenForSignal(const void *ecore);
// Call it when the program handles the signal through Ecore.
void LeaveSignalToProgram();

// Prints the time with which every line of the trace begins, as in "20:15:01.204".
void AppendClock(Text &text, Nanoseconds wall);
// Prints seconds since the epoch, for JSON.
void AppendUnixTime(Text &text, Nanoseconds wall);

// Begins a line about an event with its time and kind; in JSON, with the object's first fields.
void AppendHead(Text &text, Nanoseconds wall, const char *kind);
// Begins a line that continues the event of the line before.
constexpr char kMore[] = "             |        ";
constexpr char kEnd[] = "             =        ";

// Writes `text` in one call, so that the lines of several threads never mix, and clears it.
void Put(Text &text);

} // namespace lumio::trace
