// Checks which parts of EFL are initialised. It does not link EFL: a program may load EFL later, or never.
#pragma once

namespace lumio::trace {

bool IsEinaUp();
bool IsEcoreUp();
bool IsEcoreEventUp();
// Returns whether DISPLAY names a display and the process has not connected to it.
bool IsXMissing();
bool IsXUp();
// Returns whether this is the thread that called ecore_init; false before that call.
bool IsMainLoopThread();

} // namespace lumio::trace
