// Refusals and actions that a test or demo has planned for the next calls of a host service's functions.
#pragma once

#include <functional>
#include <map>
#include <mutex>
#include <optional>
#include <queue>
#include <utility>

namespace lumio {

// `Call` is an enumeration of the service's functions. All functions may be called on any thread.
template <class Call> class CallPlan {
public:
  void RefuseNext(Call call, int result) {
    const std::lock_guard<std::mutex> lock(mutex_);
    refusals_[call].push(result);
  }

  void DuringNext(Call call, std::function<void()> action) {
    const std::lock_guard<std::mutex> lock(mutex_);
    actions_[call].push(std::move(action));
  }

  // Carries out one call: runs `perform` unless the call is refused, then the planned action, and returns the result.
  // Holds no lock while it runs them.
  int Carry(Call call, const std::function<int()> &perform) {
    const std::optional<int> refusal = TakeNext(refusals_, call);
    const std::optional<std::function<void()>> action = TakeNext(actions_, call);
    const int result = refusal ? *refusal : perform();
    if (action) {
      (*action)();
    }
    return result;
  }

private:
  template <class T> std::optional<T> TakeNext(std::map<Call, std::queue<T>> &planned, Call call) {
    const std::lock_guard<std::mutex> lock(mutex_);
    std::queue<T> &queue = planned[call];
    if (queue.empty()) {
      return std::nullopt;
    }
    std::optional<T> next = std::move(queue.front());
    queue.pop();
    return next;
  }

  std::mutex mutex_; // guards both maps
  std::map<Call, std::queue<int>> refusals_;
  std::map<Call, std::queue<std::function<void()>>> actions_;
};

} // namespace lumio
