// Requests to the X server over its own protocol. Each function opens and closes a connection of its own: Xlib exits
// when a connection breaks, so a server that ends later must not find one open.
#pragma once

#include <map>
#include <string>

#include "display.h"

namespace lumio {

// Returns the ids of the server's input devices by name. Throws std::runtime_error, like all functions here.
std::map<std::string, int> QueryDevices(const std::string &display_name);

// Adds the keys of a television's remote control to the desktop keys of a device. Returns the key codes by name.
std::map<std::string, int> SetKeymap(const std::string &display_name, int device_id);

void ChangePlug(const std::string &display_name, int device_id, Plug plug);

} // namespace lumio
