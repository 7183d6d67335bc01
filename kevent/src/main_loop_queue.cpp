#include "main_loop_queue.h"

#include <Ecore.h>

#include <cerrno>
#include <type_traits>
#include <utility>

namespace lumio {

static_assert(std::is_trivially_destructible_v<MainLoopQueue>, "threads may push while the process ends");

bool MainLoopQueue::Push(QueuedEvent *event) {
  if (!eina_main_loop_is()) {
    return AppendAndWakeUp(event);
  }
  Drain();
  return deliver_(event);
}

bool MainLoopQueue::AppendAndWakeUp(QueuedEvent *event) {
  std::lock_guard<std::mutex> lock(mutex_);
  event->next = nullptr;
  if (!wake_up_pending_) {
    // Ecore does not report that it had no memory for the wake-up, but the allocator does.
    errno = 0;
    ecore_main_loop_thread_safe_call_async(OnWakeUp, this);
    if (errno == ENOMEM) {
      return false;
    }
    wake_up_pending_ = true;
  }
  *end_ = event;
  end_ = &event->next;
  return true;
}

void MainLoopQueue::OnWakeUp(void *queue) {
  auto *self = static_cast<MainLoopQueue *>(queue);
  {
    std::lock_guard<std::mutex> lock(self->mutex_);
    self->wake_up_pending_ = false;
  }
  self->Drain();
}

void MainLoopQueue::Drain() {
  QueuedEvent *event = nullptr;
  {
    std::lock_guard<std::mutex> lock(mutex_);
    event = std::exchange(first_, nullptr);
    end_ = &first_;
  }
  while (event) {
    QueuedEvent *next = event->next; // read first: deliver_ gives the event away
    if (!deliver_(event)) {
      drop_(event);
    }
    event = next;
  }
}

} // namespace lumio
