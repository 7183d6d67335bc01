/**
 * @file TCMutex.h
 * The platform framework's lock.
 */
#ifndef KESTREL_TCMUTEX_H
#define KESTREL_TCMUTEX_H

#include <atomic>
#include <cstdint>
#include <mutex>
#include <thread>

namespace Kestrel {

/**
 * A lock whose underlying object is created on demand. The constructor only sets the handle to 0 (not created), so a
 * static object costs nothing. Not copyable.
 */
class TCSemaphore {
public:
  TCSemaphore() = default;
  TCSemaphore(const TCSemaphore &) = delete;
  TCSemaphore &operator=(const TCSemaphore &) = delete;
  virtual ~TCSemaphore() = default;

  /** Creates the underlying lock unless it exists. @return whether the lock exists afterwards. Any thread. */
  virtual bool Create() = 0;
  /**
   * Closes the underlying lock; `Create` creates a new one. A thread that holds the lock keeps it until its `Unlock`,
   * and a thread that waits for the lock still gets it. Any thread.
   */
  virtual void Destroy() = 0;
  /** Waits for the lock and takes it. @return false if the lock is not created. Any thread. */
  virtual bool Lock() = 0;
  /** Releases the lock. @return false if the calling thread does not hold it. */
  virtual bool Unlock() = 0;

  /** @return whether the underlying lock exists, that is, whether the handle is not 0. Any thread. */
  bool IsCreated() const { return m_handle.load(std::memory_order_acquire) != 0; }

protected:
  std::atomic<std::uintptr_t> m_handle{0}; ///< the underlying lock; 0 if there is none
};

/**
 * Mutual exclusion between the threads of one process. Not recursive: a thread that locks a second time deadlocks. On
 * the desktop, the process aborts instead, with a message that explains the mistake.
 */
class TCMutex : public TCSemaphore {
public:
  TCMutex();
  ~TCMutex() override;

  bool Create() override;
  void Destroy() override;
  bool Lock() override;
  bool Unlock() override;

private:
  std::mutex m_lock;
  std::atomic<std::thread::id> m_owner{std::thread::id()}; ///< no thread while the lock is free
};

} // namespace Kestrel

#endif
