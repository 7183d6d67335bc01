// Starts and ends EFL, the window, the modules and the main loop, in order.
#pragma once

#include <string>

#include "presentation.h"

struct Options {
  std::string guide_source; // file of the programme guide; empty for the built-in one
  bool studio = false;      // read orders for the studio from standard input
};

// Runs the viewer until a key, the window, SIGINT or SIGTERM ends it. Returns the exit status of the process.
int RunViewer(Presentation &screen, const Options &options);
