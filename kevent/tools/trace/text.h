// A text of bounded length. Building it allocates nothing, so that a signal handler can do it, too.
#pragma once

#include <cstdarg>
#include <cstddef>
#include <string>

#include "clock.h"

namespace lumio::trace {

class Text {
public:
  void Append(const char *format, ...) __attribute__((format(printf, 2, 3)));
  void AppendList(const char *format, va_list arguments) __attribute__((format(printf, 2, 0)));

  void AppendBytes(const char *text);
  // Not negative; filled with zeros to so many digits.
  void AppendNumber(long long number, int digits);

  // Appends a name that the program chose. Control characters become '?'.
  void AppendClean(const char *text);
  // The same, padded with blanks to a width.
  void AppendColumn(const char *text, int width);
  // Appends a JSON string, with quotes and escapes.
  void AppendQuoted(const char *text);

  // "1.204 s", "12.304 ms"; "?" when not known
  void AppendDuration(Nanoseconds duration);
  // The same at the end of a column.
  void AppendDurationColumn(Nanoseconds duration, size_t width);
  // Milliseconds for JSON: "12.304", or "null" when not known.
  void AppendMilliseconds(Nanoseconds duration);

  void Clear() { size_ = 0; }
  bool IsEmpty() const { return size_ == 0; }
  // Returns whether little room is left.
  bool IsNearlyFull() const { return size_ > sizeof buffer_ - kReserve; }

  const char *Data() const { return buffer_; }
  size_t Size() const { return size_; }

private:
  static constexpr size_t kReserve = 1024;

  void AppendByte(char byte);

  char buffer_[8192];
  size_t size_ = 0;
};

} // namespace lumio::trace
