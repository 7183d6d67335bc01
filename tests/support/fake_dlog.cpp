#include "fake_dlog.h"

#include <dlog.h>

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <mutex>

#include "uncounted.h"

__attribute__((weak)) bool AnyLockHeld(); // of fake_kestrel

namespace {

std::mutex g_mutex;
std::vector<LogLine> g_lines;

// The form of every line: file: function(line) > [function:line] message. Both places must name the same function and
// line.
LogLine Parse(int log_id, int priority, const char *tag, const std::string &text) {
  char file[64], function[128], function_again[128];
  int line = 0, line_again = -1, start = 0;
  const int fields = sscanf(text.c_str(), "%63[^:]: %127[^(](%d) > [%127[^:]:%d]%n", file, function, &line,
                            function_again, &line_again, &start);
  const bool well_formed = fields == 5 && start > 0 && text[start] == ' ' && text.back() == '\n' &&
                           line == line_again && strcmp(function, function_again) == 0;
  if (!well_formed) {
    return {log_id, priority, tag, "", "", 0, "not a library line: " + text};
  }
  return {log_id, priority, tag, file, function, line, text.substr(start + 1, text.size() - start - 2)};
}

} // namespace

std::vector<LogLine> LogLines() {
  std::lock_guard<std::mutex> lock(g_mutex);
  return g_lines;
}

std::vector<std::string> LogMessages() {
  std::vector<std::string> messages;
  for (const LogLine &line : LogLines()) {
    messages.push_back(std::to_string(line.priority) + " " + line.message);
  }
  return messages;
}

std::vector<std::string> LogMessagesWithLock() {
  std::vector<std::string> messages;
  for (const LogLine &line : LogLines()) {
    messages.push_back(std::to_string(line.priority) + " " + line.message + (line.lock_held ? " locked" : ""));
  }
  return messages;
}

std::vector<std::string> LogFunctions() {
  std::vector<std::string> functions;
  for (const LogLine &line : LogLines()) {
    functions.push_back(line.function);
  }
  return functions;
}

int LogCount(const std::string &message) {
  const std::vector<std::string> messages = LogMessages();
  return static_cast<int>(std::count(messages.begin(), messages.end(), message));
}

void ClearLog() {
  std::lock_guard<std::mutex> lock(g_mutex);
  g_lines.clear();
}

std::string Shown(const void *address) {
  char text[32];
  snprintf(text, sizeof text, "%p", address);
  return text;
}

extern "C" int __dlog_print(int log_id, int priority, const char *tag, const char *format, ...) {
  Uncounted uncounted;
  char text[1024];
  va_list arguments;
  va_start(arguments, format);
  const int length = vsnprintf(text, sizeof text, format, arguments);
  va_end(arguments);
  std::lock_guard<std::mutex> lock(g_mutex);
  g_lines.push_back(Parse(log_id, priority, tag, text));
  g_lines.back().lock_held = AnyLockHeld && AnyLockHeld();
  return length;
}
