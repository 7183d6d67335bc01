// The states of this viewer, which the library leaves to the application.
#pragma once

#include <LumioStateSubscriber.h>

enum ELUMIO_STATE : int {
  VIEWER_STATE_LIVE = 0,    // a programme is on the screen
  VIEWER_STATE_STANDBY = 1, // the screen is off
  VIEWER_STATE_CLOSING = 2  // the viewer is about to end
};
