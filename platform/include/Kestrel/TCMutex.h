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
 * A lock whose underlying object is made on demand. Constructed with handle 0 (not created), which costs nothing, so
 * that it can be a static object. Not copyable.
 */
class TCSemaphore {
public:
  TCSemaphore() = default;
  TCSemaphore(const TCSemaphore &) = delete;
  TCSemaphore &operator=(const TCSemaphore &) = delete;
  virtual ~TCSemaphore() = default;

  /** Makes the underlying lock unless it exists. @return true when the lock exists afterwards. Any thread. */
  virtual bool Create() = 0;
  /**
   * Closes the underlying lock; `Create` makes a new one. A thread that holds the lock keeps it and gives it back with
   * `Unlock` as ever; one that waits for it still gets it. Any thread.
   */
  virtual void Destroy() = 0;
  /** Waits for the lock and takes it. @return false when the lock is not created. Any thread. */
  virtual bool Lock() = 0;
  /** Gives the lock back. @return false when the calling thread does not hold it. */
  virtual bool Unlock() = 0;

  /** @return true when the underlying lock exists, that is, when the handle is not 0. Any thread. */
  bool IsCreated() const { return m_handle.load(std::memory_order_acquire) != 0; }

protected:
  std::atomic<std::uintptr_t> m_handle{0}; ///< the underlying lock; 0 while there is none
};

/**
 * Mutual exclusion between the threads of one process. Not recursive: a thread that locks a second time would wait for
 * itself for ever. On the desktop it is ended with a message that says so.
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
  std::atomic<std::thread::id> m_owner{std::thread::id()}; ///< none while nobody holds the lock
};

} // namespace Kestrel

#endif
