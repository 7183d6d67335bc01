// Notifications between the service's call and the main loop: when each was sent. They come out in the order in which
// they went in, but for those of several threads that went in at the same time, and those that were lost on the way;
// so each is known by its content.
#pragma once

#include <cstddef>
#include <cstdint>
#include <mutex>
#include <vector>

#include "clock.h"

namespace lumio::trace {

// A number that is the same for the same content.
class Content {
public:
  Content &Add(const void *bytes, size_t size) {
    for (size_t i = 0; i < size; ++i) {
      value_ = (value_ ^ static_cast<const unsigned char *>(bytes)[i]) * 1099511628211u;
    }
    return *this;
  }
  template <class Value> Content &Add(const Value &value) { return Add(&value, sizeof value); }

  std::uint64_t Value() const { return value_; }

private:
  std::uint64_t value_ = 14695981039346656037u;
};

class SentQueue {
public:
  void Push(std::uint64_t content);
  // The last one of this content was not sent after all.
  void TakeBack(std::uint64_t content);
  // When the next one of this content was sent; kNotKnown when more are on their way than are remembered.
  Nanoseconds Pop(std::uint64_t content);

  // For the state, while nobody changes it.
  unsigned long long Length() const { return sent_ - popped_; }
  Nanoseconds LongestWait() const { return longest_; }

private:
  static constexpr size_t kRemembered = 65536;
  static constexpr int kLookAhead = 32; // notifications that may have overtaken or been lost

  struct Entry {
    std::uint64_t content;
    Nanoseconds when;
  };

  bool IsRemembered(std::uint64_t number) const { return number + kRemembered >= sent_; }
  Entry &At(std::uint64_t number) { return ring_[number % kRemembered]; }

  std::mutex mutex_;
  std::vector<Entry> ring_;
  std::uint64_t sent_ = 0;
  std::uint64_t popped_ = 0;
  Nanoseconds longest_ = 0;
};

} // namespace lumio::trace
