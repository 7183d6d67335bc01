// SIGINT and SIGTERM end the viewer in order, or within a second if a module keeps the main loop busy.
#pragma once

#include <Ecore.h>

class EndSignals {
public:
  EndSignals();
  ~EndSignals();
  EndSignals(const EndSignals &) = delete;
  EndSignals &operator=(const EndSignals &) = delete;

private:
  Ecore_Event_Handler *handler_;
};
