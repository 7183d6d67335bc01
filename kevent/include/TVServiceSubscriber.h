/**
 * @file TVServiceSubscriber.h
 * The TV service's notifications, shared between the modules of an application.
 *
 * The TV service gives a process one subscriber object of each kind: signals, programmes, sections, PES packets,
 * captions, DSM. This class creates each of them once, counts the subscriptions of the modules, and routes every
 * notification to the modules that asked for it.
 *
 * A module owns one ordinary object that carries its name and its callbacks. At the first subscription to each kind of
 * stream the library files a copy of that object, and from then on works with the copy: the module's object may go
 * away, and a callback that it sets later is not seen.
 *
 * Threads: the operations are called on the main-loop thread, the one that called `ecore_init`, or from inside any of
 * the callbacks. Signal, programme, PES and caption callbacks run on the main-loop thread. Section and DSM callbacks
 * run on a thread of the TV service. The library's lock is never held while a callback runs, so a callback may
 * subscribe, unsubscribe and release everything. Before `ecore_shutdown` the application ends the service's threads.
 *
 * Errors: preconditions that a module breaks abort the process with the assertion's text on stderr, in release builds
 * too. Everything else is told by the result and a log message. An operation for which memory is short throws
 * `std::bad_alloc` with nothing subscribed; a notification for which memory is short is dropped with a log message, and
 * so is what is left of one whose callback on the main loop throws `std::bad_alloc`, or for which the platform keeps
 * refusing the lock.
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
  ESignalType signalType;  ///< what the notifications are about
  EProfile profile;        ///< picture that the signal belongs to
  unsigned short screenId; ///< screen that shows it
};

/** @return whether all fields are equal. Any thread. */
bool operator==(const TSignalInfo &a, const TSignalInfo &b);
/** @return whether `a` comes first: by screen, then by profile, then by signal type. Any thread. */
bool operator<(const TSignalInfo &a, const TSignalInfo &b);

/** A signal notification on its way through the main loop. */
struct TSignalEvent {
  ESignalType signalType;  ///< what it is about
  TSSignalData signalData; ///< what the service told
  EProfile profile;        ///< picture that it belongs to
  unsigned short screenId; ///< screen that shows it
  void *userData;          ///< what the service was given with the subscription; not used
};

/** A programme notification on its way through the main loop. */
struct TProgramEvent {
  EProgramChangeType changeType; ///< what changed
  int arg;                       ///< third argument of the service's call
  TCProgramData *programData;    ///< the service's own; not owned
  int handle;                    ///< subscription that it belongs to
};

/** A PES packet on its way through the main loop. */
struct TPesEvent {
  TSPESData *data; ///< copy made with `new`; deleted by the handler
};

/** A caption on its way through the main loop. */
struct TCaptionEvent {
  TSCaption *data; ///< copy made with `new`; deleted by the handler
};

/** A module's subscriptions at the TV service, and what all modules share. May be copied. */
class CTVServiceSubscriber {
public:
  /** Told a signal and the user data of its subscription, on the main-loop thread. The result is ignored. */
  typedef int (*SignalCallback)(ESignalType, TSSignalData, void *);
  /** The same with profile and screen id. */
  typedef int (*TTSignalCallback)(ESignalType, EProfile, unsigned short, TSSignalData, void *);
  /**
   * Told a section, on a thread of the TV service: the service's flag and number, the section, which is valid during
   * the call only, and the stream identifier of the subscription as 16 bits (65535 for one subscribed as -1).
   */
  typedef void (*SectionCallback)(bool, unsigned short, unsigned char *, int);
  /** Told a DSM message, which is valid during the call only, on a thread of the TV service. */
  typedef void (*DsmCallback)(TSDsmMessage &);
  /**
   * Told a PES packet and the user data of the subscription, on the main-loop thread. All subscribers get the same
   * packet, one after the other; it is valid during the call only.
   */
  typedef void (*PesCallback)(TSPESData &, void *);
  /** Told a caption, in the same manner. */
  typedef void (*CaptionCallback)(TSCaption &, void *);
  /**
   * Told a programme change, on the main-loop thread: what changed, the service's programme data, the service's third
   * argument, and the handle of the subscription.
   */
  typedef void (*ProgramCallback)(EProgramChangeType, TCProgramData *, int, int);

  /**
   * Makes an object without callbacks.
   *
   * @param name  the module's name. Objects with one name are one module: they share one copy per kind of stream.
   */
  explicit CTVServiceSubscriber(const std::string &name);

  // --- Signals ---

  /**
   * Sets this object's three-argument signal callback, before its first `SubscribeSignal`.
   *
   * A second call on one object aborts: "signal callback has already been set !". The first call of all creates the
   * service's subscriber and aborts when that fails: "failed to create signal subscriber!".
   *
   * @param cb  called for every signal that this module subscribes
   */
  void SetSignalCallback(SignalCallback cb);
  /** The same for the five-argument callback. An object that has both gets both calls, this one second. */
  void SetSignalCallback(TTSignalCallback cb);
  /**
   * Subscribes to one signal. Each call counts: a module that subscribes twice is called twice for each notification.
   *
   * Aborts when this object has no signal callback or everything was released since one was set: "signal callback
   * should be registered before subscription !!". What the service answers is ignored.
   *
   * @param type      signal to subscribe to
   * @param userData  given back to the callback; not owned. One per module and signal: the latest counts.
   * @param profile   picture that the signal belongs to
   * @param screenId  screen that shows it
   * @return true
   */
  bool SubscribeSignal(ESignalType type, void *userData, EProfile profile, unsigned short screenId);
  /**
   * Takes back one subscription of this module to one signal.
   *
   * The service is asked to stop when no subscription of this signal and of any signal that comes after it in order
   * remains, whichever module's; otherwise it goes on, and what arrives is dispatched to nobody.
   *
   * @return false when no signal callback was ever set or everything was released since; otherwise true, also when
   * there was nothing to take back
   */
  bool UnsubscribeSignal(ESignalType type, EProfile profile, unsigned short screenId);
  /**
   * Called on a copy that the library filed.
   *
   * @return the user data of the copy's subscription to `key`, or null, with a log message. Takes no lock.
   */
  void *m_GetUserDataOfSignalCallback(const TSignalInfo &key);

  // --- Programmes ---

  /**
   * Sets this object's programme callback, before its first programme subscription.
   *
   * A second call on one object aborts: "program callback has already been set !". The first call since the start or
   * since everything was released creates the service's subscriber and aborts when that fails: "ret == 0 &&
   * m_pProgramSubscriber != __null".
   *
   * @param cb  called for every change of what this module subscribes. It is called without a test for null, so a
   * module that subscribes without having set one crashes at the first notification.
   */
  void SetProgramCallback(ProgramCallback cb);
  /**
   * Subscribes to one programme.
   *
   * Aborts when no module has set a programme callback since the start or since everything was released: "please set
   * program callback before subscribe a program !". A handle that the service gave before stays with the module that
   * got it first.
   *
   * @param item    the programme, passed on to the service
   * @param handle  receives the service's handle
   * @return false, with a log message, when the service refused
   */
  bool SubscribeProgram(const TCProgramFilteringItem &item, int &handle);
  /**
   * Subscribes to the present and following programme of a service, otherwise like `SubscribeProgram`.
   *
   * @param arg        passed on to the service
   * @param serviceId  service that carries the programmes
   * @param type       how changes are reported
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
   * @param type       how changes are reported
   * @param handle     receives the service's handle
   */
  bool SubscribeProgramList(int arg, const TCServiceId &serviceId, unsigned int first, unsigned int second,
                            ESubscribeType type, int &handle);
  /**
   * Ends a `SubscribeProgram`. Whose handle it is, is not checked.
   *
   * @return true when the service agreed; false when it refused, and the subscription stays, or nothing is set up
   */
  bool UnSubscribeProgram(int handle);
  /** Ends a `SubscribeProgramListPF` or `SubscribeProgramList`, otherwise like `UnSubscribeProgram`. */
  bool UnSubscribeProgramList(int handle);
  /**
   * Asks the service which programme tables it watches.
   *
   * @param type  filled by the service
   * @return the service's answer; false, with `type` untouched, when nothing is set up
   */
  bool MonitoringType(EProgramMonitoringType &type);

  // --- Sections ---

  /**
   * Sets this object's section callback, before its first section subscription, and again by another object of the
   * module after everything was released.
   *
   * A second call on one object aborts: "section callback has already been set !". The first call of all creates the
   * service's subscriber, for `m_profile` and `m_group`, and aborts when that fails: "ret == 0 && m_pSectionSubscriber
   * != __null".
   *
   * @param cb  called for every section that this module subscribes
   */
  void SetSectionCallback(SectionCallback cb);
  /**
   * Subscribes to the sections of one stream that meet `criteria`.
   *
   * Aborts when this object has no section callback: "section callback should be registered before subscription !!".
   * The library does not keep the handle: `UnsubscribeSection` stops the service, but not the delivery of what the
   * service still sends. After everything was released, sections are delivered once a section callback was set anew.
   *
   * @param streamId  identifies the stream to the callback
   * @param criteria  passed on to the service
   * @param handle    receives the service's handle
   * @return whether the service agreed
   */
  bool SubscribeSection(short streamId, const TCSectionCriteriaHelper &criteria, int &handle);
  /**
   * Subscribes to the sections of one stream that pass `filter`, otherwise like `SubscribeSection`. Of a module's
   * handles the library keeps the latest one.
   *
   * @param streamId  identifies the stream to the callback
   * @param filter    passed on to the service
   * @param handle    receives the service's handle
   */
  bool SubscribeSectionByFilter(short streamId, const TCSectionFilterCriteriaHelper &filter, int &handle);
  /**
   * Ends a section subscription at the service, and in the library when `handle` is the latest of a module's filter
   * subscriptions: then the one with the lowest key of that module's entries goes, whichever stream it is for.
   *
   * Aborts when no section callback was set since the start or since everything was released:
   * "m_pSectionSubscriptions is null !!".
   *
   * @return whether the service agreed
   */
  bool UnsubscribeSection(int handle);
  /**
   * Called on a copy that the library filed. Any thread.
   *
   * @return the key that stands for this module and stream at the service: the low 16 bits of the copy's address above
   * the 16 bits of `streamId`. Two modules may, rarely, have the same key; the first one then gets all sections.
   */
  int m_GetKey(short streamId);

  // --- PES packets and captions ---

  /**
   * Subscribes this module to the PES packets of the current service. The service is asked once for all modules.
   *
   * A repeated call replaces callback and user data, also when it fails. When the service refuses the first
   * subscription, the next call succeeds without asking it again, and nothing is delivered until all have unsubscribed.
   *
   * @param cb        called for every packet; one that is null is reported in the log with every packet
   * @param userData  given back to `cb`; not owned
   * @return false, with a log message, when the service has no subscriber or refused
   */
  bool SubscribePES(PesCallback cb, void *userData);
  /**
   * Ends this module's subscription to PES packets. The last module that goes ends the service's.
   *
   * @return false when this module is not subscribed, or the service refused to end its subscription
   */
  bool UnsubscribePES();
  /** Subscribes this module to the captions of the current service, otherwise like `SubscribePES`. */
  bool SubscribeCaption(CaptionCallback cb, void *userData);
  /** Ends this module's subscription to captions, otherwise like `UnsubscribePES`. */
  bool UnsubscribeCaption();

  // --- DSM ---

  /**
   * Attaches this module to a DSM data service. Once in the life of an object, whatever comes of it: the second call
   * aborts: "dsm callback has already been set !". The first call of all, and the first after everything was released,
   * creates the service's DSM object and aborts when that fails: "Failed to create DSM".
   *
   * @param cb             called for every message of the session, without a test for null. When the module detached
   *                       another session before, its copy has no callback, and the first message crashes.
   * @param sessionHandle  receives the service's handle
   * @param target         names the data service; its bytes are passed on without a terminating zero
   * @param serviceType    passed on to the service
   * @param attachType     passed on to the service
   * @param userData       passed on to the service
   * @param flag           passed on to the service
   * @return false, with a log message, when the service refused
   */
  bool AttachDsm(DsmCallback cb, unsigned int &sessionHandle, const std::string &target,
                 EDsmDataServiceType serviceType, EDsmAttachType attachType, void *userData, bool flag);
  /**
   * Ends a DSM session, in the library also when the service refuses. Whose session it is, is not checked.
   *
   * Aborts when no module has attached since the start or since everything was released: "no subscriptions !!".
   *
   * @return whether the service agreed; a refusal is logged
   */
  bool DetachDsm(unsigned int sessionHandle);
  /**
   * The service's DSM object. Aborts when no module has attached since the start or since everything was released: "no
   * subscriptions !!". Any thread, but not while another one releases everything or attaches; takes no lock.
   *
   * @return the object, owned by the service
   */
  static IDsm *GetDsmInstance();

  // --- What all modules share ---

  /**
   * Ends every subscription at the service and in the library. A notification that is still on its way reaches only
   * modules that subscribe again before the main loop delivers it.
   *
   * When a callback calls this function, the notification being delivered ends there for a signal. A PES packet or a
   * caption goes on to those of the remaining modules that have subscribed again by their turn; the log names the
   * others.
   *
   * The service's signal, section, PES and caption subscribers are used again afterwards; the PES and caption
   * subscriptions are not ended one by one. Objects that have set their signal, programme or section callback must not
   * set it again.
   */
  static void ReleaseAll();
  /**
   * Finds the copy of a module's object. Takes no lock, so for the main-loop thread only.
   *
   * @param name    the module's name
   * @param stream  "signal", "program", "section", "pes", "caption" or "dsm"
   * @return the copy, owned by the library until `ReleaseAll`; null when the module has none
   */
  static CTVServiceSubscriber *m_GetSubscriber(std::string name, std::string stream);
  /**
   * Finds or makes the copy of this object. One that exists is returned as it is. For the library itself, which calls
   * it with its lock held.
   *
   * @param stream  as in `m_GetSubscriber`
   * @return the copy, owned by the library until `ReleaseAll`
   */
  CTVServiceSubscriber *m_GetCopiedSubscriptionInstance(std::string stream);

  // --- What the TV service calls, on threads of its own ---

  /** Takes a signal notification to the main loop. @return 1, or 0 when it was dropped */
  static int t_SignalCallback(ESignalType type, EProfile profile, unsigned short screenId, TSSignalData data,
                              void *userData);
  /** Takes a programme notification to the main loop. */
  static void t_ProgramCallback(EProgramChangeType changeType, TCProgramData *data, int arg, int handle);
  /** Takes a copy of a PES packet to the main loop. */
  static void t_PesDataCallback(TSPESData &data, void *userData);
  /** Takes a copy of a caption to the main loop. */
  static void t_CaptionCallback(TSCaption &data, void *userData);
  /** Calls the one module that subscribed with `key`. */
  static void t_SectionCallback(bool flag, unsigned short number, unsigned char *data, int key);
  /** Calls the one module that attached to the message's session. */
  static void t_DsmCallback(TSDsmMessage &message);
  /**
   * The library's Ecore handler of the four event types that it posts.
   *
   * @param data   not used
   * @param type   type of the event; others than the four are ignored
   * @param event  the record of that type; released by the event loop, not here
   * @return 0
   */
  static Eina_Bool m_DeferredEventHandler(void *data, int type, void *event);

  std::string m_name;                             ///< the module's name
  SignalCallback m_signalCallback;                ///< null until set
  TTSignalCallback m_ttSignalCallback;            ///< null until set
  SectionCallback m_sectionCallback;              ///< null until set
  DsmCallback m_dsmCallback;                      ///< null until the first attachment
  PesCallback m_pesCallback;                      ///< of a copy: that of the latest subscription
  CaptionCallback m_captionCallback;              ///< of a copy: that of the latest subscription
  ProgramCallback m_programCallback;              ///< null until set
  std::map<TSignalInfo, void *> m_signalUserData; ///< of a copy: that of the latest subscription of each signal
  void *m_pUserData;                              ///< of a copy: that of the latest PES or caption subscription
  int m_sectionHandle;                            ///< of a copy: that of the latest filter subscription

  static EProfile m_profile; ///< picture whose sections, PES packets and captions are subscribed; initially 1
  static int m_group;        ///< group that goes with it; initially 0
  static int m_captionSubscriptionHandle; ///< of the one caption subscription at the service
  static int m_pesSubscriptionHandle;     ///< of the one PES subscription at the service
  static int m_eventType[6]; ///< Ecore event types of signal (0), PES (3), caption (4), program (5); 0 until needed

  // Made by the first operation that needs them, gone after ReleaseAll. Guarded by the library's lock.
  static std::map<std::string, CTVServiceSubscriber *> *m_pSubscriberInstances;      ///< by name, "_" and stream; owned
  static std::multimap<TSignalInfo, CTVServiceSubscriber *> *m_pSignalSubscriptions; ///< one entry per subscription
  static std::map<int, CTVServiceSubscriber *> *m_pProgramSubscriptions;             ///< by the service's handle
  static std::map<int, CTVServiceSubscriber *> *m_pSectionSubscriptions;             ///< by `m_GetKey`
  static std::map<int, CTVServiceSubscriber *> *m_pDsmSubscriptions;                 ///< by session handle
  static std::set<std::string> *m_pPesSubscriptions;                                 ///< names of modules
  static std::set<std::string> *m_pCaptionSubscriptions;                             ///< names of modules

  // The service's objects, null until the first operation that needs them.
  static ISignalSubscriber *m_pSignalSubscriber;   ///< stays after ReleaseAll
  static IProgramSubscriber *m_pProgramSubscriber; ///< null after ReleaseAll
  static ISectionSubscriber *m_pSectionSubscriber; ///< stays after ReleaseAll
  static IPESDataSubscriber *m_pPESDataSubscriber; ///< stays after ReleaseAll
  static IDataSubscriber *m_pCaptionSubscriber;    ///< stays after ReleaseAll
  static IDsm *m_pDsm;                             ///< null after ReleaseAll
};

#pragma GCC visibility pop

#endif
