/**
 * @file LumioStateSubscriber.h
 * Distributes the viewer's own state changes to its modules.
 *
 * Each module creates a `CLumioStateSubscriber` with its name and registers one or more callbacks. The application
 * announces each change once, with `CLumioStateSubscriber::HandleStateChanged`.
 *
 * You may call every function on any thread. Callbacks run on the announcing thread, one at a time, with `viewerMutex`
 * held, so a callback must not register, unregister or announce. If the platform's lock is not recursive, such a
 * callback deadlocks. The desktop's lock ends the process with a message instead.
 */
#ifndef LUMIO_STATE_SUBSCRIBER_H
#define LUMIO_STATE_SUBSCRIBER_H

#include <Kestrel/TCMutex.h>

#include <map>
#include <string>

#pragma GCC visibility push(default)

/** State of the viewer. The application defines the values; the library only passes them on. */
enum ELUMIO_STATE : int;

/** Guards the registrations of `CLumioStateSubscriber`. The first use creates it. */
extern Kestrel::TCMutex viewerMutex;

/**
 * Registers a module's callbacks for state changes. All objects of the process share the registrations: a registration
 * outlives the object that made it, and any object may end it.
 */
class CLumioStateSubscriber {
public:
  /**
   * Receives a state of the viewer. Runs on the thread that announces it, with `viewerMutex` held.
   *
   * @param state     the announced state
   * @param userData  the pointer that was given to `RegisterLumioStateChangeCb`
   */
  typedef void (*StateChangedCallback)(ELUMIO_STATE state, void *userData);

  /** @param moduleName  the module's name for log messages; the object keeps a copy */
  explicit CLumioStateSubscriber(const std::string &moduleName);

  /**
   * Registers a callback under this object's module name. Call on any thread; the callback runs on the announcing
   * thread.
   *
   * Callbacks run in ascending order of their addresses, not in the order of registration.
   *
   * If there is no memory, the call throws `std::bad_alloc` and releases the lock. The callback may then be registered
   * without a name: it is never called, and you must unregister it before you can register it again.
   *
   * @param callback  the callback, not null
   * @param userData  a pointer that the library passes to `callback` and never reads or frees
   * @return true on success. False, with a log message, if `callback` is null, or if any module has already registered
   * it: the first registration keeps its user data and name
   */
  bool RegisterLumioStateChangeCb(StateChangedCallback callback, void *userData);

  /**
   * Ends the registration of a callback, whichever object made it. Call on any thread. Once the call returns, the
   * callback does not run again.
   *
   * @param callback  the callback
   * @return true if the callback was registered. False, with a log message, if it was not, or if it was registered
   * without a name for lack of memory; that registration ends all the same
   */
  bool UnregisterLumioStateChangeCb(StateChangedCallback callback);

  /**
   * Calls every registered callback with a state, and returns when all have run. Call on any thread; the callbacks run
   * on it. If several threads announce states, the callbacks receive one state after the other.
   *
   * @param state  the new state
   */
  static void HandleStateChanged(ELUMIO_STATE state);

  std::string m_moduleName; ///< the module's name: each registration copies it, each unregistration logs it

  static std::map<StateChangedCallback, void *> m_StateChangedCBMap; ///< user data; guarded by `viewerMutex`
  static std::map<StateChangedCallback, std::string>
      m_StateChangedCBRequesterMap; ///< names of the modules that registered; guarded by `viewerMutex`
};

#pragma GCC visibility pop

#endif
