// When the main loop of a process ran, as far as the log shows.
#pragma once

#include <deque>
#include <string>

#include "log_line.h"

namespace keylog {

// The library logs on the main loop, so during a span without a line the main loop was idle or held up. The times of
// the keys tell which: a press carries the time at which the X server sent it, which shows how late it came. Only the
// part of a silence during which a key waited is the main loop's fault.
class MainLoop {
public:
  struct Silence {
    double seconds = LogLine::kUnknown;
    std::string last_asked; // the domain that was asked before it; may be empty
  };

  // Notes a line logged at `time`. `domain` is the last one that was asked before it.
  void Logged(double time, const std::string &last_asked);

  // Notes when the X server sent a press, on its clock, and when the library examined it, on the viewer's.
  void Sent(double server_seconds) { server_seconds_ = server_seconds; }
  void Examined(double viewer_seconds);

  // Notes that a press reached the handlers at `time`.
  void LetThrough(double time);

  // Returns the longest silence while keys waited, for a press that was dropped at `time` as stale, or in a burst.
  Silence BeforeStale(double time) const;
  Silence BeforeBurst(double time) const;

private:
  struct Gap {
    double begin, end;
    std::string last_asked;
  };

  Silence Longest(double since, double until) const;

  double last_line_ = LogLine::kUnknown;
  std::deque<Gap> gaps_; // the latest
  double server_seconds_ = 0;
  double clock_offset_ = 0; // the smallest difference of the clocks so far: of the press that waited least
  bool has_offset_ = false;
  double lateness_ = 0;            // of the press that was examined last, in seconds
  std::deque<double> let_through_; // since when the last presses that were let through had waited
};

} // namespace keylog
