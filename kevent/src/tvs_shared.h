// What all kinds of TV-service subscriptions share: the lock, the containers that it guards, and the modules' copies.
//
// The lock guards every static container and every copy. No callback of a module runs while it is held. A delivery
// therefore works in one way throughout: a function named ...Of() holds a guard, copies what one call needs, and
// returns the copy; the call is made after the guard is gone. From then on another thread, or the callback itself, may
// release everything.
//
// The service's threads test a container's pointer before they take the lock, so these pointers are written atomically.
#pragma once

#include <TVServiceSubscriber.h>

#include <Kestrel/CAutoLock.h>
#include <Kestrel/TCMutex.h>

#include <atomic>
#include <map>
#include <memory>

#define LUMIO_LOG_FILE "TVServiceSubscriber.cpp"
#include "log.h"

// Modules rely on the preconditions being checked in release builds too.
#undef NDEBUG
#include <cassert>

namespace lumio::tvs {

using lumio::kError;
using lumio::kTrace;
using Subscriber = CTVServiceSubscriber;

// The one lock. Operations and the service's threads create it with CAutoLock; ReleaseAll closes it.
extern Kestrel::TCMutex mutex;

// Counts the calls of ReleaseAll. ReleaseAll deletes every copy, so a pointer to a copy that was found under the lock
// is good only as long as this number stays the same. The containers cannot tell that: somebody may have filled new
// ones. Written with the lock held.
extern std::atomic<unsigned> g_releases;

// --- Containers ------------------------------------------------------------------------------------------------------

// Reads a pointer without the lock.
template <class T> T *Load(T *&pointer) { return __atomic_load_n(&pointer, __ATOMIC_ACQUIRE); }

// Writes, with the lock held, a pointer that is also read without it.
template <class T> void Store(T *&pointer, T *value) { __atomic_store_n(&pointer, value, __ATOMIC_RELEASE); }

// Call it with the lock held.
template <class Container> void CreateIfMissing(Container *&container) {
  if (!container) {
    Store(container, new Container);
  }
}

// Call it with the lock held.
template <class Container> void Discard(Container *&container) {
  const std::unique_ptr<Container> discarded(container);
  Store<Container>(container, nullptr);
}

// Deletes every copy. Call it with the lock held.
void ReleaseCopies();

// --- Guards ----------------------------------------------------------------------------------------------------------

// Thrown when the platform keeps refusing the lock to the event handler, which then drops the notification.
struct LockRefused {};

// The lock as the event handler takes it: without creating it, since an operation that made `container` has done so.
// Takes nothing if there is no container.
//
// There is one exception. ReleaseAll unlocks before it closes the lock, so a module can subscribe in between and leave
// a container without a lock. Its notifications must not be lost, so the handler creates the lock again.
class HandlerLock {
public:
  template <class Container> explicit HandlerLock(Container *&container) {
    for (int refusals = 0; !held_ && Load(container); ++refusals) {
      held_ = Take(refusals);
    }
  }
  ~HandlerLock();
  HandlerLock(const HandlerLock &) = delete;
  HandlerLock &operator=(const HandlerLock &) = delete;

  explicit operator bool() const { return held_; }

private:
  // Returns whether the lock was taken. Throws LockRefused if it cannot be created, or after too many refusals.
  static bool Take(int refusals);

  bool held_ = false;
};

// The lock as the service's threads take it.
class ServiceThreadLock {
public:
  template <class Container> explicit ServiceThreadLock(Container *&) : lock_(mutex) {}
  explicit operator bool() const { return true; }

private:
  CAutoLock lock_;
};

// A container for as long as its lock is held. Test it before you look inside: there may be no container.
template <class Lock, class Container> class Guard {
public:
  explicit Guard(Container *&container) : lock_(container), container_(lock_ ? container : nullptr) {}

  explicit operator bool() const { return container_; }
  const Container &operator*() const { return *container_; }
  const Container *operator->() const { return container_; }

private:
  Lock lock_;
  const Container *container_;
};

template <class Container> Guard<HandlerLock, Container> LockInHandler(Container *&container) {
  return Guard<HandlerLock, Container>(container);
}

template <class Container> Guard<ServiceThreadLock, Container> LockOnServiceThread(Container *&container) {
  return Guard<ServiceThreadLock, Container>(container);
}

// Returns the copy that `key` stands for; null if there is none, or no container.
template <class Lock> const Subscriber *Find(const Guard<Lock, std::map<int, Subscriber *>> &subscriptions, int key) {
  if (!subscriptions) {
    return nullptr;
  }
  const auto found = subscriptions->find(key);
  return found == subscriptions->end() ? nullptr : found->second;
}

} // namespace lumio::tvs
