/**
 * @file PvrServiceSubscriber.h
 * Distributes the results and states of the recording (PVR) service to the viewer's modules.
 *
 * The service accepts one result callback and one state callback per process. `CPvrServiceSubscriber` registers both
 * and passes each notification to any number of modules. It connects to the service when a module registers the first
 * callback of either kind. It stays registered for a kind of notification as long as callbacks of that kind are.
 *
 * You may call every function on any thread. Callbacks run on the service's threads, one at a time, with `pvrMutex`
 * held, so a callback must not register or unregister. If the platform's lock is not recursive, such a callback
 * deadlocks. The desktop's lock ends the process with a message instead.
 */
#ifndef PVR_SERVICE_SUBSCRIBER_H
#define PVR_SERVICE_SUBSCRIBER_H

#include <Kestrel/TCMutex.h>
#include <pvr-service.h>

#include <map>
#include <string>

#pragma GCC visibility push(default)

/** Guards the registrations of `CPvrServiceSubscriber`. The first use creates it. */
extern Kestrel::TCMutex pvrMutex;

/**
 * Registers a module's callbacks for recording results and states. All objects of the process share the registrations:
 * a registration outlives the object that made it, and any object may end it.
 */
class CPvrServiceSubscriber {
public:
  /**
   * Receives the outcome of a recording operation. Runs on a thread of the service, with `pvrMutex` held.
   *
   * @param result    the outcome
   * @param userData  the pointer that was given to `RegisterPvrCb`
   */
  typedef void (*PvrResultCallback)(ps_result_thirdpart result, void *userData);

  /**
   * Receives a state of the recorder. Runs on a thread of the service, with `pvrMutex` held.
   *
   * @param state     the state
   * @param userData  the pointer that was given to `RegisterPvrStateCb`
   * @return ignored
   */
  typedef bool (*PvrStateCallback)(pvr_state_e state, void *userData);

  /** @param moduleName  the module's name for log messages; the object keeps a copy */
  explicit CPvrServiceSubscriber(const std::string &moduleName);

  /**
   * Registers a callback for results. Call on any thread; the callback runs on threads of the service.
   *
   * Callbacks run in ascending order of their addresses, not in the order of registration.
   *
   * The first registration connects to the service before it tests the callback: even if the callback is null, the
   * connection stays open and the process stays registered for results. A failure undoes nothing that was done before.
   * If there is no memory, the call throws `std::bad_alloc`, releases the lock and does not register the callback.
   *
   * @param callback  the callback, not null
   * @param userData  a pointer that the library passes to `callback` and never reads or frees
   * @return 0 on success. -2, with a log message, if the service refuses, if `callback` is null, or if any module has
   * already registered it: the first registration keeps its user data
   */
  int RegisterPvrCb(PvrResultCallback callback, void *userData);

  /**
   * Ends the registration of a callback for results, whichever object made it. Call on any thread. Once the call
   * returns, the callback does not run again. With the last callback, the call also unregisters the process at the
   * service.
   *
   * @param callback  the callback
   * @return 0 if the callback was registered, even if the service refuses to unregister the process, which is only
   * logged. -2, with a log message, if the callback was not registered
   */
  int UnRegisterPvrCb(PvrResultCallback callback);

  /**
   * Registers a callback for states. Otherwise like `RegisterPvrCb`.
   *
   * @param callback  the callback, not null
   * @param userData  a pointer that the library passes to `callback` and never reads or frees
   * @return 0 or -2, as `RegisterPvrCb`
   */
  int RegisterPvrStateCb(PvrStateCallback callback, void *userData);

  /**
   * Ends the registration of a callback for states. Otherwise like `UnRegisterPvrCb`.
   *
   * @param callback  the callback
   * @return 0 or -2, as `UnRegisterPvrCb`
   */
  int UnRegisterPvrStateCb(PvrStateCallback callback);

  /**
   * Receives results from the service, on its threads, and calls the registered callbacks.
   *
   * @param result    the outcome; each callback receives a copy
   * @param userData  the pointer that the service was given; if it is null, no callback is called
   */
  static void t_PvrResultCB(ps_result_thirdpart result, void *userData);

  /**
   * Receives states from the service, on its threads, and calls the registered callbacks.
   *
   * @param state     the state
   * @param userData  the pointer that the service was given; if it is null, no callback is called
   * @return whether any callback was called, regardless of the callbacks' results
   */
  static bool t_PvrStateCB(pvr_state_e state, void *userData);

  std::string m_moduleName; ///< the module's name for log messages

  static std::map<PvrResultCallback, void *> m_PvrResultCBMap;     ///< user data; guarded by `pvrMutex`
  static std::map<PvrStateCallback, void *> m_pvrStateCallbackMap; ///< user data; guarded by `pvrMutex`
};

#pragma GCC visibility pop

#endif
