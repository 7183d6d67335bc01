#pragma once

#include <Ecore_Input.h>

#include <string>

// Returns the X name of the key of an event; empty if the key has none. The library's log uses this name.
std::string KeyName(const void *event);

// Returns what the key means on the user's keyboard: the character that it types ("+", "m", in lower case), otherwise
// the name of its symbol ("Up"). The television's own keys go by their names. A key that is pressed together with Ctrl,
// Alt or Super is a key of its own: "Ctrl+c".
std::string KeySymbol(const void *event);
