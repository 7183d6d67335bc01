/**
 * @file LumioStateSubscriber.h
 * The viewer's own state changes, told to every module that asked for them.
 *
 * Each module holds a `CLumioStateSubscriber` with its name and registers one or more callbacks. The application
 * announces every change once, with `CLumioStateSubscriber::HandleStateChanged`.
 *
 * Every function may be called on any thread. Callbacks run on the thread that announces, one at a time, with
 * `viewerMutex` held: a callback must not register, unregister or announce. On a platform whose lock is not recursive
 * it would wait for itself for ever; the desktop's lock ends the process with a message instead.
 */
#ifndef LUMIO_STATE_SUBSCRIBER_H
#define LUMIO_STATE_SUBSCRIBER_H

#include <Kestrel/TCMutex.h>

#include <map>
#include <string>

#pragma GCC visibility push(default)

/** State of the viewer. The application defines the values; the library only passes them on. */
enum ELUMIO_STATE : int;

/** Guards the registrations of `CLumioStateSubscriber`. Created when it is first used. */
extern Kestrel::TCMutex viewerMutex;

/**
 * A module's way to register for state changes. The registrations are shared by all objects of the process: they do not
 * end with the object they were made through, and any object may end them.
 */
class CLumioStateSubscriber {
public:
  /**
   * Told a state of the viewer, on the thread that announces it, with `viewerMutex` held.
   *
   * @param state     the state that was announced
   * @param userData  what was given to `RegisterLumioStateChangeCb`
   */
  typedef void (*StateChangedCallback)(ELUMIO_STATE state, void *userData);

  /** @param moduleName  the module's name for log messages; copied */
  explicit CLumioStateSubscriber(const std::string &moduleName);

  /**
   * Registers a callback under this object's module name. Any thread; the callback runs on the thread that announces.
   *
   * Callbacks run in ascending order of their addresses, not in the order of registration. When memory is short,
   * `std::bad_alloc` passes through and the lock is released; the callback may then be registered without a name, in
   * which case it is never called, and it has to be unregistered before it can be registered again.
   *
   * @param callback  the callback, not null
   * @param userData  given back to `callback`; not owned
   * @return true when registered; false, with a log message, when `callback` is null or already registered, by
   * whichever module: the user data and the name of the first registration stay
   */
  bool RegisterLumioStateChangeCb(StateChangedCallback callback, void *userData);

  /**
   * Ends the registration of a callback, whichever object it was made through. Any thread. The callback does not run
   * any more once this has returned.
   *
   * @param callback  the callback
   * @return true when it was registered; false, with a log message, when it was not, or had been registered without a
   * name for lack of memory. It is not registered afterwards in any case
   */
  bool UnregisterLumioStateChangeCb(StateChangedCallback callback);

  /**
   * Tells every registered callback a state, and returns when all have run. Any thread; the callbacks run on it. States
   * announced on several threads are told one after the other.
   *
   * @param state  the new state
   */
  static void HandleStateChanged(ELUMIO_STATE state);

  std::string m_moduleName; ///< the module's name; read by each registration, logged by each unregistration

  static std::map<StateChangedCallback, void *> m_StateChangedCBMap; ///< user data; guarded by `viewerMutex`
  static std::map<StateChangedCallback, std::string>
      m_StateChangedCBRequesterMap; ///< names of the modules that registered; guarded by `viewerMutex`
};

#pragma GCC visibility pop

#endif
