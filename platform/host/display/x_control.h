// What is asked of the X server over its own protocol. Each function uses a connection of its own for as long as it
// runs, so that a server that ends later does not end this program: Xlib exits when a connection breaks.
#pragma once

#include <map>
#include <string>

#include "display.h"

namespace lumio {

// Ids of the server's input devices by name. Throws std::runtime_error, like all others here.
std::map<std::string, int> QueryDevices(const std::string &display_name);

// Gives a device the keys of a television's remote control, beside those of a desktop's keyboard. Returns the key codes
// by name.
std::map<std::string, int> SetKeymap(const std::string &display_name, int device_id);

void ChangePlug(const std::string &display_name, int device_id, Plug plug);

} // namespace lumio
