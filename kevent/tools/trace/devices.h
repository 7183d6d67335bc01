// Names the input device that sent the last key, as the X server does.
#pragma once

#include <string>

namespace lumio::trace {

// Call it for each X generic event that the library receives.
void NoteGenericEvent(const void *event);

// Returns the device's name; until the server has named one, the library's guess; "-" without a display.
std::string CurrentDevice();

} // namespace lumio::trace
