#include "key_log.h"

#include <algorithm>
#include <charconv>
#include <cstdlib>
#include <string>

#include "source_name.h"

namespace keylog {
namespace {

constexpr size_t kPatience = 8; // keys that may begin before one without an answer is given up
constexpr size_t kNone = std::string_view::npos;

bool StartsWith(std::string_view text, std::string_view beginning) {
  return text.substr(0, beginning.size()) == beginning;
}

bool EndsWith(std::string_view text, std::string_view end) {
  return text.size() >= end.size() && text.substr(text.size() - end.size()) == end;
}

bool CutEnd(std::string_view *text, std::string_view end) {
  if (!EndsWith(*text, end)) {
    return false;
  }
  text->remove_suffix(end.size());
  return true;
}

// Reads "press" or "release" from the end.
std::string CutKind(std::string_view *text) {
  return CutEnd(text, "press") ? "press" : CutEnd(text, "release") ? "release" : "";
}

double Number(std::string_view text) { return strtod(std::string(text.substr(0, 32)).c_str(), nullptr); }

bool ReadInt(std::string_view text, int *number) {
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), *number);
  return error == std::errc() && end == text.data() + text.size();
}

const char *DeviceName(std::string_view source_type) {
  int number = -1;
  const char *name = ReadInt(source_type, &number) ? lumio::SourceName(number) : nullptr;
  return name ? name : kUnknownDevice;
}

// Messages of low priority. A log that has one of them has all.
constexpr std::string_view kTraces[] = {
    "key timestamp = ",   "timestamp_init = ",   "cur = ", "sourceid:", "Invalid event !",
    "Generic event data", "key released ignored"};

bool IsTrace(std::string_view message) {
  return std::any_of(std::begin(kTraces), std::end(kTraces),
                     [message](std::string_view trace) { return StartsWith(message, trace); }) ||
         message.find(".. saving device id : ") != kNone;
}

} // namespace

// A message that says why a key was not dispatched.
struct KeyLog::Drop {
  std::string_view message; // its beginning
  const char *reason;
  const char *kind;
  enum { kBeginning, kUntimed, kTimed } stage; // what the library has logged of the key before
  MainLoop::Silence (MainLoop::*silence)(double) const;
};

const KeyLog::Drop KeyLog::kDrops[] = {
    {"skip _key_cb ..", "dropped: burst", "press", Drop::kBeginning, &MainLoop::BeforeBurst},
    {"do not process the key in aging mode..", "passed on: factory aging mode", "", Drop::kBeginning, nullptr},
    {"manager is not initialized", "passed on: manager not initialised", "", Drop::kUntimed, nullptr},
    {"Event information is NULL", "passed on: no event", "", Drop::kUntimed, nullptr},
    {"Invalid event type", "passed on: not a key event", "", Drop::kUntimed, nullptr},
    {"key released ignored", "dropped: release after an ignored press", "release", Drop::kUntimed, nullptr},
    {"key ignored.", "dropped: stale", "press", Drop::kTimed, &MainLoop::BeforeStale},
};

void KeyLog::Read(long number, const LogLine &line) {
  number_ = number;
  line_ = line;
  main_loop_.Logged(line.time, last_asked_);
  // The functions that modules call have failures of their own, some in the words of a key that was not dispatched.
  if (!StartsWith(line.function, "lumio_") && line.function != "_gc") {
    Understand(line.message);
  }
  HandOverClosed();
}

void KeyLog::Understand(std::string_view message) {
  if (ReadAsked(message) || ReadTaken(message)) {
    return;
  }
  has_traces_ = has_traces_ || IsTrace(message);
  if (StartsWith(message, "sourceid:")) {
    DeviceChanged(message.substr(9));
  } else if (message == "vconf_get_int fail..") {
    Begin(); // the first line of every key as long as the aging mode has no value
  } else if (StartsWith(message, "key timestamp = ")) {
    Timed(message.substr(16));
  } else if (StartsWith(message, "cur = ")) {
    main_loop_.Examined(Number(message.substr(6)));
  } else if (message == "invalidate cachelist...") {
    Finished();
  } else {
    for (const Drop &drop : kDrops) {
      if (StartsWith(message, drop.message)) {
        return Dropped(drop);
      }
    }
  }
}

// --- What the lines say ----------------------------------------------------------------------------------------------

// "[DOMAIN] KEY key press handling...."
bool KeyLog::ReadAsked(std::string_view message) {
  if (message.empty() || message[0] != '[' || !CutEnd(&message, " handling....")) {
    return false;
  }
  const std::string kind = CutKind(&message);
  if (kind.empty() || !CutEnd(&message, " key ")) {
    return false;
  }
  const size_t domain_end = message.rfind("] ");
  if (domain_end == kNone) {
    return false;
  }
  has_traces_ = true;
  Asked(std::string(message.substr(1, domain_end - 1)), std::string(message.substr(domain_end + 2)), kind);
  return true;
}

// "KEY key [type: 0]  press was handled by [DOMAIN], priority[3]."
bool KeyLog::ReadTaken(std::string_view message) {
  const size_t domain = message.rfind(" was handled by [");
  if (domain == kNone || !EndsWith(message, "].")) {
    return false;
  }
  const std::string_view tail = message.substr(domain + 17, message.size() - domain - 19);
  const size_t domain_end = tail.rfind("], priority[");
  std::string_view head = message.substr(0, domain);
  const std::string kind = CutKind(&head);
  int priority = 0;
  if (domain_end == kNone || !ReadInt(tail.substr(domain_end + 12), &priority) || kind.empty() ||
      !CutEnd(&head, "]  ")) {
    return false;
  }
  const size_t source = head.rfind(" key [type: ");
  if (source == kNone) {
    return false;
  }
  Taken(std::string(head.substr(0, source)), std::string(head.substr(source + 12)), kind,
        std::string(tail.substr(0, domain_end)), priority);
  return true;
}

// "ID,advanceed_touch_dev_id:ID,..."
void KeyLog::DeviceChanged(std::string_view ids) {
  constexpr std::string_view kTouch = ",advanceed_touch_dev_id:";
  const size_t touch = ids.find(kTouch);
  if (touch == kNone) {
    return;
  }
  const std::string_view touch_id = ids.substr(touch + kTouch.size());
  const bool is_touch = ids.substr(0, touch) == touch_id.substr(0, touch_id.find(','));
  device_ = is_touch ? DeviceName("2") : kUnknownDevice;
}

void KeyLog::Timed(std::string_view server_seconds) {
  Key *fresh = Fresh(false);
  Key &key = fresh ? *fresh : Begin();
  key.kind = "press";
  key.timed = true;
  main_loop_.Sent(Number(server_seconds));
}

void KeyLog::Asked(const std::string &domain, const std::string &name, const std::string &kind) {
  Key *key = FreshOf(kind);
  if (!key) {
    // A key that waits below others goes on with a handler that it has not asked yet. Else it is the same key again.
    key = FindLast(
        [&](const Key &other) { return other.Is(name, kind) && (&other == &keys_.back() || !other.HasAsked(domain)); });
  }
  Key &asking = key ? Resume(*key) : Begin();
  if (asking.asked.empty() && kind == "press") {
    main_loop_.LetThrough(line_.time);
  }
  asking.name = name;
  asking.kind = kind;
  asking.asked.push_back(domain);
  last_asked_ = domain;
}

void KeyLog::Taken(const std::string &name, const std::string &source_type, const std::string &kind,
                   const std::string &domain, int priority) {
  Key *key = FindLast([&](const Key &other) { return other.Is(name, kind) && other.asked.back() == domain; });
  if (!key) {
    key = FreshOf(kind); // the log leaves out the lines of low priority
  }
  Key &taken = key ? Resume(*key) : Begin();
  taken.name = name;
  taken.kind = kind;
  taken.device = device_ = DeviceName(source_type);
  taken.taken_by = domain;
  taken.priority = priority;
  taken.outcome = Outcome::kTaken;
  taken.ended = line_.time;
  taken.open = false;
}

// The application's cache flags are cleared at the end of a dispatch, if it has any: whoever was asked has answered.
void KeyLog::Finished() {
  if (Key *key = FindLast([](const Key &other) { return other.outcome != Outcome::kDropped && !other.over; })) {
    key->over = true;
    key->ended = line_.time;
    key->open = false;
  }
}

void KeyLog::Dropped(const Drop &drop) {
  Key *fresh = drop.stage == Drop::kBeginning ? nullptr : Fresh(drop.stage == Drop::kTimed);
  Key &key = fresh ? *fresh : Begin();
  key.kind = drop.kind;
  key.outcome = Outcome::kDropped;
  key.reason = drop.reason;
  key.open = false;
  if (drop.silence) {
    const MainLoop::Silence silence = (main_loop_.*drop.silence)(line_.time);
    key.silence = silence.seconds;
    key.last_asked = silence.last_asked;
  }
}

// --- Keys ------------------------------------------------------------------------------------------------------------

Key &KeyLog::Begin() {
  Key &key = keys_.emplace_back();
  key.line = number_;
  key.time = line_.time;
  key.clock = line_.clock;
  key.date = line_.date;
  key.process = line_.process;
  key.device = device_;
  if (key.time >= 0 && last_begin_ >= 0) {
    key.gap = key.time - last_begin_;
  }
  last_begin_ = key.time;
  return key;
}

Key *KeyLog::Fresh(bool timed) {
  return FindLast(
      [&](const Key &key) { return &key == &keys_.back() && key.open && key.asked.empty() && key.timed == timed; });
}

// The staleness filter examines presses only.
Key *KeyLog::FreshOf(const std::string &kind) {
  Key *untimed = Fresh(false);
  return untimed || kind == "release" ? untimed : Fresh(true);
}

// When a key goes on, those that began while its handler had it are over.
Key &KeyLog::Resume(Key &key) {
  for (auto later = keys_.rbegin(); &*later != &key; ++later) {
    later->open = false;
  }
  return key;
}

template <class Predicate> Key *KeyLog::FindLast(Predicate predicate) {
  const auto key = std::find_if(keys_.rbegin(), keys_.rend(), predicate);
  return key == keys_.rend() ? nullptr : &*key;
}

// --- What became of them ---------------------------------------------------------------------------------------------

// Decides the outcome of a key. `end` says why the log has no more of it; it is null if nothing more was to come.
void KeyLog::Judge(Key &key, const char *end) {
  if (key.outcome == Outcome::kTaken || key.outcome == Outcome::kDropped) {
    return;
  }
  key.outcome = Outcome::kNotKnown;
  if (key.damaged) {
    key.reason = "lines are missing";
  } else if (end) {
    key.reason = end;
  } else if (!key.asked.empty()) {
    key.outcome = Outcome::kDeclined;
  } else if (!has_traces_) {
    key.reason = "the log leaves out the lines of low priority";
  } else {
    key.outcome = Outcome::kNobodyAsked;
  }
}

void KeyLog::HandOverFirst(const char *end) {
  Key &key = keys_.front();
  Judge(key, end);
  if (!key.shown || key.outcome == Outcome::kTaken) {
    sink_(key);
  }
  keys_.pop_front();
}

// No handler can have turned the main loop for a key that nobody was asked about: the next key ends it.
void KeyLog::HandOverClosed() {
  while (!keys_.empty()) {
    const Key &first = keys_.front();
    const bool is_last = keys_.size() == 1;
    if (first.open && keys_.size() <= kPatience && (is_last || !first.asked.empty())) {
      return;
    }
    HandOverFirst(nullptr);
  }
}

void KeyLog::Damaged() {
  for (Key &key : keys_) {
    key.damaged = true;
  }
}

void KeyLog::Quiet() {
  for (Key &key : keys_) {
    if (key.open && !key.shown && !key.asked.empty()) {
      key.shown = true;
      key.outcome = Outcome::kWaiting;
      sink_(key);
      key.outcome = Outcome::kNotKnown;
    } else if (key.open && key.asked.empty()) {
      key.open = false;
    }
  }
  HandOverClosed();
}

void KeyLog::End() {
  while (!keys_.empty()) {
    const bool is_last = keys_.size() == 1;
    const bool may_go_on = keys_.front().open && (is_last || !keys_.front().asked.empty());
    HandOverFirst(!may_go_on ? nullptr : is_last ? "the log ends here" : "the log ends soon after");
  }
}

} // namespace keylog
