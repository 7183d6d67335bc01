#include "delivery_thread.h"

#include <utility>

namespace lumio {

namespace {
thread_local bool t_on_delivery_thread = false;
}

void DeliveryThread::Post(std::function<void()> delivery) {
  const std::lock_guard<std::mutex> lock(m_mutex);
  if (m_stopped) {
    return;
  }
  m_queue.push_back(std::move(delivery));
  ++m_posts;
  if (!m_thread.joinable()) {
    m_thread = std::thread(&DeliveryThread::Run, this);
  }
  m_posted.notify_one();
}

void DeliveryThread::Flush() {
  if (t_on_delivery_thread) {
    return;
  }
  std::unique_lock<std::mutex> lock(m_mutex);
  const std::uint64_t posts = m_posts;
  m_carried_out.wait(lock, [&] { return m_ends >= posts; });
}

void DeliveryThread::Stop() {
  std::thread thread;
  {
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_stopped = true;
    m_ends += m_queue.size();
    m_queue.clear();
    thread.swap(m_thread);
    m_posted.notify_one();
    m_carried_out.notify_all();
  }
  if (thread.get_id() == std::this_thread::get_id()) {
    thread.detach();
  } else if (thread.joinable()) {
    thread.join();
  }
}

void DeliveryThread::Run() {
  t_on_delivery_thread = true;
  std::unique_lock<std::mutex> lock(m_mutex);
  for (;;) {
    m_posted.wait(lock, [&] { return m_stopped || !m_queue.empty(); });
    if (m_stopped) {
      return;
    }
    std::function<void()> delivery = std::move(m_queue.front());
    m_queue.pop_front();
    lock.unlock();
    delivery();
    delivery = nullptr; // what it holds is released before anyone learns that it ended
    lock.lock();
    ++m_ends;
    m_carried_out.notify_all();
  }
}

} // namespace lumio
