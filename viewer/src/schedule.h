// A broadcaster that runs by itself, so that every module has something to show: signal, programmes, captions,
// teletext, the broadcaster's application, and a recording now and then.
#pragma once

#include <Ecore.h>

#include "channels.h"

class Schedule {
public:
  // Begins at once if it is to run. Destroy it after the last choice of a channel.
  Schedule(bool run, Channels &channels);
  ~Schedule();
  Schedule(const Schedule &) = delete;
  Schedule &operator=(const Schedule &) = delete;

private:
  static Eina_Bool Tick(void *data);
  void Broadcast();
  void BroadcastProgrammes() const;

  int channel_ = 1; // that the viewer shows
  int second_ = 0;
  Ecore_Timer *timer_ = nullptr;
};
