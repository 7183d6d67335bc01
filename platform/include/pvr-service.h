/**
 * @file pvr-service.h
 * The platform's recording (PVR) service.
 *
 * Every function may be called on any thread, also from a callback. Callbacks run on one thread of the service, one
 * after the other in the order of what they tell; the service holds no lock meanwhile. No function waits for a callback
 * to end: a caller may hold a lock that a callback is waiting for. So a callback that was about to run when it was
 * unregistered may still run once.
 */
#ifndef PVR_SERVICE_H
#define PVR_SERVICE_H

#include <stdbool.h>

#ifdef __cplusplus
extern "C" {
#endif

/** Outcome of one recording operation: seven 32-bit words, passed by value. */
typedef struct ps_result_thirdpart {
  int operation;  /**< what was asked for, see `pvr_operation_e` */
  int request_id; /**< number of the request, counted by the service */
  int result;     /**< result code, see `pvr_result_e` */
  int program;    /**< programme number that is recorded */
  int duration;   /**< seconds recorded so far */
  int free_space; /**< mebibytes left on the recording device */
  int reserved;   /**< 0 */
} ps_result_thirdpart;

/** Values of `ps_result_thirdpart.operation`. */
typedef enum pvr_operation_e {
  PVR_OPERATION_START = 1, /**< start of a recording */
  PVR_OPERATION_STOP = 2   /**< end of a recording */
} pvr_operation_e;

/** Values of `ps_result_thirdpart.result`. */
typedef enum pvr_result_e {
  PVR_RESULT_OK = 0,         /**< done */
  PVR_RESULT_CONFLICT = -1,  /**< another recording is running */
  PVR_RESULT_DISK_FULL = -2, /**< no space left on the recording device */
  PVR_RESULT_IDLE = -3       /**< nothing to stop */
} pvr_result_e;

/** State of the recorder. */
typedef enum pvr_state_e {
  PVR_STATE_IDLE = 0,      /**< not recording */
  PVR_STATE_RECORDING = 1, /**< recording */
  PVR_STATE_DISK_FULL = 2, /**< stopped, or refused to start, because the recording device is full */
  PVR_STATE_CONFLICT = 3   /**< a second recording was asked for and refused; the state before it follows at once */
} pvr_state_e;

/** Told the outcome of an operation. Runs on a thread of the service. */
typedef void (*svc_pvr_result_cb)(ps_result_thirdpart result, void *user_data);
/** Told a state of the recorder; returns whether the state was handled. Runs on a thread of the service. */
typedef bool (*svc_pvr_state_cb)(pvr_state_e state, void *user_data);

/** Connects this process to the service; connecting again does nothing. @return 1 on success */
int svc_pvr_service_init(void);

/**
 * Registers the process's one result callback, in place of an earlier one.
 *
 * @param cb         called with every result until it is unregistered
 * @param user_data  given back to `cb`; not owned
 * @return 0 on success, negative when `cb` is null or the process is not connected
 */
int svc_pvr_register_to_other_apps_cb(svc_pvr_result_cb cb, void *user_data);
/** Removes the result callback. @return 0 on success, negative when `cb` is not registered */
int svc_pvr_unregister_to_other_apps_cb(svc_pvr_result_cb cb);

/**
 * Registers the process's one state callback, in place of an earlier one.
 *
 * @param cb         called with every state until it is unregistered
 * @param user_data  given back to `cb`; not owned
 * @return 0 on success, negative when `cb` is null or the process is not connected
 */
int svc_pvr_register_get_pvr_state_cb(svc_pvr_state_cb cb, void *user_data);
/** Removes the state callback. @return 0 on success, negative when `cb` is not registered */
int svc_pvr_unregister_get_pvr_state_cb(svc_pvr_state_cb cb);

#ifdef __cplusplus
}
#endif

#endif
