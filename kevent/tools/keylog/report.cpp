#include "report.h"

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <new>

namespace keylog {
namespace {

constexpr size_t kSlowest = 5; // how many the summary names

std::string Format(const char *format, ...) __attribute__((format(printf, 1, 2)));

std::string Format(const char *format, ...) {
  char *text = nullptr;
  va_list arguments;
  va_start(arguments, format);
  const int length = vasprintf(&text, format, arguments);
  va_end(arguments);
  if (length < 0) {
    throw std::bad_alloc();
  }
  std::string result(text, static_cast<size_t>(length));
  free(text);
  return result;
}

// The length of the UTF-8 sequence at the beginning of `text`, or 0 if there is no valid one.
size_t SequenceLength(std::string_view text) {
  const auto first = static_cast<unsigned char>(text[0]);
  const size_t length = first < 0x80   ? 1
                        : first < 0xc2 ? 0
                        : first < 0xe0 ? 2
                        : first < 0xf0 ? 3
                        : first < 0xf5 ? 4
                                       : 0;
  if (length > text.size()) {
    return 0;
  }
  for (size_t i = 1; i < length; ++i) {
    const auto next = static_cast<unsigned char>(text[i]);
    const unsigned char low = i > 1 ? 0x80 : first == 0xe0 ? 0xa0 : first == 0xf0 ? 0x90 : 0x80;
    const unsigned char high = i > 1 ? 0xbf : first == 0xed ? 0x9f : first == 0xf4 ? 0x8f : 0xbf;
    if (next < low || next > high) {
      return 0;
    }
  }
  return length;
}

// C0 and C1 controls, and delete.
bool IsControl(std::string_view sequence) {
  const auto first = static_cast<unsigned char>(sequence[0]);
  return first < 0x20 || first == 0x7f || (first == 0xc2 && static_cast<unsigned char>(sequence[1]) < 0xa0);
}

std::string Padded(std::string text, size_t columns) {
  const auto is_start = [](char c) { return (static_cast<unsigned char>(c) & 0xc0) != 0x80; };
  const auto width = static_cast<size_t>(std::count_if(text.begin(), text.end(), is_start));
  return width < columns ? text + std::string(columns - width, ' ') : text;
}

std::string Joined(const std::vector<std::string> &words, size_t count) {
  std::string joined;
  for (size_t i = 0; i < count; ++i) {
    joined += (i ? ", " : "") + Escaped(words[i]);
  }
  return joined;
}

const char *OutcomeName(const Key &key) {
  switch (key.outcome) {
  case Outcome::kTaken:
    return "taken";
  case Outcome::kDeclined:
    return "declined by all who were asked";
  case Outcome::kNobodyAsked:
    return "nobody asked";
  case Outcome::kDropped:
    return key.reason.c_str();
  case Outcome::kWaiting:
    return "no answer so far";
  default:
    return "not known";
  }
}

std::string Story(const Key &key) {
  if (key.outcome == Outcome::kTaken) {
    std::string story = Format("taken by %s at priority %d", Escaped(key.taken_by).c_str(), key.priority);
    if (key.asked.empty()) {
      story += "; who was asked before is not known";
    } else if (key.asked.size() > 1) {
      story += "; declined by " + Joined(key.asked, key.asked.size() - 1);
    }
    return story;
  }
  std::string story = OutcomeName(key);
  if (key.outcome == Outcome::kNotKnown) {
    story += " (" + key.reason + ")";
  }
  if (!key.asked.empty()) {
    story += (key.outcome == Outcome::kNotKnown ? "; asked: " : ": ") + Joined(key.asked, key.asked.size());
  }
  return story;
}

std::string SilenceOf(const Key &key) {
  std::string text =
      Format(key.silence < 0.1 ? "main loop silent for %.3f s" : "main loop silent for %.1f s", key.silence);
  return key.last_asked.empty() ? text : text + ", last asked: " + Escaped(key.last_asked);
}

std::string NameOf(const Key &key) { return key.name.empty() ? "(not logged)" : Escaped(key.name); }

std::string KindOf(const Key &key) { return key.kind.empty() ? "?" : key.kind; }

std::string Quoted(std::string_view text) {
  std::string quoted = "\"";
  for (const char c : Escaped(text)) {
    quoted += c == '"' || c == '\\' ? std::string{'\\', c} : std::string(1, c);
  }
  return quoted + "\"";
}

std::string QuotedOrNull(std::string_view text) { return text.empty() ? "null" : Quoted(text); }

std::string SecondsOrNull(double seconds) { return seconds < 0 ? "null" : Format("%.3f", seconds); }

std::string TimeOf(const Key &key) { return key.date.empty() ? key.clock : key.date + " " + key.clock; }

std::string JsonOf(const Key &key) {
  std::string asked;
  for (const std::string &domain : key.asked) {
    asked += (asked.empty() ? "" : ",") + Quoted(domain);
  }
  std::string json =
      Format("{\"line\":%ld,\"time\":%s,\"gap\":%s,\"process\":%s", key.line, QuotedOrNull(TimeOf(key)).c_str(),
             SecondsOrNull(key.gap).c_str(), key.process < 0 ? "null" : std::to_string(key.process).c_str());
  json += ",\"key\":" + QuotedOrNull(key.name) + ",\"kind\":" + QuotedOrNull(key.kind) +
          ",\"device\":" + (key.device == kUnknownDevice ? "null" : Quoted(key.device)) + ",\"asked\":[" + asked + "]";
  json += ",\"outcome\":" + Quoted(OutcomeName(key));
  if (key.outcome == Outcome::kNotKnown) {
    json += ",\"why\":" + Quoted(key.reason);
  }
  if (key.outcome == Outcome::kTaken) {
    json += ",\"taken_by\":" + Quoted(key.taken_by) + ",\"priority\":" + std::to_string(key.priority);
  }
  json += ",\"duration\":" + SecondsOrNull(key.Duration());
  if (key.silence >= 0) {
    json += ",\"silence\":" + SecondsOrNull(key.silence) + ",\"last_asked\":" + QuotedOrNull(key.last_asked);
  }
  return json + "}";
}

std::string JsonOf(const std::map<std::string, long> &counts) {
  std::string json;
  for (const auto &[name, count] : counts) {
    json += (json.empty() ? "" : ",") + Quoted(name) + ":" + std::to_string(count);
  }
  return "{" + json + "}";
}

} // namespace

std::string Escaped(std::string_view text) {
  std::string escaped;
  while (!text.empty()) {
    const size_t length = SequenceLength(text);
    if (length == 0 || IsControl(text)) {
      escaped += Format("\\x%02x", static_cast<unsigned char>(text[0]));
      text.remove_prefix(1);
    } else {
      escaped += text.substr(0, length);
      text.remove_prefix(length);
    }
  }
  return escaped;
}

void Report::Print(const Key &key) {
  Count(key);
  if (form_ == kText) {
    PrintText(key);
  } else if (form_ == kJson) {
    out_ << JsonOf(key) << '\n';
  }
}

void Report::Count(const Key &key) {
  if (key.outcome == Outcome::kWaiting) {
    return; // it comes again
  }
  ++total_;
  ++outcomes_[OutcomeName(key)];
  if (key.outcome == Outcome::kTaken) {
    ++takers_[Escaped(key.taken_by)];
  }
  if (key.silence > silent_.silence) {
    silent_ = key;
  }
  const double seconds = key.Duration();
  if (seconds > 0 && (slowest_.size() < kSlowest || seconds > slowest_.back().seconds)) {
    const auto place =
        std::find_if(slowest_.begin(), slowest_.end(), [seconds](const Slow &slow) { return slow.seconds < seconds; });
    slowest_.insert(place, {seconds, key});
    slowest_.resize(std::min(slowest_.size(), kSlowest));
  }
}

void Report::PrintText(const Key &key) {
  if (!has_printed_) {
    out_ << "  line  clock             gap  key                  kind    device           took  outcome\n";
  }
  if (key.process != process_ && key.process >= 0) {
    out_ << "-- process " << key.process << "\n";
    process_ = key.process;
  }
  has_printed_ = true;
  const std::string gap = key.gap < 0 ? "-" : Format("+%.3f", key.gap);
  const double seconds = key.Duration();
  const std::string took = seconds < 0 ? "-" : Format("%.3f", seconds);
  out_ << Format("%6ld  %-12s %8s  ", key.line, key.clock.empty() ? "-" : key.clock.c_str(), gap.c_str())
       << Padded(NameOf(key), 20) << ' ' << Padded(KindOf(key), 8) << Padded(key.device, 14)
       << Format("%7s  ", took.c_str()) << Story(key) << '\n';
  if (key.silence >= 0) {
    out_ << "        " << SilenceOf(key) << '\n';
  }
}

void Report::PrintTotals() {
  out_ << Format("%6ld  keys\n", total_);
  for (const auto &[outcome, count] : outcomes_) {
    out_ << Format("%6ld  ", count) << outcome << '\n';
  }
  for (const auto &[domain, count] : takers_) {
    out_ << Format("%6ld  taken by ", count) << domain << '\n';
  }
}

void Report::PrintExtremes() {
  if (!slowest_.empty()) {
    out_ << "slowest\n";
  }
  for (const Slow &slow : slowest_) {
    const Key &key = slow.key;
    out_ << Format("%8.3f s  ", slow.seconds) << NameOf(key) << ' ' << KindOf(key) << ", "
         << Format("line %ld, %s: ", key.line, key.clock.c_str()) << Story(key) << '\n';
  }
  if (silent_.silence >= 0) {
    out_ << "longest silence while a key waited\n"
         << Format("%8.3f s  before line %ld, %s", silent_.silence, silent_.line, silent_.clock.c_str())
         << (silent_.last_asked.empty() ? "" : ", last asked: " + Escaped(silent_.last_asked)) << '\n';
  }
}

void Report::PrintJsonSummary() {
  std::string slowest;
  for (const Slow &slow : slowest_) {
    slowest += (slowest.empty() ? "" : ",") + JsonOf(slow.key);
  }
  out_ << "{\"keys\":" << total_ << ",\"outcomes\":" << JsonOf(outcomes_) << ",\"takers\":" << JsonOf(takers_)
       << ",\"slowest\":[" << slowest << "],\"longest_silence\":" << (silent_.silence < 0 ? "null" : JsonOf(silent_))
       << "}\n";
}

void Report::Finish(const std::vector<std::string> &notes) {
  if (form_ == kJsonSummary) {
    PrintJsonSummary();
  } else if (form_ != kJson) {
    if (has_printed_) {
      out_ << '\n';
    }
    PrintTotals();
  }
  if (form_ == kSummary) {
    PrintExtremes();
  }
  if (form_ == kText || form_ == kSummary) {
    for (const std::string &note : notes) {
      out_ << "note: " << note << '\n';
    }
  }
  out_.flush();
}

} // namespace keylog
