// A notification on its way from a service, or from the module that caused it, to the modules' callbacks.
#pragma once

#include <string>

#include "clock.h"
#include "thunks.h"
#include "work.h"

namespace lumio::trace {

// What a notification is about: for people, or as fields of a JSON object ("\"type\":%d"), as the options say.
class Words {
public:
  void Set(const char *format, ...) __attribute__((format(printf, 2, 3)));
  const char *Text() const { return text_; }

private:
  char text_[128];
};

// Exists while the callbacks of one notification run. Thunks find it by the thread that they run on.
class Notification {
public:
  static constexpr Nanoseconds kNoWait = -2; // for notifications that do not pass a queue

  // `about` outlives the object.
  Notification(const char *kind, const Words &about, Nanoseconds waited = kNoWait);
  ~Notification();
  Notification(const Notification &) = delete;
  Notification &operator=(const Notification &) = delete;

  static Notification *Current();

  // Prints that a module received it.
  void Told(const std::string &module, const std::string &symbol, Nanoseconds took);
  // Prints one line for all callbacks together. Their number comes from the library's log.
  void ToldAsOne(const std::string &modules, int callbacks, Nanoseconds took);
  int Count() const { return told_; }
  // Prints that no module received it.
  void ToldNobody(const char *why);

private:
  bool IsWanted(const std::string &module) const;
  void Print(const std::string &module, const std::string &symbol, Nanoseconds took, int callbacks, const char *why);

  const char *kind_;
  const Words &about_;
  Nanoseconds waited_;
  int told_ = 0;
  Notification *outer_;
};

// Runs a callback and prints it.
class NotifiedCall {
public:
  explicit NotifiedCall(ThunkTarget &target)
      : target_(target), work_(target.module.c_str(), target.symbol.name.c_str()) {}
  ~NotifiedCall();
  NotifiedCall(const NotifiedCall &) = delete;
  NotifiedCall &operator=(const NotifiedCall &) = delete;

private:
  ThunkTarget &target_;
  Work work_;
};

} // namespace lumio::trace
