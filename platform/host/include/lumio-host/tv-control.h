/**
 * @file tv-control.h
 * Controls the desktop's TV service from a test or a demo.
 *
 * On the desktop, the objects and factories of `TVServiceAPI.h` belong to a simulated service inside this process. An
 * `Emit...` function selects the subscriptions that match at the time of the call. The service notifies them on a
 * thread of its own, except those that are unsubscribed before their turn. Each of the six kinds has its own thread,
 * which starts with the first notification of its kind and delivers in the order of emission. The process joins the
 * threads at exit; `Shutdown` joins them earlier.
 *
 * The service holds no lock while it calls back, and no operation waits for a callback to end: a caller may hold a lock
 * that a callback waits for. Consequently a callback that is about to run when its subscription ends may still run
 * once.
 *
 * Operations of the subscriber objects return 1 on success and 0 on failure. Factories return 0 on success and -1 on
 * failure (a null callback, or a null pointer for the object). Handles are positive and unique across all kinds; the
 * service never reuses one.
 *
 * A `Destroy...` function ends all subscriptions of its kind. The object itself lives as long as the process: it still
 * serves callers that hold a pointer to it, with the callback that was passed last, and the factory returns the same
 * object again. On a television the object is gone.
 *
 * All functions may be called on any thread, including from a callback of the service.
 */
#ifndef LUMIO_HOST_TV_CONTROL_H
#define LUMIO_HOST_TV_CONTROL_H

#include <functional>
#include <string>
#include <vector>

#include "TVServiceTypes.h"

namespace lumio {
namespace tv {

/**
 * Reports a change of the signal to the subscription of this type, profile and screen.
 *
 * @param type      what changed
 * @param profile   picture that the change concerns
 * @param screenId  screen that the change concerns
 * @param data      new state
 * @return number of subscriptions that are notified, 0 or 1
 */
int EmitSignal(ESignalType type, EProfile profile, unsigned short screenId, TSSignalData data);

/**
 * Reports a change of the programme data to one subscription. The callback receives a pointer to a copy of `data`. The
 * service owns the copy and keeps it until the process ends, since callbacks pass the pointer on to the main loop.
 *
 * @param handle    handle of a programme subscription or a list subscription
 * @param change    what changed
 * @param data      the programme
 * @param position  position of the programme in a list; 0 is the present programme
 * @return number of subscriptions that are notified, 0 or 1
 */
int EmitProgram(int handle, EProgramChangeType change, const TCProgramData &data, int position = 0);

/** Sets the type that `GetMonitoringType` reports. Initially present and following. */
void SetMonitoringType(EProgramMonitoringType type);

/**
 * Delivers a section to every subscription whose criteria or filter it matches.
 *
 * @param pid      packet identifier of the stream that carries the section
 * @param section  bytes of the section from the table_id on. A section that is empty or longer than 4096 bytes is
 *                 delivered to no subscription. Each callback receives a copy.
 * @param valid    whether the checksum is correct
 * @return number of subscriptions that are notified
 */
int EmitSection(unsigned short pid, const std::vector<unsigned char> &section, bool valid = true);

/**
 * Delivers a section to one subscription, regardless of its criteria or filter.
 *
 * @param handle   handle of the subscription
 * @param section  as for `EmitSection`
 * @param valid    as for `EmitSection`
 * @return number of subscriptions that are notified, 0 or 1
 */
int EmitSectionTo(int handle, const std::vector<unsigned char> &section, bool valid = true);

/** Delivers a copy of a PES packet to every subscription. @return number of subscriptions that are notified */
int EmitPes(const TSPESData &packet);

/** Delivers a copy of a caption to every subscription. @return number of subscriptions that are notified */
int EmitCaption(const TSCaption &caption);

/**
 * Delivers a message to the session that it names.
 *
 * @param message  copied, including the bytes that it points to
 * @return number of sessions that are notified, 0 or 1
 */
int EmitDsm(const TSDsmMessage &message);

/** The factories and the operations of the subscriber objects. */
enum class Operation {
  CreateSignalSubscriber,
  DestroySignalSubscriber,
  SubscribeSignal,
  UnsubscribeSignal,
  CreateProgramSubscriber,
  DestroyProgramSubscriber,
  SubscribeProgram,
  UnsubscribeProgram,
  SubscribeProgramListPF,
  SubscribeProgramList,
  UnsubscribeProgramList,
  GetMonitoringType,
  CreateSectionSubscriber,
  DestroySectionSubscriber,
  SubscribeSectionByCriteria,
  SubscribeSectionByFilter,
  UnsubscribeSection,
  CreatePESDataSubscriber,
  DestroyPESDataSubscriber,
  SubscribePES,
  UnsubscribePES,
  CreateDataSubscriber,
  DestroyDataSubscriber,
  SubscribeCaption,
  UnsubscribeCaption,
  CreateDsm,
  DestroyDsm,
  AttachDsm,
  DetachDsm
};

/**
 * Makes the next call of an operation, on any thread, fail without any effect: no subscription, handle or pointer
 * changes. Each further `RefuseNext` makes one more call fail.
 *
 * @param operation  operation to refuse
 * @param result     result of the refused call; `GetMonitoringType` returns true unless it is 0
 */
void RefuseNext(Operation operation, int result);

/**
 * Makes the next call of an operation run `action` after the call has taken effect (or was refused) and before it
 * returns. `action` runs on the thread of the caller, whichever that is. An action that waits delays the return. An
 * action that emits delivers a notification during a subscribe call; it may wait for the delivery with `Flush` if the
 * caller holds no lock that the callback waits for. Each further `DuringNext` adds an action for one more call.
 *
 * @param operation  operation that runs the action
 * @param action     copied; called once, while the service holds no lock
 */
void DuringNext(Operation operation, std::function<void()> action);

/** Kinds of notifications, in the order in which `Subscriptions` lists them. */
enum class Kind { Signal, Program, Section, Pes, Caption, Dsm };

/**
 * One subscription at the service. Its handle, its description and its user data identify its owner: the service knows
 * no module names, and several modules may share one subscription.
 */
struct Subscription {
  Kind kind;               ///< kind of its notifications
  int handle;              ///< handle of the subscription or session; callers never see a signal's handle
  void *userData;          ///< as passed with the subscription; null for kinds without user data
  std::string description; ///< human-readable, for example "type 0, profile 1, screen 0"
  unsigned int delivered;  ///< number of notifications delivered so far
};

/** @return all current subscriptions, ordered by kind */
std::vector<Subscription> Subscriptions();

/**
 * Waits until everything emitted so far has been delivered. Returns at once when called from a callback. The caller
 * must not hold a lock that a callback waits for.
 */
void Flush();

/**
 * Delivers everything emitted so far and joins the threads of the service. Everything emitted later is dropped;
 * operations and factories still return results. An application must call this before `ecore_shutdown`, since later
 * notifications cannot reach the main loop. When called from a callback, it drops what has not been delivered and does
 * not wait for that callback.
 */
void Shutdown();

} // namespace tv
} // namespace lumio

#endif
