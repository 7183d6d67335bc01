#pragma once

#include <Ecore_Input.h>

#include <string>

// Returns the X name of the key of an event; empty if the key has none.
inline std::string KeyName(const void *event) {
  const char *name = static_cast<const Ecore_Event_Key *>(event)->keyname;
  return name ? name : "";
}
