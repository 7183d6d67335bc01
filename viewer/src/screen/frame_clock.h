// The clock of everything that moves on the screen: a timer of the main loop. EFL's own clock runs on a thread, and
// that thread complains on standard error when the machine is busy.
#pragma once

#include <Ecore.h>

class FrameClock {
public:
  FrameClock();
  ~FrameClock();
  FrameClock(const FrameClock &) = delete;
  FrameClock &operator=(const FrameClock &) = delete;

private:
  static void Begin(void *data);
  static void End(void *data);

  Ecore_Timer *timer_ = nullptr; // while something moves
};
