/**
 * @file pvr-control.h
 * Makes the desktop's PVR service do what a test or a demo wants to see.
 *
 * The functions of `pvr-service.h` reach a recorder that is played by this process: nothing is written to a disk, and
 * time passes only when `AdvanceRecording` says so. Everything that it tells goes to the callbacks that are registered
 * when their turn comes, on the service's one thread, in the order of the calls made here.
 *
 * What the recorder tells when it is asked for something:
 * - start: `PVR_RESULT_OK`, then `PVR_STATE_RECORDING`;
 * - start while it records: `PVR_RESULT_CONFLICT`, then `PVR_STATE_CONFLICT` and `PVR_STATE_RECORDING`, which goes on;
 * - start with a full disk: `PVR_RESULT_DISK_FULL`, then `PVR_STATE_DISK_FULL`;
 * - stop: `PVR_RESULT_OK`, then `PVR_STATE_IDLE`;
 * - stop while it does not record: `PVR_RESULT_IDLE` and no state;
 *
 * and when something happens to it:
 * - the disk fills up while it records: `PVR_RESULT_DISK_FULL` of a stop, then `PVR_STATE_DISK_FULL`;
 * - space becomes free after that: `PVR_STATE_IDLE`.
 *
 * The service's thread starts with the first thing it has to tell. It is joined when the process exits; `Shutdown`
 * joins it earlier.
 *
 * All functions may be called on any thread, also from a callback of the service.
 */
#ifndef LUMIO_HOST_PVR_CONTROL_H
#define LUMIO_HOST_PVR_CONTROL_H

#include <functional>

#include "pvr-service.h"

namespace lumio {
namespace pvr {

/** Mebibytes that are free on the recording device when the process starts. */
constexpr int kInitialFreeSpace = 1024;

/**
 * Asks the recorder to start.
 *
 * @param program  number of the programme to record
 * @return number of the request, which the result repeats; counted from 1
 */
int StartRecording(int program);

/** Asks the recorder to stop. @return number of the request, as from `StartRecording` */
int StopRecording();

/**
 * Lets time pass for the recording that runs; without one it does nothing. Each second takes one mebibyte; the
 * recording ends when the disk is full, with the request number of its start.
 *
 * @param seconds  how long it records
 */
void AdvanceRecording(int seconds);

/** Fills or frees the disk. @param mebibytes  space that is left from now on; 0 is a full disk */
void SetFreeSpace(int mebibytes);

/** @return what the recorder is doing now: idle, recording or stopped by a full disk */
pvr_state_e State();

/** Tells a result as it stands; the recorder knows nothing of it. @param result  copied */
void EmitResult(const ps_result_thirdpart &result);

/** Tells a state as it stands; the recorder knows nothing of it. */
void EmitState(pvr_state_e state);

/** The functions of `pvr-service.h`. */
enum class Call {
  Init,             ///< `svc_pvr_service_init`
  RegisterResult,   ///< `svc_pvr_register_to_other_apps_cb`
  UnregisterResult, ///< `svc_pvr_unregister_to_other_apps_cb`
  RegisterState,    ///< `svc_pvr_register_get_pvr_state_cb`
  UnregisterState   ///< `svc_pvr_unregister_get_pvr_state_cb`
};

/**
 * The next call of a function, by whichever thread, changes nothing. Asked for several times, as many calls are
 * refused.
 *
 * @param call    function to refuse
 * @param result  what the refused call answers
 */
void RefuseNext(Call call, int result);

/**
 * The next call of a function, by whichever thread, runs `action` on its own thread after it has taken effect (or was
 * refused) and before it answers. An action that waits makes the answer late; one that emits and then calls `Flush`
 * lets a notification arrive in the middle of the call. Asked for several times, each of the next calls runs one
 * action.
 *
 * @param call    function to delay
 * @param action  copied; called once, without a lock of the service
 */
void DuringNext(Call call, std::function<void()> action);

/**
 * Waits until everything emitted before has been delivered. In a callback it returns at once. The caller holds no lock
 * that a callback waits for.
 */
void Flush();

/**
 * Delivers what was emitted before and joins the service's thread; what is emitted later is dropped. An application
 * whose callbacks reach the main loop calls it before `ecore_shutdown`.
 */
void Shutdown();

} // namespace pvr
} // namespace lumio

#endif
