// An amount of memory that several buffers share, so that a hostile stream cannot ask for more.
#pragma once

#include <cstddef>

namespace lumio::broadcast {

class Budget {
public:
  explicit Budget(std::size_t bytes) : all_(bytes), left_(bytes) {}

  // Returns whether enough was left; if not, takes nothing.
  bool Take(std::size_t bytes) {
    if (bytes > left_) {
      return false;
    }
    left_ -= bytes;
    return true;
  }
  void Give(std::size_t bytes) { left_ += bytes; }
  // Returns whether enough is left to keep buffers for later.
  bool IsAmple() const { return left_ > all_ / 2; }

private:
  const std::size_t all_;
  std::size_t left_;
};

} // namespace lumio::broadcast
