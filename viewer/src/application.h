// The viewer: EFL, the window, the modules and the main loop, up and down in order.
#pragma once

#include <string>

#include "presentation.h"

struct Options {
  std::string guide_source; // file of the programme guide; empty for the built-in one
  bool studio = false;      // take orders for the studio from standard input
};

// Runs the viewer until the user ends it: by key, by the window, by SIGINT or SIGTERM.
// Returns the exit status of the process.
int RunViewer(Presentation &screen, const Options &options);
