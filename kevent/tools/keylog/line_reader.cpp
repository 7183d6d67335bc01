#include "line_reader.h"

#include <unistd.h>

#include <cerrno>
#include <cstring>

namespace keylog {

// Returns whether something was read.
bool LineReader::Fill() {
  if (begin_ > 0) {
    memmove(buffer_.data(), buffer_.data() + begin_, end_ - begin_);
    end_ -= begin_;
    searched_ -= begin_;
    begin_ = 0;
  }
  ssize_t count;
  do {
    count = read(descriptor_, buffer_.data() + end_, buffer_.size() - end_);
  } while (count < 0 && errno == EINTR);
  if (count < 0) {
    error_ = errno;
  }
  if (count <= 0) {
    return false;
  }
  end_ += static_cast<size_t>(count);
  return true;
}

LineReader::Result LineReader::Next(std::string_view *line) {
  for (;;) {
    const char *start = buffer_.data() + begin_;
    const auto *line_break = static_cast<const char *>(memchr(buffer_.data() + searched_, '\n', end_ - searched_));
    if (line_break) {
      *line = {start, static_cast<size_t>(line_break - start)};
      begin_ = searched_ = begin_ + line->size() + 1;
      if (skipping_) {
        skipping_ = false;
        continue;
      }
      return kLine;
    }
    searched_ = end_;
    if (skipping_) {
      begin_ = end_;
    } else if (begin_ == 0 && end_ == buffer_.size()) {
      *line = {start, end_};
      begin_ = end_;
      skipping_ = true;
      return kTooLong;
    }
    if (!Fill()) {
      return kNothing;
    }
  }
}

LineReader::Result LineReader::Rest(std::string_view *line) {
  *line = {buffer_.data() + begin_, end_ - begin_};
  begin_ = searched_ = end_;
  return line->empty() || skipping_ ? kNothing : kCut;
}

} // namespace keylog
