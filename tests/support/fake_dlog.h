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
  bool lock_held = false; // whether any lock of fake_kestrel was held, if the suite links it
};

// Returns all lines so far. A line without the form of a library line is stored as a whole in `message`. Thread-safe.
std::vector<LogLine> LogLines();

// Returns the messages so far, in order, as "PRIORITY MESSAGE", for example "16 Invalid argument".
std::vector<std::string> LogMessages();

// Returns the same messages, with " locked" behind those that were logged while a lock was held.
std::vector<std::string> LogMessagesWithLock();

// Returns the function names of the lines, in order.
std::vector<std::string> LogFunctions();

// Returns how often "PRIORITY MESSAGE" was logged.
int LogCount(const std::string &message);

void ClearLog();

// Returns the text of an address as %p prints it.
std::string Shown(const void *address);

// Returns the text of the address of a function as %p prints it.
template <class Result, class... Arguments> std::string Shown(Result (*function)(Arguments...)) {
  return Shown(reinterpret_cast<const void *>(function));
}
