/**
 * @file tv-control.h
 * Makes the desktop's TV service do what a test or a demo wants to see.
 *
 * The objects and factories of `TVServiceAPI.h` reach a service that is played by this process. It tells what is
 * emitted here to those who have subscribed to it: chosen when it is emitted, told on a thread of the service, unless
 * they have unsubscribed meanwhile. Each of the six kinds has a thread of its own that starts with the first
 * notification to deliver and delivers in the order emitted. The threads are joined when the process exits; `Shutdown`
 * joins them earlier.
 *
 * The service holds no lock while it calls back, and none of its operations waits for a callback to end: a caller may
 * hold a lock that a callback waits for. So a callback that was about to run when it was unsubscribed may still run
 * once.
 *
 * Operations of the subscriber objects answer 1 for success and 0 for failure, factories 0 for success and -1 for
 * failure (a null callback or a null place for the object). Handles are positive and differ between all kinds; none is
 * used twice.
 *
 * A `Destroy...` function ends all subscriptions of its kind. The object itself lives as long as the process and serves
 * whoever still holds a pointer to it, with the callback that was given last; the factory hands the same object out
 * again. A television may be less patient: there the object is gone.
 *
 * All functions may be called on any thread, also from a callback of the service.
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
 * Tells a change of the signal to the subscription of this type, profile and screen.
 *
 * @param type      what changed
 * @param profile   picture it concerns
 * @param screenId  screen it concerns
 * @param data      what it is now
 * @return number of subscriptions it is told to, 0 or 1
 */
int EmitSignal(ESignalType type, EProfile profile, unsigned short screenId, TSSignalData data);

/**
 * Tells a change of the programme data to one subscription. The callback gets a pointer to a copy of `data` that the
 * service owns and keeps until the process ends, since whoever is told passes the pointer on to the main loop.
 *
 * @param handle    handle of the subscription, of a programme or of a list
 * @param change    what changed
 * @param data      the programme
 * @param position  its place in a list; 0 is the present programme
 * @return number of subscriptions it is told to, 0 or 1
 */
int EmitProgram(int handle, EProgramChangeType change, const TCProgramData &data, int position = 0);

/** Sets what `GetMonitoringType` tells; present and following at first. */
void SetMonitoringType(EProgramMonitoringType type);

/**
 * Tells a section to every subscription whose criteria or filter it meets.
 *
 * @param pid      packet identifier of the stream it came in
 * @param section  its bytes, from the table_id on: 1 to 4096, others are told to nobody. Each callback gets a copy.
 * @param valid    whether its checksum is right
 * @return number of subscriptions it is told to
 */
int EmitSection(unsigned short pid, const std::vector<unsigned char> &section, bool valid = true);

/**
 * Tells a section to one subscription, whatever its criteria or filter.
 *
 * @param handle   handle of the subscription
 * @param section  as for `EmitSection`
 * @param valid    as for `EmitSection`
 * @return number of subscriptions it is told to, 0 or 1
 */
int EmitSectionTo(int handle, const std::vector<unsigned char> &section, bool valid = true);

/** Tells a PES packet to every subscription. Each gets a copy. @return number of subscriptions it is told to */
int EmitPes(const TSPESData &packet);

/** Tells a caption to every subscription. Each gets a copy. @return number of subscriptions it is told to */
int EmitCaption(const TSCaption &caption);

/**
 * Tells a message to the session that it names.
 *
 * @param message  copied together with the bytes that it points to
 * @return number of sessions it is told to, 0 or 1
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
 * The next call of an operation, by whichever thread, changes nothing: no subscription, no handle and no pointer. Asked
 * for several times, as many calls are refused.
 *
 * @param operation  what to refuse
 * @param result     what the refused call answers; `GetMonitoringType` answers whether it is not 0
 */
void RefuseNext(Operation operation, int result);

/**
 * The next call of an operation, by whichever thread, runs `action` on its own thread after it has taken effect (or was
 * refused) and before it answers. An action that waits makes the answer late. One that emits lets a notification arrive
 * in the middle of a subscribe call; it may also wait for the delivery with `Flush` where the caller holds no lock that
 * the callback waits for. Asked for several times, each of the next calls runs one action.
 *
 * @param operation  what to delay
 * @param action     copied; called once, without a lock of the service
 */
void DuringNext(Operation operation, std::function<void()> action);

/** Kinds of notifications, in the order of `Subscriptions`. */
enum class Kind { Signal, Program, Section, Pes, Caption, Dsm };

/**
 * One subscription at the service. Who holds it is told by its handle, its description and its user data: the service
 * knows no names, and several modules may share one subscription.
 */
struct Subscription {
  Kind kind;               ///< kind of its notifications
  int handle;              ///< handle of the subscription or session; a signal's is known to the service alone
  void *userData;          ///< as it was given with the subscription; null where none is given
  std::string description; ///< what is subscribed, for people, for example "type 0, profile 1, screen 0"
  unsigned int delivered;  ///< notifications told so far
};

/** @return all subscriptions that the service has now, by kind */
std::vector<Subscription> Subscriptions();

/**
 * Waits until everything emitted before has been delivered. In a callback it returns at once. The caller holds no lock
 * that a callback waits for.
 */
void Flush();

/**
 * Delivers what was emitted before and joins the service's threads; what is emitted later is dropped, while operations
 * and factories still answer. An application calls it before `ecore_shutdown`, since what arrives later could not reach
 * the main loop any more. In a callback, which is not waited for, what has not been delivered is dropped.
 */
void Shutdown();

} // namespace tv
} // namespace lumio

#endif
