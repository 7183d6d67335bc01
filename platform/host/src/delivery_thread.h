// The thread on which a host service calls the application back.
#pragma once

#include <condition_variable>
#include <cstdint>
#include <deque>
#include <functional>
#include <mutex>
#include <thread>

namespace lumio {

// Runs posted deliveries one at a time, in order, and holds no lock meanwhile. The thread starts with the first post.
// All functions may be called on any thread, including from a delivery.
class DeliveryThread {
public:
  // Drops `delivery` if the thread has been stopped.
  void Post(std::function<void()> delivery);
  // Whether this is a delivery thread.
  static bool IsThisOne();
  // Waits until everything posted so far has run or is dropped. Returns at once on any delivery thread, since two of
  // them could wait for each other.
  void Flush();
  // Waits likewise, also on a delivery thread, but gives up once cancelled() answers true. Whoever makes it do so calls
  // `Wake`.
  void FlushUnless(const std::function<bool()> &cancelled);
  void Wake();
  // Drops deliveries that have not begun. Waits for the current one to end, except on the thread itself.
  void Stop();

private:
  void Run();

  std::mutex mutex_; // guards everything below
  std::condition_variable posted_;
  std::condition_variable carried_out_;
  std::deque<std::function<void()>> queue_;
  std::uint64_t posts_ = 0;
  std::uint64_t ends_ = 0; // posts that have run or were dropped
  bool stopped_ = false;
  std::thread thread_;
};

} // namespace lumio
