/**
 * @file pvr-control.h
 * Controls the desktop's PVR service from a test or a demo.
 *
 * On the desktop, the functions of `pvr-service.h` talk to a recorder inside this process. It reports results and
 * states on the one thread of the service, in the order of the calls made here, to the callbacks that are registered at
 * the time of delivery.
 *
 * Without a broadcast (see `broadcast.h`) the recorder is simulated: it writes nothing to a disk, and its time passes
 * only in `AdvanceRecording`.
 *
 * With a broadcast, it records the service whose service_id is the number of the programme, whatever service the
 * television shows. The file is a transport stream: a PAT and an SDT that list only this service; the service's PMT and
 * EIT; and the packets of its streams and its clock as they were broadcast. The recorder writes nothing until it has
 * received the service's PMT. Then it writes to the file after every 64 packets, so that you can play the file even if
 * the process is killed.
 *
 * The file is in the directory that the environment variable `LUMIO_RECORDINGS` names, or else in the user's videos
 * folder (`XDG_VIDEOS_DIR` of the environment or of `user-dirs.dirs`, or else `~/Videos`). The recorder creates the
 * folder if it is missing. The name of the file consists of the start time in UTC and the number of the programme,
 * `20261121T201500Z-101.ts`; if that file exists, the recorder adds a number to the name.
 *
 * Such a recording differs from a simulated one as follows:
 * - `duration` is the recorded time by the service's clock, and `free_space` is the free space of the folder's disk;
 * - if the file cannot be created or written, the recorder reports a full disk, and the log says why;
 * - `AdvanceRecording` and `SetFreeSpace` do not affect it. After a full disk, the next start tries again;
 * - it continues when the broadcast is closed. If another broadcast is opened, it records the same service from that.
 *
 * The recorder answers requests as follows:
 * - start: `PVR_RESULT_OK`, then `PVR_STATE_RECORDING`;
 * - start during a recording: `PVR_RESULT_CONFLICT`, then `PVR_STATE_CONFLICT` and `PVR_STATE_RECORDING`, since the
 * first recording continues;
 * - start with a full disk: `PVR_RESULT_DISK_FULL`, then `PVR_STATE_DISK_FULL`;
 * - stop: `PVR_RESULT_OK`, then `PVR_STATE_IDLE`;
 * - stop without a recording: `PVR_RESULT_IDLE` and no state.
 *
 * It reports these events on its own:
 * - the disk fills up during a recording: `PVR_RESULT_DISK_FULL` for a stop, then `PVR_STATE_DISK_FULL`;
 * - space becomes free after that: `PVR_STATE_IDLE`.
 *
 * The thread of the service starts with the first notification. The process joins it at exit; `Shutdown` joins it
 * earlier.
 *
 * All functions may be called on any thread, including from a callback of the service.
 */
#ifndef LUMIO_HOST_PVR_CONTROL_H
#define LUMIO_HOST_PVR_CONTROL_H

#include <functional>

#include "pvr-service.h"

namespace lumio {
namespace pvr {

/** Free space on the recording device when the process starts, in mebibytes. */
constexpr int kInitialFreeSpace = 1024;

/**
 * Asks the recorder to start.
 *
 * @param program  number of the programme to record
 * @return number of the request, counted from 1; the result carries the same number
 */
int StartRecording(int program);

/** Asks the recorder to stop. @return number of the request, as from `StartRecording` */
int StopRecording();

/**
 * Lets time pass for the current recording; does nothing without one. Each second takes one mebibyte. When the disk is
 * full, the recording ends, and the result has the request number of its start.
 *
 * @param seconds  time that passes, in seconds
 */
void AdvanceRecording(int seconds);

/** Sets the free space of the disk. @param mebibytes  free space, in mebibytes; 0 is a full disk */
void SetFreeSpace(int mebibytes);

/** @return current state of the recorder: idle, recording, or stopped by a full disk */
pvr_state_e State();

/** Reports `result` without a change to the recorder. @param result  copied */
void EmitResult(const ps_result_thirdpart &result);

/** Reports `state` without a change to the recorder. */
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
 * Makes the next call of a function, on any thread, fail without any effect. Each further `RefuseNext` makes one more
 * call fail.
 *
 * @param call    function to refuse
 * @param result  result of the refused call
 */
void RefuseNext(Call call, int result);

/**
 * Makes the next call of a function run `action` after the call has taken effect (or was refused) and before it
 * returns. `action` runs on the thread of the caller, whichever that is. An action that waits delays the return; an
 * action that emits and then calls `Flush` delivers a notification during the call. Each further `DuringNext` adds an
 * action for one more call.
 *
 * @param call    function that runs the action
 * @param action  copied; called once, while the service holds no lock
 */
void DuringNext(Call call, std::function<void()> action);

/**
 * Waits until everything emitted so far has been delivered. Returns at once when called from a callback. The caller
 * must not hold a lock that a callback waits for.
 */
void Flush();

/**
 * Delivers everything emitted so far and joins the thread of the service. Everything emitted later is dropped. An
 * application whose callbacks reach the main loop must call this before `ecore_shutdown`.
 */
void Shutdown();

} // namespace pvr
} // namespace lumio

#endif
