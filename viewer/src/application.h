// The viewer: starts and stops EFL, the window, the modules and the main loop in order.
#pragma once

#include <string>

#include "console.h"

struct Options {
  std::string stream;       // file of the transport stream to play; empty for what a script broadcasts
  std::string guide_source; // file of the programme guide; empty for the built-in one
  bool studio = false;      // take orders for the studio from standard input, in place of the built-in schedule
  bool grab = false;        // take all keys of the display
  bool remote = false;      // begin with the remote control on the screen
  bool still = false;       // keep everything on the screen still
};

// Runs the viewer until the user ends it: by key, by the window, by SIGINT or SIGTERM.
// Returns the exit status of the process.
int RunViewer(Console &console, const Options &options);
