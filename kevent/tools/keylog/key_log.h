// Puts the keys of one process together from its lines.
#pragma once

#include <deque>
#include <functional>
#include <string>
#include <string_view>

#include "key.h"
#include "log_line.h"
#include "main_loop.h"

namespace keylog {

// The library logs what it does, not keys: a key has to be put together from its lines. Lines of further keys may stand
// between them, if a handler turned the main loop before it answered. So a key without an answer stays open until its
// end is known, or until more keys have begun after it than a handler is likely to wait for.
class KeyLog {
public:
  using Sink = std::function<void(const Key &)>;

  // `sink` gets each key, in the order in which the keys begin, once its outcome is known.
  explicit KeyLog(Sink sink) : sink_(std::move(sink)) {}

  void Read(long number, const LogLine &line);

  // Lines may be missing here.
  void Damaged();

  // Nothing more has come for a while: shows what the log says so far.
  void Quiet();

  // The log ends here. What became of a key without an answer is not known.
  void End();

  // Whether the log has lines of low priority, without which nobody can say who was asked.
  bool HasTraces() const { return has_traces_; }

private:
  struct Drop;
  static const Drop kDrops[];

  void Understand(std::string_view message);
  void Timed(std::string_view server_seconds);
  void Asked(const std::string &domain, const std::string &name, const std::string &kind);
  void Taken(const std::string &name, const std::string &source_type, const std::string &kind,
             const std::string &domain, int priority);
  void Finished();
  void Dropped(const Drop &drop);
  void DeviceChanged(std::string_view ids);
  bool ReadAsked(std::string_view message);
  bool ReadTaken(std::string_view message);

  Key &Begin();
  Key *Fresh(bool timed);
  Key *FreshOf(const std::string &kind);
  template <class Predicate> Key *FindLast(Predicate predicate);
  Key &Resume(Key &key);
  void Judge(Key &key, const char *end);
  void HandOverFirst(const char *end);
  void HandOverClosed();

  Sink sink_;
  long number_ = 0;
  LogLine line_; // the one that is being read
  double last_begin_ = LogLine::kUnknown;
  bool has_traces_ = false;
  std::string device_ = kUnknownDevice;
  std::string last_asked_;
  MainLoop main_loop_;
  std::deque<Key> keys_; // in the order of their beginning, from the first that has not been handed over
};

} // namespace keylog
