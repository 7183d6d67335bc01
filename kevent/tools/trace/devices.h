// Names the input device that sent the last key, as the X server does.
#pragma once

#include <string>

namespace lumio::trace {

// Call it for each X generic event that the library receives.
void NoteGenericEvent(const void *event);

// Learns which device has sent the last key so far, before the first key. Returns its name; empty if no key was sent.
std::string LearnDevice();

// Returns the device's name; if the server names none, the library's guess; "-" without a display.
std::string CurrentDevice();

} // namespace lumio::trace
