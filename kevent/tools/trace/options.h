// The options that the command passes, in the environment, to the library that it loads into the program.
#pragma once

#include <string>

#include "clock.h"

namespace lumio::trace {

// The variable's name. The library removes the variable before the program can see it.
constexpr char kVariable[] = "LUMIO_TRACE";

// What lumio-replay passes to lumio-trace: speed, 1 to skip waits, descriptor and file, separated by blanks.
constexpr char kReplayVariable[] = "LUMIO_REPLAY";

struct Options {
  bool keys = true;     // trace keys
  bool others = true;   // trace banners, states and PVR notifications
  bool tv = true;       // trace the TV service's notifications
  bool dropped = false; // of the keys, only those that no module received
  bool json = false;
  bool abort = false; // at the first mistake
  bool summary = false;
  Nanoseconds stall = 100 * kMillisecond;
  std::string only; // one domain or module; empty for all
  int output = 2;   // descriptor
  int record = -1;  // descriptor, or -1
  double speed = 1; // of the replay
  bool skip_waits = false;
  std::string replay;   // the recording to play; empty for none
  int replay_keys = -1; // descriptor that takes the keys to press and answers each with a byte
  std::string preload;  // LD_PRELOAD as the program must see it; empty if it was not set
};

std::string Write(const Options &options);
Options ReadOptions(const std::string &text);

} // namespace lumio::trace
