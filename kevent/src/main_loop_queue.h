// A queue of notifications from any thread to the main loop.
#pragma once

#include <mutex>

namespace lumio {

// An Ecore event in the queue.
struct QueuedEvent {
  QueuedEvent *next;
  int index; // of its event type
  void *event;
};

// Passes events to the main loop in the order of their arrival. The loop is woken once, however many events wait.
//
// Constant-initialised, with a trivial destructor, because threads may push while the process ends.
class MainLoopQueue {
public:
  // `deliver` runs on the main-loop thread and returns false if memory is short. `drop` then takes the event.
  constexpr MainLoopQueue(bool (*deliver)(QueuedEvent *), void (*drop)(QueuedEvent *))
      : deliver_(deliver), drop_(drop) {}
  MainLoopQueue(const MainLoopQueue &) = delete;
  MainLoopQueue &operator=(const MainLoopQueue &) = delete;

  // On the main-loop thread, delivers what is queued and then the event; on any other thread, appends the event to the
  // queue. Returns false if memory is short; the event is then still the caller's.
  bool Push(QueuedEvent *event);

private:
  static void OnWakeUp(void *queue);
  void Drain();
  bool AppendAndWakeUp(QueuedEvent *event);

  bool (*deliver_)(QueuedEvent *);
  void (*drop_)(QueuedEvent *);
  std::mutex mutex_; // guards the members below
  QueuedEvent *first_ = nullptr;
  QueuedEvent **end_ = &first_;
  bool wake_up_pending_ = false; // on its way to the main loop
};

} // namespace lumio
