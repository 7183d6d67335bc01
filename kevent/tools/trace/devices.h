// Which input device sent the last key, by its name at the X server.
#pragma once

#include <string>

namespace lumio::trace {

// To be told of each X generic event that the library gets.
void NoteGenericEvent(const void *event);

// Name of the device, or what the library takes it for as long as the server has not told; "-" without a display.
std::string CurrentDevice();

} // namespace lumio::trace
