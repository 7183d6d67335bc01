#include <Kestrel/CAutoLock.h>
#include <Kestrel/TCMutex.h>

#include <cstdio>
#include <cstdlib>

namespace Kestrel {

// The lock itself lives as long as the object; the handle only says whether it may be taken. Destroy() therefore frees
// nothing that a waiting thread still uses. A thread that gets the lock after Destroy() excludes threads that come
// after a later Create(), since all of them use the same lock.

TCMutex::TCMutex() = default;
TCMutex::~TCMutex() = default;

bool TCMutex::Create() {
  m_handle.store(reinterpret_cast<std::uintptr_t>(&m_lock), std::memory_order_release);
  return true;
}

void TCMutex::Destroy() { m_handle.store(0, std::memory_order_release); }

bool TCMutex::Lock() {
  if (!IsCreated()) {
    return false;
  }
  // Only the thread itself writes its own id, so its own id is never out of date.
  if (m_owner.load(std::memory_order_relaxed) == std::this_thread::get_id()) {
    std::fputs("Kestrel::TCMutex: this thread locked a mutex that it already holds. The mutex is not recursive: on a "
               "television, the thread would wait for itself for ever. Unlock the mutex first (end the scope of the "
               "CAutoLock, or call its Unlock), and call nothing that locks it again while it is held.\n",
               stderr);
    std::abort();
  }
  m_lock.lock();
  m_owner.store(std::this_thread::get_id(), std::memory_order_relaxed);
  return true;
}

bool TCMutex::Unlock() {
  if (m_owner.load(std::memory_order_relaxed) != std::this_thread::get_id()) {
    return false;
  }
  m_owner.store(std::thread::id(), std::memory_order_relaxed);
  m_lock.unlock();
  return true;
}

} // namespace Kestrel

CAutoLock::CAutoLock(Kestrel::TCMutex &mutex, int mode) : m_mode(mode), m_mutex(&mutex) { Lock(); }

CAutoLock::~CAutoLock() {
  if (m_locked) {
    Unlock();
  }
  if (m_mode == DESTROY_ON_RELEASE) {
    m_mutex->Destroy();
  }
}

void CAutoLock::Lock() {
  do {
    if (!m_mutex->IsCreated()) {
      m_mutex->Create();
    }
  } while (!m_mutex->Lock()); // fails if another thread has destroyed the mutex since
  m_locked = true;
}

void CAutoLock::Unlock() {
  m_mutex->Unlock();
  m_locked = false;
}
