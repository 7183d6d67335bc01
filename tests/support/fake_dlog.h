// Records the library's log instead of writing it.
#pragma once

#include <string>
#include <vector>

struct LogLine {
  int log_id;
  int priority;
  std::string tag;
  std::string file;
  std::string function;
  int line;
  std::string message;    // without the line end
  bool lock_held = false; // any lock of fake_kestrel, where a suite has that
};

// All lines so far; those that do not have the form of a library line stand with everything in `message`. Thread-safe.
std::vector<LogLine> LogLines();

// The messages so far, in order, as "PRIORITY MESSAGE", for example "16 Invalid argument".
std::vector<std::string> LogMessages();

// The same with " locked" behind those that were logged while a lock was held.
std::vector<std::string> LogMessagesWithLock();

// The functions in whose names they were logged.
std::vector<std::string> LogFunctions();

// How often "PRIORITY MESSAGE" was logged.
int LogCount(const std::string &message);

void ClearLog();

// How %p shows an address.
std::string Shown(const void *address);

// How %p shows the address of a function.
template <class Result, class... Arguments> std::string Shown(Result (*function)(Arguments...)) {
  return Shown(reinterpret_cast<const void *>(function));
}
