// SIGINT and SIGTERM end the viewer in order, or within a second if anything hangs: while it starts, in a module, in a
// service that is stopped.
#pragma once

#include <Ecore.h>

class EndSignals {
public:
  // Ecore is up. Construct it before anything that may hang.
  EndSignals();
  ~EndSignals();
  EndSignals(const EndSignals &) = delete;
  EndSignals &operator=(const EndSignals &) = delete;

private:
  Ecore_Event_Handler *handler_;
};
