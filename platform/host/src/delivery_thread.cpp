#include "delivery_thread.h"

#include <utility>

namespace lumio {

namespace {
thread_local bool t_on_delivery_thread = false;
}

void DeliveryThread::Post(std::function<void()> delivery) {
  const std::lock_guard<std::mutex> lock(mutex_);
  if (stopped_) {
    return;
  }
  queue_.push_back(std::move(delivery));
  ++posts_;
  if (!thread_.joinable()) {
    thread_ = std::thread(&DeliveryThread::Run, this);
  }
  posted_.notify_one();
}

bool DeliveryThread::IsThisOne() { return t_on_delivery_thread; }

void DeliveryThread::Flush() {
  if (t_on_delivery_thread) {
    return;
  }
  std::unique_lock<std::mutex> lock(mutex_);
  const std::uint64_t posts = posts_;
  carried_out_.wait(lock, [&] { return ends_ >= posts; });
}

void DeliveryThread::FlushUnless(const std::function<bool()> &cancelled) {
  std::unique_lock<std::mutex> lock(mutex_);
  const std::uint64_t posts = posts_;
  carried_out_.wait(lock, [&] { return ends_ >= posts || cancelled(); });
}

void DeliveryThread::Wake() {
  const std::lock_guard<std::mutex> lock(mutex_);
  carried_out_.notify_all();
}

void DeliveryThread::Stop() {
  std::thread thread;
  {
    const std::lock_guard<std::mutex> lock(mutex_);
    stopped_ = true;
    ends_ += queue_.size();
    queue_.clear();
    thread.swap(thread_);
    posted_.notify_one();
    carried_out_.notify_all();
  }
  if (thread.get_id() == std::this_thread::get_id()) {
    thread.detach();
  } else if (thread.joinable()) {
    thread.join();
  }
}

void DeliveryThread::Run() {
  t_on_delivery_thread = true;
  std::unique_lock<std::mutex> lock(mutex_);
  for (;;) {
    posted_.wait(lock, [&] { return stopped_ || !queue_.empty(); });
    if (stopped_) {
      return;
    }
    std::function<void()> delivery = std::move(queue_.front());
    queue_.pop_front();
    lock.unlock();
    delivery();
    delivery = nullptr; // releases what it holds before a waiting thread learns that it has ended
    lock.lock();
    ++ends_;
    carried_out_.notify_all();
  }
}

} // namespace lumio
