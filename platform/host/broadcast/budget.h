// An amount of memory that several buffers share, so that a hostile stream cannot ask for more.
#pragma once

#include <cstddef>

namespace lumio::broadcast {

class Budget {
public:
  explicit Budget(std::size_t bytes) : left_(bytes) {}

  // Whether there was as much left; if not, nothing is taken.
  bool Take(std::size_t bytes) {
    if (bytes > left_) {
      return false;
    }
    left_ -= bytes;
    return true;
  }
  void Give(std::size_t bytes) { left_ += bytes; }

private:
  std::size_t left_;
};

} // namespace lumio::broadcast
