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
      : deliver_(deliver), drop_(drop) {}
  MainLoopQueue(const MainLoopQueue &) = delete;
  MainLoopQueue &operator=(const MainLoopQueue &) = delete;

  // Delivers at once on the main-loop thread, after what is queued, and appends to the queue on any other. Returns
  // false when memory is short; the event is then still the caller's.
  bool Push(QueuedEvent *event);

private:
  static void OnWakeUp(void *queue);
  void Drain();
  bool AppendAndWakeUp(QueuedEvent *event);

  bool (*deliver_)(QueuedEvent *);
  void (*drop_)(QueuedEvent *);
  std::mutex mutex_; // guards what follows
  QueuedEvent *first_ = nullptr;
  QueuedEvent **end_ = &first_;
  bool wake_up_pending_ = false; // whenever something is queued
};

} // namespace lumio
