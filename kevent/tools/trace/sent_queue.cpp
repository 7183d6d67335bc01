#include "sent_queue.h"

#include <algorithm>

namespace lumio::trace {

void SentQueue::Push(std::uint64_t content) {
  const std::lock_guard<std::mutex> lock(mutex_);
  if (ring_.empty()) {
    ring_.resize(kRemembered);
  }
  At(sent_++) = {content, Now()};
}

void SentQueue::TakeBack(std::uint64_t content) {
  const std::lock_guard<std::mutex> lock(mutex_);
  if (sent_ > popped_ && At(sent_ - 1).content == content) {
    --sent_;
  }
}

Nanoseconds SentQueue::Pop(std::uint64_t content) {
  const std::lock_guard<std::mutex> lock(mutex_);
  if (popped_ == sent_) {
    return kNotKnown;
  }
  if (!IsRemembered(popped_)) {
    ++popped_;
    return kNotKnown;
  }
  for (std::uint64_t number = popped_; number < std::min<std::uint64_t>(sent_, popped_ + kLookAhead); ++number) {
    if (At(number).content == content) {
      const Nanoseconds when = At(number).when;
      if (number != popped_) {
        At(number) = At(popped_); // keeps a notification that was overtaken
      }
      ++popped_;
      longest_ = std::max(longest_, Now() - when);
      return when;
    }
  }
  return kNotKnown;
}

} // namespace lumio::trace
