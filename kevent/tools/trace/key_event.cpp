#include "key_event.h"

#include <algorithm>
#include <cstring>

#include "devices.h"
#include "efl.h"
#include "player.h"
#include "record.h"
#include "recording.h"
#include "session.h"
#include "work.h"

namespace lumio::trace {

namespace {

struct Filter {
  const char *message; // its beginning
  Outcome outcome;
};

constexpr Filter kFilters[] = {
    {"skip _key_cb", Outcome::kBurst},
    {"do not process the key in aging mode", Outcome::kAging},
    {"Event information is NULL", Outcome::kNoEvent},
    {"Invalid event type", Outcome::kNoKey},
    {"key ignored", Outcome::kStale},
    {"key released ignored", Outcome::kStaleRelease},
};

struct Words {
  const char *name;
  const char *text;
};

constexpr Words kWords[kOutcomes] = {
    {"nobody asked", "nobody has a handler for it"},
    {"declined", "taken by nobody"},
    {"taken", "taken by "},
    {"burst", "dropped: burst, two keys came since the main loop was last idle"},
    {"stale", "dropped: stale, it waited while the application was not ready"},
    {"stale release", "dropped: release after an ignored press"},
    {"aging", "passed on: factory aging mode"},
    {"no event", "passed on: the event is null"},
    {"no key", "passed on: not a key event"},
};

bool IsDropped(Outcome outcome) { return outcome >= Outcome::kBurst && outcome <= Outcome::kAging; }

Nanoseconds Lateness(unsigned timestamp, Nanoseconds now) {
  const auto late = static_cast<int>(static_cast<unsigned>(now / kMillisecond) - timestamp);
  return late * kMillisecond + now % kMillisecond;
}

// The X server counts milliseconds of the monotonic clock, in 32 bits. A number that cannot be such a time comes from a
// server on another computer, or from an event that the program made up.
Nanoseconds PostedAt(unsigned timestamp, Nanoseconds now) {
  const Nanoseconds late = Lateness(timestamp, now);
  return IsXUp() && IsLateness(late) ? now - std::max<Nanoseconds>(late, 0) : kNotKnown;
}

Nanoseconds g_last_key = kNotKnown; // used on the main-loop thread only

} // namespace

const char *NameOf(Outcome outcome) { return kWords[static_cast<int>(outcome)].name; }

KeyEvent::KeyEvent(const char *name, bool press, unsigned timestamp)
    : name_(name), press_(press), timestamp_(timestamp), device_(CurrentDevice()), wall_(WallClock()), begin_(Now()),
      since_(g_last_key == kNotKnown ? kNotKnown : begin_ - g_last_key), posted_(PostedAt(timestamp, begin_)) {
  g_last_key = begin_;
  NoteArrival(posted_);
  const int stall = WaitOfKey(StallSince(posted_));
  waited_for_ = WaitedFor(stall);
  number_ =
      RecordKey(name_, press_, device_, stall, posted_ == kNotKnown ? begin_ : posted_, Lateness(timestamp, begin_));
}

// The library logs these messages for the key itself only: a key that comes while a handler runs has its own listener.
void KeyEvent::Heard(const char *format, const char *) {
  for (const Filter &filter : kFilters) {
    if (strncmp(format, filter.message, strlen(filter.message)) == 0) {
      filter_ = filter.outcome;
    }
  }
}

void KeyEvent::Answered(const Asked &asked) {
  asked_.push_back(asked);
  if (IsPrintedAsItHappens()) {
    PrintHead();
    PrintAsked(asked);
  }
}

void KeyEvent::End() {
  took_ = Now() - begin_;
  if (Result() == Outcome::kAging) {
    RecordAging(number_);
  }
  if (!IsWanted()) {
    return;
  }
  if (TheOptions().json) {
    PrintJson();
  } else {
    PrintRest();
  }
}

Outcome KeyEvent::Result() const {
  if (filter_ != Outcome::kNobodyAsked || asked_.empty()) {
    return filter_;
  }
  return asked_.back().took_it ? Outcome::kTaken : Outcome::kDeclined;
}

bool KeyEvent::IsPrintedAsItHappens() const {
  const Options &options = TheOptions();
  return options.keys && !options.json && !options.dropped && options.only.empty();
}

bool KeyEvent::IsWanted() const {
  const Options &options = TheOptions();
  const bool concerns = options.only.empty() || std::any_of(asked_.begin(), asked_.end(), [&](const Asked &asked) {
                          return asked.domain == options.only;
                        });
  return options.keys && concerns && (!options.dropped || IsDropped(Result()));
}

// --- Text ------------------------------------------------------------------------------------------------------------

void KeyEvent::AppendFacts(Text &text) const {
  AppendHead(text, wall_, press_ ? "press" : "release");
  text.AppendColumn(name_.c_str(), 24);
  text.Append(" ");
  text.AppendColumn(device_.c_str(), 22);
  if (since_ != kNotKnown) {
    text.Append("  +%lld.%03lld s", static_cast<long long>(since_ / kSecond),
                static_cast<long long>(since_ % kSecond / kMillisecond));
  }
  text.Append("  X %u.%03u", timestamp_ / 1000, timestamp_ % 1000);
  if (posted_ != kNotKnown) {
    text.Append(", %lld ms late", static_cast<long long>((begin_ - posted_) / kMillisecond));
  }
  text.Append("\n");
}

void KeyEvent::PrintAsked(const Asked &asked) {
  Text text;
  text.Append("%s", kMore);
  text.AppendColumn(asked.domain.c_str(), 18);
  text.Append(" %d  %-9s ", asked.priority, asked.took_it ? "took it" : "passed on");
  text.AppendDurationColumn(asked.took, 10);
  text.Append("  ");
  text.AppendClean(asked.symbol.c_str());
  text.Append("\n");
  Put(text);
}

void KeyEvent::PrintHead() {
  if (!head_printed_) {
    Text text;
    AppendFacts(text);
    Put(text);
    head_printed_ = true;
  }
}

void KeyEvent::PrintRest() {
  PrintHead();
  if (!IsPrintedAsItHappens()) {
    std::for_each(asked_.begin(), asked_.end(), PrintAsked);
  }
  Text text;
  AppendEnding(text);
  Put(text);
}

std::string KeyEvent::Why() const {
  const Outcome outcome = Result();
  std::string why = kWords[static_cast<int>(outcome)].text;
  if (outcome == Outcome::kTaken) {
    why += asked_.back().domain;
  } else if (outcome == Outcome::kNobodyAsked && !walked_) {
    why = "dropped: the library did not log why";
  }
  return why;
}

void KeyEvent::AppendEnding(Text &text) const {
  text.Append("%s", kEnd);
  text.AppendClean(Why().c_str());
  if (asked_.size() > 1) {
    text.Append(", ");
    text.AppendDuration(took_);
    text.Append(" in all");
  }
  if (waited_for_) {
    text.Append("; waited for ");
    text.AppendClean(waited_for_);
  }
  text.Append("\n");
}

// --- JSON ------------------------------------------------------------------------------------------------------------

void KeyEvent::PrintJson() const {
  Text text;
  AppendHead(text, wall_, "key");
  text.Append(",\"key\":");
  text.AppendQuoted(name_.c_str());
  text.Append(",\"kind\":\"%s\",\"device\":", press_ ? "press" : "release");
  text.AppendQuoted(device_.c_str());
  text.Append(",\"x_ms\":%u,\"since_ms\":", timestamp_);
  text.AppendMilliseconds(since_);
  text.Append(",\"late_ms\":");
  text.AppendMilliseconds(posted_ == kNotKnown ? kNotKnown : begin_ - posted_);
  text.Append(",\"asked\":[");
  const char *separator = "";
  for (const Asked &asked : asked_) {
    if (text.IsNearlyFull()) {
      text.Append(",{\"more\":true}");
      break;
    }
    text.Append("%s{\"domain\":", separator);
    text.AppendQuoted(asked.domain.c_str());
    text.Append(",\"priority\":%d,\"symbol\":", asked.priority);
    text.AppendQuoted(asked.symbol.c_str());
    text.Append(",\"took_ms\":");
    text.AppendMilliseconds(asked.took);
    text.Append(",\"took_it\":%s}", asked.took_it ? "true" : "false");
    separator = ",";
  }
  text.Append("],\"outcome\":\"%s\",\"taker\":", NameOf(Result()));
  text.AppendQuoted(Result() == Outcome::kTaken ? asked_.back().domain.c_str() : "");
  text.Append(",\"waited_for\":");
  text.AppendQuoted(waited_for_ ? waited_for_ : "");
  text.Append(",\"took_ms\":");
  text.AppendMilliseconds(took_);
  text.Append("}\n");
  Put(text);
}

} // namespace lumio::trace
