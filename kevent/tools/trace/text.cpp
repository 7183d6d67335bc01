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

void Text::AppendBytes(const char *text) {
  const size_t size = std::min(strlen(text), sizeof buffer_ - 1 - size_);
  memcpy(buffer_ + size_, text, size);
  size_ += size;
}

void Text::AppendNumber(long long number, int digits) {
  char text[24];
  int at = sizeof text - 1;
  text[at] = '\0';
  for (; number > 0 || digits > 0; number /= 10, --digits) {
    text[--at] = static_cast<char>('0' + number % 10);
  }
  AppendBytes(text + at);
}

void Text::AppendDuration(Nanoseconds duration) {
  const bool seconds = duration >= kSecond;
  const long long thousandths = seconds ? duration / kMillisecond : duration / 1000;
  if (duration < 0) {
    AppendBytes("?");
    return;
  }
  AppendNumber(thousandths / 1000, 1);
  AppendBytes(".");
  AppendNumber(thousandths % 1000, 3);
  AppendBytes(seconds ? " s" : " ms");
}

void Text::AppendDurationColumn(Nanoseconds duration, size_t width) {
  const size_t start = size_;
  AppendDuration(duration);
  const size_t length = size_ - start;
  if (length < width && start + width < sizeof buffer_) {
    memmove(buffer_ + start + width - length, buffer_ + start, length);
    memset(buffer_ + start, ' ', width - length);
    size_ = start + width;
  }
}

void Text::AppendMilliseconds(Nanoseconds duration) {
  if (duration < 0) {
    AppendBytes("null");
    return;
  }
  AppendNumber(duration / kMillisecond, 1);
  AppendBytes(".");
  AppendNumber(duration / 1000 % 1000, 3);
}

} // namespace lumio::trace
