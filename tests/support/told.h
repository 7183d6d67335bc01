// Records what callbacks receive on a service's threads, and counts how many of those threads have ended.
#pragma once

#include <atomic>
#include <mutex>
#include <string>
#include <vector>

// Thread-safe.
class Told {
public:
  void Add(const std::string &what) {
    const std::lock_guard<std::mutex> lock(mutex_);
    told_.push_back(what);
  }

  std::vector<std::string> All() {
    const std::lock_guard<std::mutex> lock(mutex_);
    return told_;
  }

private:
  std::mutex mutex_;
  std::vector<std::string> told_;
};

// Counts the ends of the threads that called Watch(). The count is certain only for threads that were joined.
class EndOfThread {
public:
  static void Watch(std::atomic<int> &ends) {
    static thread_local EndOfThread t_end;
    t_end.ends_ = &ends;
  }

private:
  ~EndOfThread() { ++*ends_; }

  std::atomic<int> *ends_ = nullptr;
};
