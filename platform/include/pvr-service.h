/**
 * @file pvr-service.h
 * The platform's recording (PVR) service.
 *
 * Every function may be called on any thread, including from a callback. Callbacks run on one thread of the service,
 * one at a time and in order; the service holds no lock during a callback. No function waits for a callback to end: a
 * caller may hold a lock that a callback waits for. Consequently a callback that is about to run when it is
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
  int operation;  /**< requested operation, see `pvr_operation_e` */
  int request_id; /**< number of the request, counted by the service */
  int result;     /**< result code, see `pvr_result_e` */
  int program;    /**< number of the recorded programme */
  int duration;   /**< length recorded so far, in seconds */
  int free_space; /**< free space on the recording device, in mebibytes */
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
  PVR_STATE_DISK_FULL = 2, /**< stopped or did not start, because the recording device is full */
  PVR_STATE_CONFLICT = 3   /**< refused a second recording; the previous state follows at once */
} pvr_state_e;

/** Receives the result of an operation. Runs on the thread of the service. */
typedef void (*svc_pvr_result_cb)(ps_result_thirdpart result, void *user_data);
/** Receives a state of the recorder; returns whether it handled the state. Runs on the thread of the service. */
typedef bool (*svc_pvr_state_cb)(pvr_state_e state, void *user_data);

/** Connects this process to the service; connecting again does nothing. @return 1 on success */
int svc_pvr_service_init(void);

/**
 * Registers the one result callback of the process. It replaces an earlier one.
 *
 * @param cb         called with each result until it is unregistered
 * @param user_data  passed to `cb`; not owned
 * @return 0 on success, negative if `cb` is null or the process is not connected
 */
int svc_pvr_register_to_other_apps_cb(svc_pvr_result_cb cb, void *user_data);
/** Removes the result callback. @return 0 on success, negative if `cb` is not registered */
int svc_pvr_unregister_to_other_apps_cb(svc_pvr_result_cb cb);

/**
 * Registers the one state callback of the process. It replaces an earlier one.
 *
 * @param cb         called with each state until it is unregistered
 * @param user_data  passed to `cb`; not owned
 * @return 0 on success, negative if `cb` is null or the process is not connected
 */
int svc_pvr_register_get_pvr_state_cb(svc_pvr_state_cb cb, void *user_data);
/** Removes the state callback. @return 0 on success, negative if `cb` is not registered */
int svc_pvr_unregister_get_pvr_state_cb(svc_pvr_state_cb cb);

#ifdef __cplusplus
}
#endif

#endif
