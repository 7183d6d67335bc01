// What is up of EFL, without being linked with it: a program may bring it later, or never.
#pragma once

namespace lumio::trace {

bool IsEinaUp();
bool IsEcoreUp();
bool IsEcoreEventUp();
// Whether there is a display to connect to, and nobody has connected to it.
bool IsXMissing();
bool IsXUp();
// On the thread that called ecore_init. False before.
bool IsMainLoopThread();

} // namespace lumio::trace
