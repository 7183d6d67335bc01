// Records when the service sent each notification that the main loop has not yet delivered.
//
// Notifications mostly arrive in the order in which they were sent. Several threads may send at the same time, though,
// and some notifications are lost, so the queue recognises each by its content.
#pragma once

#include <cstddef>
#include <cstdint>
#include <mutex>
#include <vector>

#include "clock.h"

namespace lumio::trace {

// Returns a number that is the same for the same content.
class Content {
public:
  Content &Add(const void *bytes, size_t size) {
    for (size_t i = 0; i < size; ++i) {
      value_ = (value_ ^ static_cast<const unsigned char *>(bytes)[i]) * 1099511628211u;
    }
    return *this;
  }
  // NOLINTNEXTLINE(bugprone-sizeof-expression): of a pointer, the address counts
  template <class Value> Content &Add(const Value &value) { return Add(&value, sizeof(Value)); }

  std::uint64_t Value() const { return value_; }

private:
  std::uint64_t value_ = 14695981039346656037u;
};

class SentQueue {
public:
  void Push(std::uint64_t content);
  // Forgets the last one of this content: it was not sent after all.
  void TakeBack(std::uint64_t content);
  // Returns when the next one of this content was sent; kNotKnown if more are on their way than the queue holds.
  Nanoseconds Pop(std::uint64_t content);

  // For printing the state. Call it while no thread changes the queue.
  unsigned long long Length() const { return sent_ - popped_; }
  Nanoseconds LongestWait() const { return longest_; }

private:
  static constexpr size_t kRemembered = 65536;
  static constexpr int kLookAhead = 32; // how many notifications may be out of order or lost

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
