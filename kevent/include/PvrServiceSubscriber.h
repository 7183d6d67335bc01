/**
 * @file PvrServiceSubscriber.h
 * Results and states of the recording (PVR) service, told to every module that asked for them.
 *
 * The service gives a process one result callback and one state callback. `CPvrServiceSubscriber` takes both and hands
 * each notification to any number of modules. It connects to the service when the first callback of either kind is
 * registered, and takes part in a kind of notification while callbacks of that kind are registered.
 *
 * Every function may be called on any thread. Callbacks run on the service's threads, one at a time, with `pvrMutex`
 * held: a callback must not register or unregister. On a platform whose lock is not recursive it would wait for itself
 * for ever; the desktop's lock ends the process with a message instead.
 */
#ifndef PVR_SERVICE_SUBSCRIBER_H
#define PVR_SERVICE_SUBSCRIBER_H

#include <Kestrel/TCMutex.h>
#include <pvr-service.h>

#include <map>
#include <string>

#pragma GCC visibility push(default)

/** Guards the registrations of `CPvrServiceSubscriber`. Created when it is first used. */
extern Kestrel::TCMutex pvrMutex;

/**
 * A module's way to register for recording results and states. The registrations are shared by all objects of the
 * process: they do not end with the object they were made through, and any object may end them.
 */
class CPvrServiceSubscriber {
public:
  /**
   * Told the outcome of a recording operation, on a thread of the service, with `pvrMutex` held.
   *
   * @param result    the outcome
   * @param userData  what was given to `RegisterPvrCb`
   */
  typedef void (*PvrResultCallback)(ps_result_thirdpart result, void *userData);

  /**
   * Told a state of the recorder, on a thread of the service, with `pvrMutex` held.
   *
   * @param state     the state
   * @param userData  what was given to `RegisterPvrStateCb`
   * @return ignored
   */
  typedef bool (*PvrStateCallback)(pvr_state_e state, void *userData);

  /** @param moduleName  the module's name for log messages; copied */
  explicit CPvrServiceSubscriber(const std::string &moduleName);

  /**
   * Registers a callback for results. Any thread; the callback runs on threads of the service.
   *
   * The service is asked before the callback is looked at: a null callback that is the first of all leaves the
   * connection open and the process registered for results. Whatever fails, nothing that was done before is undone.
   * When memory is short, `std::bad_alloc` passes through, the lock is released and the callback is not registered.
   *
   * Callbacks run in ascending order of their addresses, not in the order of registration.
   *
   * @param callback  the callback, not null
   * @param userData  given back to `callback`; not owned
   * @return 0 when registered; -2, with a log message, when the service refused, or `callback` is null or already
   * registered, by whichever module: the user data of the first registration stays
   */
  int RegisterPvrCb(PvrResultCallback callback, void *userData);

  /**
   * Ends the registration of a callback for results, whichever object it was made through; with the last one the
   * process stops being told results. Any thread. The callback does not run any more once this has returned.
   *
   * @param callback  the callback
   * @return 0 when it was registered, also when the service then refused to let go, which is logged; -2, with a log
   * message, when it was not
   */
  int UnRegisterPvrCb(PvrResultCallback callback);

  /**
   * Registers a callback for states, as `RegisterPvrCb` does one for results.
   *
   * @param callback  the callback, not null
   * @param userData  given back to `callback`; not owned
   * @return 0 or -2, as `RegisterPvrCb`
   */
  int RegisterPvrStateCb(PvrStateCallback callback, void *userData);

  /**
   * Ends the registration of a callback for states, as `UnRegisterPvrCb` does of one for results.
   *
   * @param callback  the callback
   * @return 0 or -2, as `UnRegisterPvrCb`
   */
  int UnRegisterPvrStateCb(PvrStateCallback callback);

  /**
   * Receives results from the service, on its threads, and calls the registered callbacks before it returns.
   *
   * @param result    the outcome; each callback gets a copy
   * @param userData  what the service was given; with null nobody is called
   */
  static void t_PvrResultCB(ps_result_thirdpart result, void *userData);

  /**
   * Receives states from the service, on its threads, and calls the registered callbacks before it returns.
   *
   * @param state     the state
   * @param userData  what the service was given; with null nobody is called
   * @return whether anybody was called, whatever they answered
   */
  static bool t_PvrStateCB(pvr_state_e state, void *userData);

  std::string m_moduleName; ///< the module's name, as it is logged

  static std::map<PvrResultCallback, void *> m_PvrResultCBMap;     ///< user data; guarded by `pvrMutex`
  static std::map<PvrStateCallback, void *> m_pvrStateCallbackMap; ///< user data; guarded by `pvrMutex`
};

#pragma GCC visibility pop

#endif
