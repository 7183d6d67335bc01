/**
 * @file TVServiceSubscriber.h
 * Shares the TV service's notifications between the modules of an application.
 *
 * The TV service gives a process one subscriber object of each kind: signals, programmes, sections, PES packets,
 * captions, DSM. This class creates each of them once, counts the modules' subscriptions, and routes every notification
 * to the modules that asked for it.
 *
 * A module owns an ordinary object that carries its name and its callbacks. When the object first subscribes to a kind
 * of stream, the library copies it, and uses the copy from then on. The module may then destroy its object; callbacks
 * that it sets later are not called.
 *
 * Threads: call the operations on the main-loop thread, the one that called `ecore_init`, or from inside any of the
 * callbacks. Signal, programme, PES and caption callbacks run on the main-loop thread. Section and DSM callbacks run on
 * a thread of the TV service. The library holds no lock while a callback runs, so a callback may subscribe, unsubscribe
 * and release everything. End the service's threads before you call `ecore_shutdown`.
 *
 * Errors: a module that breaks a precondition aborts the process, with the assertion's text on stderr, in release
 * builds too. All other failures show in the result and in the log. If memory is short, an operation throws
 * `std::bad_alloc` and subscribes nothing. The library drops a notification, or the rest of it, with a log message if
 * memory is short, if a callback on the main loop throws `std::bad_alloc`, or if the platform keeps refusing the lock.
 */
#ifndef TVSERVICESUBSCRIBER_H
#define TVSERVICESUBSCRIBER_H

#include <TVServiceAPI.h>
#include <TVServiceTypes.h>

#include <map>
#include <set>
#include <string>

/** Eina's truth value, as <Eina.h> declares it. */
typedef unsigned char Eina_Bool;

#pragma GCC visibility push(default)

/** Names one signal of the TV service. */
struct TSignalInfo {
  ESignalType signalType;  ///< subject of the notifications
  EProfile profile;        ///< picture that the signal belongs to
  unsigned short screenId; ///< screen that shows the picture
};

/** @return whether all fields are equal. Any thread. */
bool operator==(const TSignalInfo &a, const TSignalInfo &b);
/** @return whether `a` comes first: ordered by screen, then by profile, then by signal type. Any thread. */
bool operator<(const TSignalInfo &a, const TSignalInfo &b);

/** A signal notification on its way through the main loop. */
struct TSignalEvent {
  ESignalType signalType;  ///< subject of the notification
  TSSignalData signalData; ///< data from the service
  EProfile profile;        ///< picture that the signal belongs to
  unsigned short screenId; ///< screen that shows the picture
  void *userData;          ///< user data of the subscription at the service; not used
};

/** A programme notification on its way through the main loop. */
struct TProgramEvent {
  EProgramChangeType changeType; ///< what changed
  int arg;                       ///< third argument of the service's call
  TCProgramData *programData;    ///< owned by the service
  int handle;                    ///< subscription that the notification belongs to
};

/** A PES packet on its way through the main loop. */
struct TPesEvent {
  TSPESData *data; ///< copy made with `new`; deleted by the handler
};

/** A caption on its way through the main loop. */
struct TCaptionEvent {
  TSCaption *data; ///< copy made with `new`; deleted by the handler
};

/** A module's subscriptions at the TV service, and the state that all modules share. Can be copied. */
class CTVServiceSubscriber {
public:
  /** Receives a signal and the user data of its subscription, on the main-loop thread. The result is ignored. */
  typedef int (*SignalCallback)(ESignalType, TSSignalData, void *);
  /** Receives a signal with its profile and screen id, otherwise like `SignalCallback`. */
  typedef int (*TTSignalCallback)(ESignalType, EProfile, unsigned short, TSSignalData, void *);
  /**
   * Receives a section, on a thread of the TV service: the service's flag and number, the section, which is valid only
   * during the call, and the stream identifier of the subscription as unsigned 16 bits.
   *
   * Deliberate: a module that subscribed stream -1 receives 65535 (docs/surprises.md).
   */
  typedef void (*SectionCallback)(bool, unsigned short, unsigned char *, int);
  /** Receives a DSM message, which is valid only during the call, on a thread of the TV service. */
  typedef void (*DsmCallback)(TSDsmMessage &);
  /**
   * Receives a PES packet and the user data of the subscription, on the main-loop thread. All subscribers receive the
   * same packet, one after the other, so each sees what the ones before have changed. It is valid only during the call.
   */
  typedef void (*PesCallback)(TSPESData &, void *);
  /** Receives a caption, otherwise like `PesCallback`. */
  typedef void (*CaptionCallback)(TSCaption &, void *);
  /**
   * Receives a programme change, on the main-loop thread: what changed, the programme data, which the service owns, the
   * service's third argument, and the handle of the subscription.
   */
  typedef void (*ProgramCallback)(EProgramChangeType, TCProgramData *, int, int);

  /**
   * Creates an object without callbacks.
   *
   * @param name  the module's name. Objects of the same name are one module: they share one copy per kind of stream.
   */
  explicit CTVServiceSubscriber(const std::string &name);

  // --- Signals ---

  /**
   * Sets this object's three-argument signal callback. Call it before the object's first `SubscribeSignal`.
   *
   * A second call on the same object aborts: "signal callback has already been set !". The very first call creates the
   * service's subscriber, and aborts if that fails: "failed to create signal subscriber!".
   *
   * @param cb  called for every signal that this module subscribes to
   */
  void SetSignalCallback(SignalCallback cb);
  /**
   * Sets this object's five-argument signal callback, otherwise like the overload above. A module that has both
   * receives both calls, this one second.
   */
  void SetSignalCallback(TTSignalCallback cb);
  /**
   * Subscribes to one signal. Each call counts: a module that subscribes twice is called twice for each notification.
   *
   * Aborts if this object has no signal callback, or if everything was released since it was set: "signal callback
   * should be registered before subscription !!".
   *
   * Deliberate: the service's answer is ignored, so the result is true even if the service refused (docs/surprises.md).
   *
   * @param type      signal to subscribe to
   * @param userData  passed to the callback; not owned. There is one per module and signal, that of the latest call.
   * @param profile   picture that the signal belongs to
   * @param screenId  screen that shows it
   * @return true
   */
  bool SubscribeSignal(ESignalType type, void *userData, EProfile profile, unsigned short screenId);
  /**
   * Ends one subscription of this module to one signal.
   *
   * Deliberate: the service is asked to stop only if no module subscribes to this signal or to one that comes after it
   * in order. Otherwise the service goes on, and the notifications reach nobody (docs/surprises.md).
   *
   * @return false if no signal callback was ever set, or if everything was released since; otherwise true, even if the
   * module was not subscribed
   */
  bool UnsubscribeSignal(ESignalType type, EProfile profile, unsigned short screenId);
  /**
   * Finds user data. Call it on a copy that `m_GetSubscriber` returned. Takes no lock, so call it on the main-loop
   * thread only.
   *
   * @return the user data of the copy's subscription to `key`; null, with a log message, if there is none
   */
  void *m_GetUserDataOfSignalCallback(const TSignalInfo &key);

  // --- Programmes ---

  /**
   * Sets this object's programme callback. Call it before the object's first programme subscription.
   *
   * A second call on the same object aborts: "program callback has already been set !". The first call since the start,
   * or since everything was released, creates the service's subscriber and aborts if that fails: "ret == 0 &&
   * m_pProgramSubscriber != __null".
   *
   * Deliberate: the library does not test the callback for null. A module that subscribes without having set one
   * crashes at its first notification (docs/surprises.md).
   *
   * @param cb  called for every change of the programmes that this module subscribes to
   */
  void SetProgramCallback(ProgramCallback cb);
  /**
   * Subscribes to one programme.
   *
   * Aborts if no module has set a programme callback since the start, or since everything was released: "please set
   * program callback before subscribe a program !".
   *
   * Deliberate: if the service gives a handle twice, the module that got it first keeps it. The second subscription
   * also returns true, but receives nothing (docs/surprises.md).
   *
   * @param item    the programme, passed on to the service
   * @param handle  receives the service's handle
   * @return false, with a log message, if the service refused
   */
  bool SubscribeProgram(const TCProgramFilteringItem &item, int &handle);
  /**
   * Subscribes to the present and following programme of a service, otherwise like `SubscribeProgram`.
   *
   * @param arg        passed on to the service
   * @param serviceId  service that carries the programmes
   * @param type       how the service reports changes
   * @param handle     receives the service's handle
   */
  bool SubscribeProgramListPF(int arg, const TCServiceId &serviceId, ESubscribeType type, int &handle);
  /**
   * Subscribes to a list of programmes of a service, otherwise like `SubscribeProgram`.
   *
   * @param arg        passed on to the service
   * @param serviceId  service that carries the programmes
   * @param first      passed on to the service
   * @param second     passed on to the service
   * @param type       how the service reports changes
   * @param handle     receives the service's handle
   */
  bool SubscribeProgramList(int arg, const TCServiceId &serviceId, unsigned int first, unsigned int second,
                            ESubscribeType type, int &handle);
  /**
   * Ends a subscription made with `SubscribeProgram`.
   *
   * Deliberate: the owner of the handle is not checked. A module can end another module's subscription
   * (docs/surprises.md).
   *
   * @return true if the service agreed; false if it refused, and the subscription stays, or if nothing is set up
   */
  bool UnSubscribeProgram(int handle);
  /** Ends one made with `SubscribeProgramListPF` or `SubscribeProgramList`, otherwise like `UnSubscribeProgram`. */
  bool UnSubscribeProgramList(int handle);
  /**
   * Asks the service which programme tables it monitors.
   *
   * @param type  receives the service's value
   * @return the service's answer; false, with `type` untouched, if nothing is set up
   */
  bool MonitoringType(EProgramMonitoringType &type);

  // --- Sections ---

  /**
   * Sets this object's section callback. Call it before the object's first section subscription. After everything was
   * released, call it on a new object.
   *
   * A second call on the same object aborts: "section callback has already been set !". The very first call creates the
   * service's subscriber, for `m_profile` and `m_group`, and aborts if that fails: "ret == 0 && m_pSectionSubscriber
   * != __null".
   *
   * @param cb  called for every section that this module subscribes to
   */
  void SetSectionCallback(SectionCallback cb);
  /**
   * Subscribes to the sections of one stream that meet `criteria`.
   *
   * Aborts if this object has no section callback: "section callback should be registered before subscription !!".
   * After everything was released, sections are delivered only once some object has set its section callback again.
   *
   * Deliberate: the library does not keep the handle. `UnsubscribeSection` stops the service, but sections that the
   * service still sends reach the module (docs/surprises.md).
   *
   * @param streamId  identifies the stream to the callback
   * @param criteria  passed on to the service
   * @param handle    receives the service's handle
   * @return whether the service agreed
   */
  bool SubscribeSection(short streamId, const TCSectionCriteriaHelper &criteria, int &handle);
  /**
   * Subscribes to the sections of one stream that pass `filter`, otherwise like `SubscribeSection`. The library keeps
   * the latest handle of each module.
   *
   * @param streamId  identifies the stream to the callback
   * @param filter    passed on to the service
   * @param handle    receives the service's handle
   */
  bool SubscribeSectionByFilter(short streamId, const TCSectionFilterCriteriaHelper &filter, int &handle);
  /**
   * Ends a section subscription at the service.
   *
   * Deliberate: the library removes an entry only if `handle` is that of a module's latest filter subscription, and
   * then the module's entry with the lowest key, whichever stream it is for (docs/surprises.md).
   *
   * Aborts if no section callback was set since the start, or since everything was released: "m_pSectionSubscriptions
   * is null !!".
   *
   * @return whether the service agreed
   */
  bool UnsubscribeSection(int handle);
  /**
   * Makes the key that stands for this module and stream at the service. Call it on a copy that `m_GetSubscriber`
   * returned. Any thread.
   *
   * Deliberate: two modules can, rarely, have the same key. The first one then receives the sections of both
   * (docs/surprises.md).
   *
   * @return the low 16 bits of the copy's address, followed by the 16 bits of `streamId`
   */
  int m_GetKey(short streamId);

  // --- PES packets and captions ---

  /**
   * Subscribes this module to the PES packets of the current service. The library subscribes once for all modules.
   *
   * Deliberate: a repeated call replaces the callback and the user data, even if it fails (docs/surprises.md).
   *
   * Deliberate: if the service refuses the first subscription, the next call returns true without asking it again, and
   * nothing is delivered until all modules have unsubscribed (docs/surprises.md).
   *
   * @param cb        called for every packet; if it is null, the library logs a message for each packet instead
   * @param userData  passed to `cb`; not owned
   * @return false, with a log message, if the service has no subscriber or refused
   */
  bool SubscribePES(PesCallback cb, void *userData);
  /**
   * Ends this module's subscription to PES packets. The last module ends the subscription at the service. Packets that
   * are still on their way then reach nobody.
   *
   * @return false if this module is not subscribed, or if the service refused to end its subscription, which the
   * library has forgotten by then
   */
  bool UnsubscribePES();
  /** Subscribes this module to the captions of the current service, otherwise like `SubscribePES`. */
  bool SubscribeCaption(CaptionCallback cb, void *userData);
  /** Ends this module's subscription to captions, otherwise like `UnsubscribePES`. */
  bool UnsubscribeCaption();

  // --- DSM ---

  /**
   * Attaches this module to a DSM data service. The first call, and the first after everything was released, creates
   * the service's DSM object and aborts if that fails: "Failed to create DSM".
   *
   * Deliberate: an object can attach once in its life, even if the attachment fails. A second call aborts: "dsm
   * callback has already been set !" (docs/surprises.md).
   *
   * Deliberate: the library does not test the callback for null. If the module has called `DetachDsm` before, its copy
   * has no callback, and the first message crashes (docs/surprises.md).
   *
   * @param cb             called for every message of the session
   * @param sessionHandle  receives the service's handle
   * @param target         names the data service; its bytes are passed on without a terminating zero
   * @param serviceType    passed on to the service
   * @param attachType     passed on to the service
   * @param userData       passed on to the service
   * @param flag           passed on to the service
   * @return false, with a log message, if the service refused
   */
  bool AttachDsm(DsmCallback cb, unsigned int &sessionHandle, const std::string &target,
                 EDsmDataServiceType serviceType, EDsmAttachType attachType, void *userData, bool flag);
  /**
   * Ends a DSM session.
   *
   * Deliberate: the owner of the session is not checked, and the library forgets the session even if the service
   * refuses. Messages that still arrive are logged as unknown (docs/surprises.md).
   *
   * Aborts if no module has attached since the start, or since everything was released: "no subscriptions !!".
   *
   * @return whether the service agreed; a refusal is logged
   */
  bool DetachDsm(unsigned int sessionHandle);
  /**
   * Returns the service's DSM object. Aborts if no module has attached since the start, or since everything was
   * released: "no subscriptions !!". Takes no lock. Call it on any thread, but not while another one attaches or
   * releases everything.
   *
   * @return the object, owned by the service
   */
  static IDsm *GetDsmInstance();

  // --- What all modules share ---

  /**
   * Ends all subscriptions in the library, and at the service all but those to PES packets and captions. A notification
   * that is still on its way reaches only modules that subscribe again before the main loop delivers it.
   *
   * If a signal callback calls this function, no further module receives that signal. If a PES or caption callback
   * does, each remaining module receives the data if it has subscribed again by its turn; otherwise the log names it.
   *
   * Deliberate: afterwards the library goes on using the service's old signal, section, PES and caption subscribers. An
   * object that has set its signal, programme or section callback must not set it again (docs/surprises.md).
   */
  static void ReleaseAll();
  /**
   * Finds the copy of a module's object. Takes no lock, so call it on the main-loop thread only.
   *
   * @param name    the module's name
   * @param stream  "signal", "program", "section", "pes", "caption" or "dsm"
   * @return the copy, owned by the library until `ReleaseAll`; null if the module has none
   */
  static CTVServiceSubscriber *m_GetSubscriber(std::string name, std::string stream);
  /**
   * Finds or makes the copy of this object. Only the library calls it, with its lock held.
   *
   * Deliberate: an existing copy is returned as it is. Callbacks that were set on this object since are not in it
   * (docs/surprises.md).
   *
   * @param stream  as in `m_GetSubscriber`
   * @return the copy, owned by the library until `ReleaseAll`
   */
  CTVServiceSubscriber *m_GetCopiedSubscriptionInstance(std::string stream);

  // --- Called by the TV service, on its own threads ---

  /** Sends a signal notification to the main loop. @return 1, or 0 if it was dropped */
  static int t_SignalCallback(ESignalType type, EProfile profile, unsigned short screenId, TSSignalData data,
                              void *userData);
  /** Sends a programme notification to the main loop. */
  static void t_ProgramCallback(EProgramChangeType changeType, TCProgramData *data, int arg, int handle);
  /** Sends a copy of a PES packet to the main loop. */
  static void t_PesDataCallback(TSPESData &data, void *userData);
  /** Sends a copy of a caption to the main loop. */
  static void t_CaptionCallback(TSCaption &data, void *userData);
  /** Calls the module that subscribed with `key`. */
  static void t_SectionCallback(bool flag, unsigned short number, unsigned char *data, int key);
  /** Calls the module that attached to the message's session. */
  static void t_DsmCallback(TSDsmMessage &message);
  /**
   * Delivers the library's own Ecore events, on the main-loop thread. Ecore calls it.
   *
   * @param data   not used
   * @param type   one of the four event types that the library posts; others are ignored
   * @param event  the record of that type; the event loop frees it
   * @return 0
   */
  static Eina_Bool m_DeferredEventHandler(void *data, int type, void *event);

  std::string m_name;                             ///< the module's name
  SignalCallback m_signalCallback;                ///< null until set
  TTSignalCallback m_ttSignalCallback;            ///< null until set
  SectionCallback m_sectionCallback;              ///< null until set
  DsmCallback m_dsmCallback;                      ///< null until the first attachment
  PesCallback m_pesCallback;                      ///< in a copy: from the latest subscription
  CaptionCallback m_captionCallback;              ///< in a copy: from the latest subscription
  ProgramCallback m_programCallback;              ///< null until set
  std::map<TSignalInfo, void *> m_signalUserData; ///< in a copy: from the latest subscription to each signal
  void *m_pUserData;                              ///< in a copy: from the latest PES or caption subscription
  int m_sectionHandle;                            ///< in a copy: from the latest filter subscription

  static EProfile m_profile;              ///< picture of the sections, PES packets and captions; initially 1
  static int m_group;                     ///< group of the same; initially 0
  static int m_captionSubscriptionHandle; ///< the caption subscription at the service
  static int m_pesSubscriptionHandle;     ///< the PES subscription at the service
  static int m_eventType[6]; ///< Ecore event types: signal (0), PES (3), caption (4), programme (5); 0 until needed

  // Created by the first operation that needs them; null before that and after ReleaseAll. Guarded by the library's
  // lock.
  static std::map<std::string, CTVServiceSubscriber *> *m_pSubscriberInstances;      ///< by name, "_" and stream; owned
  static std::multimap<TSignalInfo, CTVServiceSubscriber *> *m_pSignalSubscriptions; ///< one entry per subscription
  static std::map<int, CTVServiceSubscriber *> *m_pProgramSubscriptions;             ///< by the service's handle
  static std::map<int, CTVServiceSubscriber *> *m_pSectionSubscriptions;             ///< by `m_GetKey`
  static std::map<int, CTVServiceSubscriber *> *m_pDsmSubscriptions;                 ///< by session handle
  static std::set<std::string> *m_pPesSubscriptions;                                 ///< names of modules
  static std::set<std::string> *m_pCaptionSubscriptions;                             ///< names of modules

  // The service's objects; null until the first operation that needs them.
  static ISignalSubscriber *m_pSignalSubscriber;   ///< stays after ReleaseAll
  static IProgramSubscriber *m_pProgramSubscriber; ///< null after ReleaseAll
  static ISectionSubscriber *m_pSectionSubscriber; ///< stays after ReleaseAll
  static IPESDataSubscriber *m_pPESDataSubscriber; ///< stays after ReleaseAll
  static IDataSubscriber *m_pCaptionSubscriber;    ///< stays after ReleaseAll
  static IDsm *m_pDsm;                             ///< null after ReleaseAll
};

#pragma GCC visibility pop

#endif
