// lumio-keylog: reads a log of the library and prints for each key who was asked, who took it, or why nobody did.
//
// The library logs what it does, so this program assembles each key from several lines. If a handler turns the main
// loop before it answers, lines of other keys come between them. A key without an answer therefore stays open until its
// end is known, or until more keys have begun after it than a handler is likely to wait for.
#include <regex.h>

#include <algorithm>
#include <deque>
#include <fstream>
#include <iomanip>
#include <iostream>
#include <map>
#include <string>
#include <vector>

#include "join.h"

namespace {

using std::string;

constexpr size_t kPatience = 8; // the program gives up a key without an answer when this many more have begun

struct Key {
  int line = 0;              // line of the log where the key begins
  string name;               // empty if the log does not say
  string kind;               // "press" or "release"; empty if the log does not say
  string device;             // the device that sent it
  std::vector<string> asked; // domains
  string taken_by;           // domain
  string priority;           // priority of the handler that took it
  string dropped;            // the reason, if it was not dispatched
  bool timed = false;        // the staleness filter has examined it
  bool open = true;          // more lines of it may follow
  bool ended = false;        // the dispatch is over

  bool Is(const string &a_name, const string &a_kind) const {
    return open && !asked.empty() && name == a_name && kind == a_kind;
  }
  bool HasAsked(const string &domain) const { return std::find(asked.begin(), asked.end(), domain) != asked.end(); }
  string Ending() const;
  string Story() const;
};

// A message that says why a key was not dispatched.
struct Drop {
  const char *message; // its beginning
  const char *why;
  const char *kind;
  enum { kBeginning, kUntimed, kTimed } stage; // what the library has logged about the key before
};

constexpr Drop kDrops[] = {
    {"skip _key_cb ..", "dropped: burst", "press", Drop::kBeginning},
    {"do not process the key in aging mode..", "passed on: factory aging mode", "", Drop::kBeginning},
    {"manager is not initialized", "passed on: manager not initialised", "", Drop::kUntimed},
    {"Event information is NULL", "passed on: no event", "", Drop::kUntimed},
    {"Invalid event type", "passed on: not a key event", "", Drop::kUntimed},
    {"key released ignored", "dropped: release after an ignored press", "release", Drop::kUntimed},
    {"key ignored.", "dropped: stale", "press", Drop::kTimed},
};

constexpr char kTaken[] = "taken";
constexpr char kDeclined[] = "declined by all who were asked";
constexpr char kNobodyAsked[] = "nobody asked";
constexpr char kUnknownDevice[] = "unknown device";

// A POSIX regular expression. std::regex does not compile without warnings under the sanitizers.
class Pattern {
public:
  explicit Pattern(const char *expression) { regcomp(&regex_, expression, REG_EXTENDED); }
  Pattern(const Pattern &) = delete;
  Pattern &operator=(const Pattern &) = delete;
  ~Pattern() { regfree(&regex_); }

  // Returns the whole match, then what the groups matched. Returns nothing if `text` does not match.
  std::vector<string> Match(const string &text) const {
    std::vector<regmatch_t> matches(regex_.re_nsub + 1);
    std::vector<string> groups;
    if (regexec(&regex_, text.c_str(), matches.size(), matches.data(), 0) == 0) {
      for (const regmatch_t &match : matches) {
        groups.push_back(text.substr(match.rm_so, match.rm_eo - match.rm_so));
      }
    }
    return groups;
  }

private:
  regex_t regex_;
};

string DeviceName(const string &source_type) {
  static const std::map<string, string> names = {{"0", "remote control"},
                                                 {"1", "panel keys"},
                                                 {"2", "touch remote"},
                                                 {"3", "function-osd"},
                                                 {"4", "other device"}};
  const auto name = names.find(source_type);
  return name == names.end() ? kUnknownDevice : name->second;
}

// Assembles the keys of a log, and prints each when it and all keys before it are complete.
class KeyLog {
public:
  void Read(std::istream &log);
  void PrintCounts() const;

private:
  void Understand(const string &message);
  void Timed();
  void Asked(const string &domain, const string &name, const string &kind);
  void Taken(const string &name, const string &source_type, const string &kind, const string &domain,
             const string &priority);
  void Finished();
  void Dropped(const Drop &drop);

  Key &Begin();
  Key *Fresh(bool timed);
  Key *FreshOf(const string &kind);
  template <class Predicate> Key *FindLast(Predicate predicate);
  Key &Resume(Key &key);
  void PrintFirst();

  // Ignores what the log's writer put before the library's text, and white space after it.
  const Pattern line_pattern_{R"(kevent\.cpp: ([^(]+)\([0-9]+\) > \[[^]]*\] (.*[^[:space:]])[[:space:]]*$)"};
  const Pattern asked_pattern_{R"(^\[(.*)\] (.*) key (press|release) handling\.\.\.\.$)"};
  const Pattern taken_pattern_{
      R"(^(.*) key \[type: ([0-9]+)\]  (press|release) was handled by \[(.*)\], priority\[([0-9]+)\]\.$)"};
  const Pattern device_pattern_{"^sourceid:([0-9]+),advanceed_touch_dev_id:([0-9]+),"};

  int line_ = 0;
  string device_ = kUnknownDevice;
  std::deque<Key> keys_; // in the order in which they begin, starting with the first that is not printed
  std::map<string, int> counts_;
  std::map<string, int> takers_;
};

void KeyLog::Read(std::istream &log) {
  for (string line; std::getline(log, line);) {
    ++line_;
    const std::vector<string> groups = line_pattern_.Match(line);
    // Ignore the functions that modules call: some of their failures have the same text as those of a key.
    if (!groups.empty() && groups[1].rfind("lumio_", 0) != 0 && groups[1] != "_gc") {
      Understand(groups[2]);
    }
    while (!keys_.empty() && (!keys_.front().open || keys_.size() > kPatience)) {
      PrintFirst();
    }
  }
  while (!keys_.empty()) {
    PrintFirst();
  }
}

void KeyLog::Understand(const string &message) {
  std::vector<string> groups;
  if (!(groups = asked_pattern_.Match(message)).empty()) {
    Asked(groups[1], groups[2], groups[3]);
  } else if (!(groups = taken_pattern_.Match(message)).empty()) {
    Taken(groups[1], groups[2], groups[3], groups[4], groups[5]);
  } else if (!(groups = device_pattern_.Match(message)).empty()) {
    device_ = groups[1] == groups[2] ? DeviceName("2") : kUnknownDevice;
  } else if (message == "vconf_get_int fail..") {
    Begin(); // the first line of each key if the aging mode was never set
  } else if (message.rfind("key timestamp = ", 0) == 0) {
    Timed();
  } else if (message == "invalidate cachelist...") {
    Finished();
  }
  for (const Drop &drop : kDrops) {
    if (message.rfind(drop.message, 0) == 0) {
      Dropped(drop);
    }
  }
}

// --- What the lines say ----------------------------------------------------------------------------------------------

void KeyLog::Timed() {
  Key *fresh = Fresh(false);
  Key &key = fresh ? *fresh : Begin();
  key.kind = "press";
  key.timed = true;
}

void KeyLog::Asked(const string &domain, const string &name, const string &kind) {
  Key *key = FreshOf(kind);
  if (!key) {
    // A key that waits below others continues with a handler that it has not asked yet. Otherwise, the same key began
    // again.
    key = FindLast(
        [&](const Key &other) { return other.Is(name, kind) && (&other == &keys_.back() || !other.HasAsked(domain)); });
  }
  Key &asking = key ? Resume(*key) : Begin();
  asking.name = name;
  asking.kind = kind;
  asking.asked.push_back(domain);
}

void KeyLog::Taken(const string &name, const string &source_type, const string &kind, const string &domain,
                   const string &priority) {
  Key *key = FindLast([&](const Key &other) { return other.Is(name, kind) && other.asked.back() == domain; });
  if (!key) {
    key = FreshOf(kind); // the log lacks the lines of low priority
  }
  Key &taken = key ? Resume(*key) : Begin();
  taken.name = name;
  taken.kind = kind;
  taken.device = device_ = DeviceName(source_type);
  taken.taken_by = domain;
  taken.priority = priority;
  taken.open = false;
}

// If the application has cache flags, the library clears them when a dispatch ends, after all handlers have answered.
void KeyLog::Finished() {
  if (Key *key = FindLast([](const Key &other) { return other.dropped.empty() && !other.ended; })) {
    key->ended = true;
    key->open = false;
  }
}

void KeyLog::Dropped(const Drop &drop) {
  Key *fresh = drop.stage == Drop::kBeginning ? nullptr : Fresh(drop.stage == Drop::kTimed);
  Key &key = fresh ? *fresh : Begin();
  key.kind = drop.kind;
  key.dropped = drop.why;
  key.open = false;
}

// --- Keys ------------------------------------------------------------------------------------------------------------

Key &KeyLog::Begin() {
  keys_.emplace_back();
  keys_.back().line = line_;
  keys_.back().device = device_;
  return keys_.back();
}

Key *KeyLog::Fresh(bool timed) {
  return FindLast(
      [&](const Key &key) { return &key == &keys_.back() && key.open && key.asked.empty() && key.timed == timed; });
}

// The staleness filter examines presses only.
Key *KeyLog::FreshOf(const string &kind) {
  Key *untimed = Fresh(false);
  return untimed || kind == "release" ? untimed : Fresh(true);
}

// When a key continues, the keys that began while its handler ran are over.
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

// --- Printing --------------------------------------------------------------------------------------------------------

string Key::Ending() const {
  if (!dropped.empty()) {
    return dropped;
  }
  if (!taken_by.empty()) {
    return kTaken;
  }
  return asked.empty() ? kNobodyAsked : kDeclined;
}

string Key::Story() const {
  if (taken_by.empty()) {
    return Ending() + (asked.empty() ? "" : ": ") + lumio::Join(asked, ", ");
  }
  string story = "taken by " + taken_by + " at priority " + priority;
  if (asked.empty()) {
    story += "; the log does not tell who was asked before";
  } else if (asked.size() > 1) {
    story += "; declined by " + lumio::Join({asked.begin(), asked.end() - 1}, ", ");
  }
  return story;
}

void KeyLog::PrintFirst() {
  const Key &key = keys_.front();
  std::cout << std::right << std::setw(6) << key.line << "  " << std::left << std::setw(20)
            << (key.name.empty() ? "(not logged)" : key.name) << ' ' << std::setw(8)
            << (key.kind.empty() ? "?" : key.kind) << std::setw(15) << key.device << ' ' << key.Story() << std::endl;
  ++counts_[key.Ending()];
  if (!key.taken_by.empty()) {
    ++takers_[key.taken_by];
  }
  keys_.pop_front();
}

void KeyLog::PrintCounts() const {
  int total = 0;
  for (const auto &[ending, count] : counts_) {
    total += count;
  }
  std::cout << "\n" << std::right << std::setw(6) << total << "  keys\n";
  for (const auto &[ending, count] : counts_) {
    std::cout << std::setw(6) << count << "  " << ending << "\n";
  }
  for (const auto &[domain, count] : takers_) {
    std::cout << std::setw(6) << count << "  taken by " << domain << "\n";
  }
}

int Usage(std::ostream &out) {
  out << "usage: lumio-keylog [FILE]\n"
         "Explains what happened to each key in a log of liblumio-kevent: which module took it, or why none did.\n"
         "Reads standard input if there is no FILE, or if FILE is \"-\".\n";
  return &out == &std::cout ? 0 : 2;
}

} // namespace

int main(int argc, char **argv) {
  const string name = argc == 2 ? argv[1] : "-";
  if (name == "--help") {
    return Usage(std::cout);
  }
  if (argc > 2 || (name.size() > 1 && name[0] == '-')) {
    return Usage(std::cerr);
  }
  std::ifstream file;
  if (name != "-") {
    file.open(name);
    if (!file) {
      std::cerr << "lumio-keylog: cannot read " << name << "\n";
      return 1;
    }
  }
  KeyLog keys;
  keys.Read(name == "-" ? std::cin : file);
  keys.PrintCounts();
  return 0;
}
