// Assembles the keys of one process from its log lines.
#pragma once

#include <deque>
#include <functional>
#include <string>
#include <string_view>

#include "key.h"
#include "log_line.h"
#include "main_loop.h"

namespace keylog {

// The library logs what it does, so this class assembles each key from several lines. If a handler turns the main loop
// before it answers, lines of other keys come between them. A key without an answer therefore stays open until its end
// is known, or until more keys have begun after it than a handler is likely to wait for.
class KeyLog {
public:
  using Sink = std::function<void(const Key &)>;

  // Passes each key to `sink` when its outcome is known, in the order in which the keys begin.
  explicit KeyLog(Sink sink) : sink_(std::move(sink)) {}

  void Read(long number, const LogLine &line);

  // Notes that lines may be missing here.
  void Damaged();

  // Passes the waiting keys to `sink`. Call it if no line has come for a while.
  void Quiet();

  // Ends the log. The outcome of keys without an answer is not known.
  void End();

  // Returns whether the log has lines of low priority, which say who was asked.
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
  std::deque<Key> keys_; // in the order in which they begin, starting with the first that has not been passed on
};

} // namespace keylog
