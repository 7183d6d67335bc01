// One key on its way through the library: what the tracer knows about it, and how it prints it.
#pragma once

#include <string>
#include <vector>

#include "clock.h"
#include "log_listener.h"
#include "text.h"

namespace lumio::trace {

enum class Outcome {
  kNobodyAsked,
  kDeclined,
  kTaken,
  kBurst,
  kStale,
  kStaleRelease,
  kAging,
  kNoEvent,
  kNoKey,
};
constexpr int kOutcomes = 9;

// "burst"
const char *NameOf(Outcome outcome);

struct Asked {
  std::string domain;
  int priority;
  std::string symbol;
  Nanoseconds took;
  bool took_it;
};

// Lives from the moment the library receives the key until the library is done with it.
class KeyEvent : public LogListener {
public:
  KeyEvent(const char *name, bool press, unsigned timestamp);

  void Heard(const char *format, const char *message) override;
  void Answered(const Asked &asked);
  void WalkEnded() { walked_ = true; }
  // Prints what has not been printed, and records the key.
  void End();

  Outcome Result() const;
  // When the X server sent it, on the monotonic clock; kNotKnown for keys that the server did not send.
  Nanoseconds Posted() const { return posted_; }

private:
  bool IsWanted() const;
  bool IsPrintedAsItHappens() const;
  void AppendFacts(Text &text) const;
  void AppendEnding(Text &text) const;
  static void PrintAsked(const Asked &asked);
  void PrintHead();
  void PrintRest(); // what has not been printed as it happened
  void PrintJson() const;
  std::string Why() const;

  std::string name_;
  bool press_;
  unsigned timestamp_;
  std::string device_;
  Nanoseconds wall_;
  Nanoseconds begin_;
  Nanoseconds since_; // time since the last key; kNotKnown for the first one
  Nanoseconds posted_ = kNotKnown;
  Nanoseconds took_ = 0;
  const char *waited_for_ = nullptr;
  std::vector<Asked> asked_;
  int number_ = 0;                         // in the recording
  Outcome filter_ = Outcome::kNobodyAsked; // what the library's filters decided
  bool walked_ = false;
  bool head_printed_ = false;
};

} // namespace lumio::trace
