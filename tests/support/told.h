// What callbacks were told on the threads of a service, and the end of those threads.
#pragma once

#include <atomic>
#include <mutex>
#include <string>
#include <vector>

// Any thread.
class Told {
public:
  void Add(const std::string &what) {
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_told.push_back(what);
  }

  std::vector<std::string> All() {
    const std::lock_guard<std::mutex> lock(m_mutex);
    return m_told;
  }

private:
  std::mutex m_mutex;
  std::vector<std::string> m_told;
};

// Counts the ends of the threads that called Watch(): only a joined thread has certainly been counted.
class EndOfThread {
public:
  static void Watch(std::atomic<int> &ends) {
    static thread_local EndOfThread t_end;
    t_end.m_ends = &ends;
  }

private:
  ~EndOfThread() { ++*m_ends; }

  std::atomic<int> *m_ends = nullptr;
};
