// What the next calls of a host service's functions are to meet, as a test or demo asked for it.
#pragma once

#include <functional>
#include <map>
#include <mutex>
#include <optional>
#include <queue>
#include <utility>

namespace lumio {

// `Call` is an enumeration of the service's functions. All operations may be called on any thread.
template <class Call> class CallPlan {
public:
  void RefuseNext(Call call, int result) {
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_refusals[call].push(result);
  }

  void DuringNext(Call call, std::function<void()> action) {
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_actions[call].push(std::move(action));
  }

  // One call: `perform` unless it is refused, then the action planned for it, then the answer. No lock is held
  // meanwhile.
  int Carry(Call call, const std::function<int()> &perform) {
    const std::optional<int> refusal = TakeNext(m_refusals, call);
    const std::optional<std::function<void()>> action = TakeNext(m_actions, call);
    const int result = refusal ? *refusal : perform();
    if (action) {
      (*action)();
    }
    return result;
  }

private:
  template <class T> std::optional<T> TakeNext(std::map<Call, std::queue<T>> &planned, Call call) {
    const std::lock_guard<std::mutex> lock(m_mutex);
    std::queue<T> &queue = planned[call];
    if (queue.empty()) {
      return std::nullopt;
    }
    std::optional<T> next = std::move(queue.front());
    queue.pop();
    return next;
  }

  std::mutex m_mutex; // guards both maps
  std::map<Call, std::queue<int>> m_refusals;
  std::map<Call, std::queue<std::function<void()>>> m_actions;
};

} // namespace lumio
