/**
 * @file CAutoLock.h
 * The platform framework's scoped lock.
 */
#ifndef KESTREL_CAUTOLOCK_H
#define KESTREL_CAUTOLOCK_H

#include "Kestrel/TCMutex.h"

/** Holds a `Kestrel::TCMutex` until the end of a scope. One thread at a time may use an object. */
class CAutoLock {
public:
  enum {
    KEEP = 0,              ///< the mutex stays created when the scope ends
    DESTROY_ON_RELEASE = 1 ///< the mutex is destroyed when the scope ends
  };

  /**
   * Creates the mutex if necessary, then locks it.
   *
   * @param mutex  not owned; must outlive this object
   * @param mode   `KEEP` or `DESTROY_ON_RELEASE`
   */
  explicit CAutoLock(Kestrel::TCMutex &mutex, int mode = KEEP);
  /** Unlocks the mutex if it is still locked, then destroys it in mode `DESTROY_ON_RELEASE`. */
  ~CAutoLock();

  CAutoLock(const CAutoLock &) = delete;
  CAutoLock &operator=(const CAutoLock &) = delete;

  /** Locks again after an early `Unlock`. Creates the mutex if necessary. */
  void Lock();
  /** Unlocks before the scope ends. */
  void Unlock();

private:
  bool m_locked = false;
  int m_mode;
  Kestrel::TCMutex *m_mutex;
};

#endif
