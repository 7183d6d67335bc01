// Runs threads against each other.
#pragma once

#include <atomic>
#include <functional>
#include <thread>
#include <vector>

constexpr int kThreads = 4;

// Runs `body` on kThreads threads that start together, numbered from 0, and waits for them.
inline void Race(const std::function<void(int thread)> &body) {
  std::atomic<int> missing{kThreads};
  std::vector<std::thread> threads;
  for (int i = 0; i < kThreads; ++i) {
    threads.emplace_back([&, i] {
      --missing;
      while (missing != 0) {
        std::this_thread::yield();
      }
      body(i);
    });
  }
  for (std::thread &thread : threads) {
    thread.join();
  }
}
