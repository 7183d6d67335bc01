#pragma once

#include <Ecore_Input.h>

#include <string>

// The X name of the key of an event; empty for a key without one.
inline std::string KeyName(const void *event) {
  const char *name = static_cast<const Ecore_Event_Key *>(event)->keyname;
  return name != nullptr ? name : "";
}
