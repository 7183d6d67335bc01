#include "text.h"

#include <algorithm>
#include <cstdio>
#include <cstring>

namespace lumio::trace {

void Text::Append(const char *format, ...) {
  va_list arguments;
  va_start(arguments, format);
  AppendList(format, arguments);
  va_end(arguments);
}

void Text::AppendList(const char *format, va_list arguments) {
  const size_t room = sizeof buffer_ - size_;
  const int length = vsnprintf(buffer_ + size_, room, format, arguments);
  if (length > 0) {
    size_ += std::min(static_cast<size_t>(length), room - 1);
  }
}

void Text::AppendByte(char byte) {
  if (size_ < sizeof buffer_ - 1) {
    buffer_[size_++] = byte;
  }
}

void Text::AppendClean(const char *text) {
  for (; *text; ++text) {
    const auto byte = static_cast<unsigned char>(*text);
    AppendByte(byte < ' ' || byte == 0x7f ? '?' : *text);
  }
}

void Text::AppendColumn(const char *text, int width) {
  const size_t start = size_;
  AppendClean(text);
  while (size_ - start < static_cast<size_t>(width)) {
    AppendByte(' ');
    if (size_ >= sizeof buffer_ - 1) {
      break;
    }
  }
}

void Text::AppendQuoted(const char *text) {
  AppendByte('"');
  for (; *text; ++text) {
    const auto byte = static_cast<unsigned char>(*text);
    if (byte < ' ' || byte == '"' || byte == '\\' || byte == 0x7f) {
      Append("\\u%04x", byte);
    } else {
      AppendByte(*text);
    }
  }
  AppendByte('"');
}

void Text::AppendDuration(Nanoseconds duration) {
  const long long microseconds = duration / 1000;
  if (duration < 0) {
    Append("?");
  } else if (duration >= kSecond) {
    Append("%lld.%03lld s", microseconds / 1000000, microseconds / 1000 % 1000);
  } else {
    Append("%lld.%03lld ms", microseconds / 1000, microseconds % 1000);
  }
}

void Text::AppendMilliseconds(Nanoseconds duration) {
  const long long microseconds = duration / 1000;
  if (duration < 0) {
    Append("null");
  } else {
    Append("%lld.%03lld", microseconds / 1000, microseconds % 1000);
  }
}

} // namespace lumio::trace
