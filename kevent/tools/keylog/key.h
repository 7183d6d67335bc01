// A key, as a log describes it.
#pragma once

#include <algorithm>
#include <string>
#include <vector>

#include "log_line.h"

namespace keylog {

// What happened to a key. If the log does not say, the outcome is not known.
enum class Outcome {
  kTaken,
  kDeclined,    // every handler that was asked passed the key on
  kNobodyAsked, // no module had a handler for it
  kDropped,     // Key::reason says why
  kWaiting,     // a handler has not answered yet
  kNotKnown,    // Key::reason says why
};

constexpr char kUnknownDevice[] = "unknown device";

struct Key {
  long line = 0;                    // line of the log where the key begins
  std::string clock;                // time of that line as the log prints it; empty if there is none
  std::string date;                 // the same for its date
  double time = LogLine::kUnknown;  // the same in seconds
  double gap = LogLine::kUnknown;   // seconds since the key before
  double ended = LogLine::kUnknown; // when the dispatch ended, in seconds
  int process = -1;                 // the id, or -1
  std::string name;                 // empty if the log does not name it
  std::string kind;                 // "press" or "release"; empty if the log does not say
  std::string device = kUnknownDevice;
  std::vector<std::string> asked;     // domains, in order
  std::string taken_by;               // domain
  int priority = 0;                   // of the handler that took it
  std::string reason;                 // of kDropped and kNotKnown
  double silence = LogLine::kUnknown; // seconds for which the main loop logged nothing before it dropped the key
  std::string last_asked;             // the domain that was asked before the silence; may be empty
  Outcome outcome = Outcome::kNotKnown;

  bool timed = false;   // the staleness filter has examined it
  bool open = true;     // more lines of it may follow
  bool over = false;    // its dispatch has ended
  bool damaged = false; // lines may be missing since it began
  bool shown = false;   // it has been printed, as kWaiting

  double Duration() const { return time < 0 || ended < 0 ? LogLine::kUnknown : ended - time; }
  bool Is(const std::string &a_name, const std::string &a_kind) const {
    return open && !asked.empty() && name == a_name && kind == a_kind;
  }
  bool HasAsked(const std::string &domain) const {
    return std::find(asked.begin(), asked.end(), domain) != asked.end();
  }
};

} // namespace keylog
