// Notifications on their way from any thread to the main loop.
#pragma once

#include <mutex>

namespace lumio {

// An Ecore event on its way.
struct QueuedEvent {
  QueuedEvent *next;
  int index; // which of the event types
  void *event;
};

// Takes events to the main loop, in order of arrival, with one wake-up of the loop however many are waiting.
//
// Constant-initialised and never destroyed: threads may push as late as while the process ends.
class MainLoopQueue {
public:
  // `deliver` runs on the main-loop thread and returns false when memory is short; `drop` takes what it refused.
  constexpr MainLoopQueue(bool (*deliver)(QueuedEvent *), void (*drop)(QueuedEvent *))
      : m_deliver(deliver), m_drop(drop) {}
  MainLoopQueue(const MainLoopQueue &) = delete;
  MainLoopQueue &operator=(const MainLoopQueue &) = delete;

  // Delivers at once on the main-loop thread, after what is queued, and appends to the queue on any other. Returns
  // false when memory is short; the event is then still the caller's.
  bool Push(QueuedEvent *event);

private:
  static void OnWakeUp(void *queue);
  void Drain();
  bool AppendAndWakeUp(QueuedEvent *event);

  bool (*m_deliver)(QueuedEvent *);
  void (*m_drop)(QueuedEvent *);
  std::mutex m_mutex; // guards what follows
  QueuedEvent *m_first = nullptr;
  QueuedEvent **m_end = &m_first;
  bool m_wake_up_pending = false; // whenever something is queued
};

} // namespace lumio
