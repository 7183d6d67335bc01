#include "main_loop_queue.h"

#include <Ecore.h>

#include <cerrno>
#include <type_traits>
#include <utility>

namespace lumio {

static_assert(std::is_trivially_destructible_v<MainLoopQueue>, "it outlives the end of the process");

bool MainLoopQueue::Push(QueuedEvent *event) {
  if (!eina_main_loop_is()) {
    return AppendAndWakeUp(event);
  }
  Drain();
  return m_deliver(event);
}

bool MainLoopQueue::AppendAndWakeUp(QueuedEvent *event) {
  std::lock_guard<std::mutex> lock(m_mutex);
  event->next = nullptr;
  if (!m_wake_up_pending) {
    // Ecore does not tell that it had no memory for the wake-up, but the allocator does.
    errno = 0;
    ecore_main_loop_thread_safe_call_async(OnWakeUp, this);
    if (errno == ENOMEM) {
      return false;
    }
    m_wake_up_pending = true;
  }
  *m_end = event;
  m_end = &event->next;
  return true;
}

void MainLoopQueue::OnWakeUp(void *queue) {
  auto *self = static_cast<MainLoopQueue *>(queue);
  {
    std::lock_guard<std::mutex> lock(self->m_mutex);
    self->m_wake_up_pending = false;
  }
  self->Drain();
}

void MainLoopQueue::Drain() {
  QueuedEvent *event = nullptr;
  {
    std::lock_guard<std::mutex> lock(m_mutex);
    event = std::exchange(m_first, nullptr);
    m_end = &m_first;
  }
  while (event) {
    QueuedEvent *next = event->next; // delivering gives the event away
    if (!m_deliver(event)) {
      m_drop(event);
    }
    event = next;
  }
}

} // namespace lumio
