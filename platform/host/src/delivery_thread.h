// A thread of a host service that calls the application back.
#pragma once

#include <condition_variable>
#include <cstdint>
#include <deque>
#include <functional>
#include <mutex>
#include <thread>

namespace lumio {

// Carries out what is posted, one after the other in the order posted, without a lock of its own held. The thread
// starts with the first post. All operations may be called on any thread, also from what was posted.
class DeliveryThread {
public:
  // Drops `delivery` once the thread was stopped.
  void Post(std::function<void()> delivery);
  // Waits until everything posted before is carried out or dropped. On a delivery thread it returns at once, since two
  // of them would wait for each other.
  void Flush();
  // Drops what has not begun and waits for the end of what has, but not on the thread itself.
  void Stop();

private:
  void Run();

  std::mutex mutex_; // guards everything below
  std::condition_variable posted_;
  std::condition_variable carried_out_;
  std::deque<std::function<void()>> queue_;
  std::uint64_t posts_ = 0;
  std::uint64_t ends_ = 0; // posts that are carried out or dropped
  bool stopped_ = false;
  std::thread thread_;
};

} // namespace lumio
