/**
 * @file TVServiceAPI.h
 * The platform's TV service: one subscriber object of each kind per process.
 *
 * All operations may be called on any thread, including from a callback. Callbacks run on threads of the service. The
 * notifications of one kind arrive one at a time, in order. The service holds no lock during a callback, and no
 * operation waits for a callback to end: a callback that is about to run when its subscription ends may still run once.
 */
#ifndef TVSERVICEAPI_H
#define TVSERVICEAPI_H

#include "TVServiceTypes.h"

/** Signal notifications: lock, strength, service changes. */
class ISignalSubscriber {
public:
  virtual ~ISignalSubscriber() = default;
  /** Starts delivery for one type, profile and screen. The service passes `userData` to each callback. */
  virtual int Subscribe(ESignalType type, void *userData, EProfile profile, unsigned short screenId) = 0;
  /** Stops delivery for one type, profile and screen. */
  virtual int Unsubscribe(ESignalType type, EProfile profile, unsigned short screenId) = 0;
};

/** Programme notifications. Subscribe operations return 0 on failure, unsubscribe operations 0 or less. */
class IProgramSubscriber {
public:
  virtual ~IProgramSubscriber() = default;
  /** Reports changes of one programme; fills `handle`. */
  virtual int SubscribeProgram(const TCProgramFilteringItem &item, int &handle) = 0;
  /** Ends a `SubscribeProgram`. */
  virtual int UnsubscribeProgram(int handle) = 0;
  /** Reports the present and the following programme of a service; fills `handle`. */
  virtual int SubscribeProgramListPF(int arg, const TCServiceId &serviceId, ESubscribeType type, int &handle) = 0;
  /** Reports a range of a service's programmes; fills `handle`. */
  virtual int SubscribeProgramList(int arg, const TCServiceId &serviceId, unsigned int first, unsigned int second,
                                   ESubscribeType type, int &handle) = 0;
  /** Ends a `SubscribeProgramListPF` or `SubscribeProgramList`. */
  virtual int UnsubscribeProgramList(int handle) = 0;
  /** Reports which tables the service watches; fills `type`. */
  virtual bool GetMonitoringType(EProgramMonitoringType &type) = 0;
};

/** Section notifications. All operations return a value greater than 0 on success. */
class ISectionSubscriber {
public:
  virtual ~ISectionSubscriber() = default;
  /** Delivers the sections that match `criteria`, with `key` as the last argument; fills `handle`. */
  virtual int SubscribeByCriteria(int key, const TCSectionCriteriaHelper &criteria, int &handle) = 0;
  /** Delivers the sections that pass `filter`, with `key` as the last argument; fills `handle`. */
  virtual int SubscribeByFilter(int key, const TCSectionFilterCriteriaHelper &filter, int &handle) = 0;
  /** Stops the delivery of one subscription. */
  virtual int Unsubscribe(int handle) = 0;
};

/** The PES packets of the current service. */
class IPESDataSubscriber {
public:
  virtual ~IPESDataSubscriber() = default;
  /** Delivers every packet to `callback`; fills `handle`. @return 0 on failure */
  virtual int Subscribe(void (*callback)(TSPESData &, void *), void *userData, int *handle) = 0;
  /** Stops the delivery. @return greater than 0 on success */
  virtual int Unsubscribe(int handle) = 0;
};

/** The captions of the current service. */
class IDataSubscriber {
public:
  virtual ~IDataSubscriber() = default;
  /** Delivers every caption to `callback`; fills `handle`. @return 0 on failure */
  virtual int Subscribe(void (*callback)(TSCaption &, void *), void *userData, int *handle) = 0;
  /** Stops the delivery. @return greater than 0 on success */
  virtual int Unsubscribe(int handle) = 0;
};

/** DSM data services. All operations return a value greater than 0 on success. */
class IDsm {
public:
  virtual ~IDsm() = default;
  /** Begins a session with the data service that `target` names; fills `sessionHandle`. */
  virtual int Attach(unsigned int &sessionHandle, const std::vector<unsigned char> &target,
                     EDsmDataServiceType serviceType, EDsmAttachType attachType, void *userData, bool flag) = 0;
  /** Ends a session. */
  virtual int Detach(unsigned int sessionHandle) = 0;
};

/**
 * Factories of the subscriber objects. All return 0 on success; the objects belong to the service. Each `Destroy...`
 * function ends all subscriptions of its kind.
 */
namespace TVServiceAPI {

/**
 * @param callback    receives the type, the profile, the screen, the data and the user data of the subscription; its
 *                    result is ignored
 * @param subscriber  receives the object
 */
int CreateSignalSubscriber(int (*callback)(ESignalType, EProfile, unsigned short, TSSignalData, void *),
                           ISignalSubscriber **subscriber);
/**
 * @param callback    receives what changed, the programme (owned by the service, and still valid when the main loop
 *                    handles the notification), its position in a list (0 is the present programme) and the handle of
 *                    the subscription
 * @param subscriber  receives the object
 */
int CreateProgramSubscriber(void (*callback)(EProgramChangeType, TCProgramData *, int, int),
                            IProgramSubscriber **subscriber);
/**
 * @param callback    receives whether the section's checksum is correct, the size in bytes, the bytes from the table_id
 *                    on (valid during the callback only), and the key of the subscription
 * @param profile     picture whose stream carries the sections
 * @param group       group of streams within the picture
 * @param subscriber  receives the object
 */
int CreateSectionSubscriber(void (*callback)(bool, unsigned short, unsigned char *, int), EProfile profile, int group,
                            ISectionSubscriber **subscriber);
/**
 * Like `CreateSectionSubscriber`, but each subscription passes its own callback. A packet is valid during the callback
 * only.
 */
int CreatePESDataSubscriber(EProfile profile, int group, IPESDataSubscriber **subscriber);
/** Like `CreatePESDataSubscriber`, for captions. */
int CreateDataSubscriber(EProfile profile, int group, IDataSubscriber **subscriber);
/**
 * @param callback  receives the message, which is valid during the callback only
 * @param dsm       receives the object
 */
int CreateDsm(void (*callback)(TSDsmMessage &), IDsm **dsm);

/** Releases the signal subscriber. */
int DestroySignalSubscriber();
/** Releases the programme subscriber. */
int DestroyProgramSubscriber();
/** Releases the section subscriber. */
int DestroySectionSubscriber();
/** Releases the PES subscriber. */
int DestroyPESDataSubscriber();
/** Releases the caption subscriber. */
int DestroyDataSubscriber();
/** Releases the DSM object. */
int DestroyDsm();

} // namespace TVServiceAPI

#endif
