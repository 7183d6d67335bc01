// What the command asks of the library that it puts before the program: handed over in the environment.
#pragma once

#include <string>

#include "clock.h"

namespace lumio::trace {

// The variable. The library takes it out of the environment before the program sees it.
constexpr char kVariable[] = "LUMIO_TRACE";

struct Options {
  bool keys = true;     // trace keys
  bool others = true;   // trace banners, states and PVR notifications
  bool tv = true;       // trace the TV service's notifications
  bool dropped = false; // of keys, only those that reached nobody
  bool json = false;
  bool abort = false; // at the first mistake
  bool summary = false;
  Nanoseconds stall = 100 * kMillisecond;
  std::string only;    // a domain or module; empty for all
  int output = 2;      // descriptor
  int record = -1;     // descriptor, or -1
  std::string preload; // LD_PRELOAD as the program is to see it; empty when it was not set
};

std::string Write(const Options &options);
Options ReadOptions(const std::string &text);

} // namespace lumio::trace
