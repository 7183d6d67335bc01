// When the main loop of a process ran, as far as the log shows.
#pragma once

#include <deque>
#include <string>

#include "log_line.h"

namespace keylog {

// The library logs on the main loop, so a span without a line is one in which the main loop was idle or held up. Which
// of the two it was, the times of the keys tell: a press carries the time at which the X server sent it, so that how
// late it came is known. Only the part of a silence in which a key was waiting is the main loop's fault.
class MainLoop {
public:
  struct Silence {
    double seconds = LogLine::kUnknown;
    std::string last_asked; // the domain that was asked before it; may be empty
  };

  // A line was logged at `time`, after `domain` was asked last.
  void Logged(double time, const std::string &last_asked);

  // The log tells when the X server sent a press, on its clock, and when the press was examined, on the viewer's.
  void Sent(double server_seconds) { server_seconds_ = server_seconds; }
  void Examined(double viewer_seconds);

  // A press was let through to the handlers, at `time`.
  void LetThrough(double time);

  // The longest silence while keys waited, for a press that was dropped at `time` as stale, or in a burst.
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
