// Wraps the operations of CTVServiceSubscriber. The library files a copy of a module's object with the module's first
// subscription. The copy gets callbacks that print each call; the module's object keeps its own.
#include <TVServiceSubscriber.h>

#include <cstdio>
#include <cstring>

#include "checks.h"
#include "efl.h"
#include "log_listener.h"
#include "next.h"
#include "notification.h"
#include "player.h"
#include "record.h"
#include "session.h"
#include "subscriptions.h"
#include "symbols.h"
#include "tv_callbacks.h"

using namespace lumio::trace;
using Subscriber = CTVServiceSubscriber;

namespace {

using Signal = Subscriber::SignalCallback;
using TTSignal = Subscriber::TTSignalCallback;

Next<void(Subscriber *, Signal)>
    g_set_signal("_ZN20CTVServiceSubscriber17SetSignalCallbackEPFi11ESignalType12TSSignalDataPvE");
Next<void(Subscriber *, TTSignal)>
    g_set_tt_signal("_ZN20CTVServiceSubscriber17SetSignalCallbackEPFi11ESignalType8EProfilet12TSSignalDataPvE");
Next<bool(Subscriber *, ESignalType, void *, EProfile, unsigned short)>
    g_subscribe_signal("_ZN20CTVServiceSubscriber15SubscribeSignalE11ESignalTypePv8EProfilet");
Next<bool(Subscriber *, ESignalType, EProfile, unsigned short)>
    g_unsubscribe_signal("_ZN20CTVServiceSubscriber17UnsubscribeSignalE11ESignalType8EProfilet");
Next<void(Subscriber *, Subscriber::ProgramCallback)>
    g_set_program("_ZN20CTVServiceSubscriber18SetProgramCallbackEPFv18EProgramChangeTypeP13TCProgramDataiiE");
Next<bool(Subscriber *, const TCProgramFilteringItem &, int &)>
    g_subscribe_program("_ZN20CTVServiceSubscriber16SubscribeProgramERK22TCProgramFilteringItemRi");
Next<bool(Subscriber *, int, const TCServiceId &, ESubscribeType, int &)>
    g_subscribe_list_pf("_ZN20CTVServiceSubscriber22SubscribeProgramListPFEiRKy14ESubscribeTypeRi");
Next<bool(Subscriber *, int, const TCServiceId &, unsigned int, unsigned int, ESubscribeType, int &)>
    g_subscribe_list("_ZN20CTVServiceSubscriber20SubscribeProgramListEiRKyjj14ESubscribeTypeRi");
Next<bool(Subscriber *, int)> g_unsubscribe_program("_ZN20CTVServiceSubscriber18UnSubscribeProgramEi");
Next<bool(Subscriber *, int)> g_unsubscribe_list("_ZN20CTVServiceSubscriber22UnSubscribeProgramListEi");
Next<void(Subscriber *, Subscriber::SectionCallback)>
    g_set_section("_ZN20CTVServiceSubscriber18SetSectionCallbackEPFvbtPhiE");
Next<bool(Subscriber *, short, const TCSectionCriteriaHelper &, int &)>
    g_subscribe_section("_ZN20CTVServiceSubscriber16SubscribeSectionEsRK23TCSectionCriteriaHelperRi");
Next<bool(Subscriber *, short, const TCSectionFilterCriteriaHelper &, int &)>
    g_subscribe_filter("_ZN20CTVServiceSubscriber24SubscribeSectionByFilterEsRK29TCSectionFilterCriteriaHelperRi");
Next<bool(Subscriber *, int)> g_unsubscribe_section("_ZN20CTVServiceSubscriber18UnsubscribeSectionEi");
Next<bool(Subscriber *, Subscriber::PesCallback, void *)>
    g_subscribe_pes("_ZN20CTVServiceSubscriber12SubscribePESEPFvR9TSPESDataPvES2_");
Next<bool(Subscriber *)> g_unsubscribe_pes("_ZN20CTVServiceSubscriber14UnsubscribePESEv");
Next<bool(Subscriber *, Subscriber::CaptionCallback, void *)>
    g_subscribe_caption("_ZN20CTVServiceSubscriber16SubscribeCaptionEPFvR9TSCaptionPvES2_");
Next<bool(Subscriber *)> g_unsubscribe_caption("_ZN20CTVServiceSubscriber18UnsubscribeCaptionEv");
Next<bool(Subscriber *, Subscriber::DsmCallback, unsigned int &, const std::string &, EDsmDataServiceType,
          EDsmAttachType, void *, bool)>
    g_attach("_ZN20CTVServiceSubscriber9AttachDsmEPFvR12TSDsmMessageERjRKNSt7__cxx1112basic_stringIcSt11char_traitsIcE"
             "SaIcEEE19EDsmDataServiceType14EDsmAttachTypePvb");
Next<bool(Subscriber *, unsigned int)> g_detach("_ZN20CTVServiceSubscriber9DetachDsmEj");
Next<IDsm *()> g_dsm_instance("_ZN20CTVServiceSubscriber14GetDsmInstanceEv");
Next<void()> g_release_all("_ZN20CTVServiceSubscriber10ReleaseAllEv");
Next<Subscriber *(Subscriber *, std::string)>
    g_copied("_ZN20CTVServiceSubscriber31m_GetCopiedSubscriptionInstanceENSt7__cxx1112basic_stringIcSt11char_"
             "traitsIcESaIcEEE");

Variable<void *> g_signal_subscriptions("_ZN20CTVServiceSubscriber22m_pSignalSubscriptionsE");
Variable<void *> g_program_subscriptions("_ZN20CTVServiceSubscriber23m_pProgramSubscriptionsE");
Variable<void *> g_section_subscriptions("_ZN20CTVServiceSubscriber23m_pSectionSubscriptionsE");
Variable<void *> g_dsm_subscriptions("_ZN20CTVServiceSubscriber19m_pDsmSubscriptionsE");

bool IsNull(Variable<void *> &pointer) { return !pointer.Get() || !*pointer.Get(); }

// --- Checks ----------------------------------------------------------------------------------------------------------

// Asks the service through `ask`, which returns whether the service agreed.
template <class Ask> bool Request(const char *call, const Ask &ask) {
  const int number = NoteRequest(call);
  const bool agreed = ask();
  if (!agreed) {
    RecordRefusal(call, number);
  }
  return agreed;
}

// Names the operation and its caller.
struct Call {
  const char *function;
  const std::string &module;
  const void *caller;

  void Tell(const char *argument, const std::string &value, const std::string &advice) const {
    Report({function, argument, value, module, advice}, caller);
  }
  void Tell(const std::string &advice) const { Tell("", "", advice); }
};

// A callback of the library may call everything, on any thread.
void CheckThread(const Call &call) {
  if (!Notification::Current()) {
    CheckMainLoop(call.function, call.module, call.caller);
  }
}

template <class Callback> void CheckSet(const Call &call, Callback current, Callback callback) {
  CheckThread(call);
  if (current) {
    call.Tell("cb", Describe(SymbolOf(callback)),
              "this object has a callback, " + Describe(SymbolOf(current)) +
                  ", and the library ends the process: set it once");
  } else if (!callback) {
    call.Tell("cb", "null", "a null callback counts as none: pass a function");
  }
}

template <class Callback>
void CheckShared(const Call &call, const char *stream, const Subscriber *object, Callback callback) {
  const std::string other = OtherCallback(call.module, stream, object, reinterpret_cast<const void *>(callback));
  if (!other.empty()) {
    call.Tell("the library keeps one callback for each module name, " + other + ", and " +
              Describe(SymbolOf(callback)) +
              " is never called: set the callback before the first subscription, and "
              "give each object a name of its own");
  }
}

void CheckHandle(const Call &call, TvKind kind, int handle) {
  CheckThread(call);
  const std::string owner = OwnerOf(kind, handle);
  if (owner.empty()) {
    call.Tell("handle", std::to_string(handle), "no subscription has this handle: pass that of the subscription");
  } else if (owner != call.module) {
    call.Tell("handle", std::to_string(handle), "this is the subscription of module " + owner);
  }
}

std::string SignalText(ESignalType type, EProfile profile, unsigned short screen) {
  char text[64];
  snprintf(text, sizeof text, "type %d, profile %d, screen %d", static_cast<int>(type), static_cast<int>(profile),
           screen);
  return text;
}

} // namespace

// --- Signals ---------------------------------------------------------------------------------------------------------

void CTVServiceSubscriber::SetSignalCallback(SignalCallback cb) {
  const Call call{"CTVServiceSubscriber::SetSignalCallback", m_name, __builtin_return_address(0)};
  CheckSet(call, m_signalCallback, cb);
  g_set_signal(this, cb);
}

void CTVServiceSubscriber::SetSignalCallback(TTSignalCallback cb) {
  const Call call{"CTVServiceSubscriber::SetSignalCallback", m_name, __builtin_return_address(0)};
  CheckSet(call, m_ttSignalCallback, cb);
  g_set_tt_signal(this, cb);
}

bool CTVServiceSubscriber::SubscribeSignal(ESignalType type, void *userData, EProfile profile,
                                           unsigned short screenId) {
  const Call call{"CTVServiceSubscriber::SubscribeSignal", m_name, __builtin_return_address(0)};
  CheckThread(call);
  if (!m_signalCallback && !m_ttSignalCallback) {
    call.Tell("this object has no signal callback, and the library ends the process: call SetSignalCallback() first");
  } else if (IsNull(g_signal_subscriptions)) {
    call.Tell("everything was released, and the library ends the process: make a new object and set its callback");
  }
  if (m_signalCallback) {
    CheckShared(call, "signal", this, m_signalCallback);
  }
  if (m_ttSignalCallback) {
    CheckShared(call, "signal of screens", this, m_ttSignalCallback);
  }
  TakeSignalAnswer();
  const SwappedCallbacks swapped(*this);
  const int number = NoteRequest("signal");
  const bool subscribed = g_subscribe_signal(this, type, userData, profile, screenId);
  if (subscribed) {
    NoteSubscription(TvKind::kSignal, m_name, SignalText(type, profile, screenId), 0);
  }
  if (TakeSignalAnswer() <= 0) {
    RecordRefusal("signal", number);
    call.Tell("type", std::to_string(type),
              "the service refused " + SignalText(type, profile, screenId) +
                  ", but the result reports success: no notification will come");
  }
  return subscribed;
}

bool CTVServiceSubscriber::UnsubscribeSignal(ESignalType type, EProfile profile, unsigned short screenId) {
  const Call call{"CTVServiceSubscriber::UnsubscribeSignal", m_name, __builtin_return_address(0)};
  CheckThread(call);
  if (!EndSubscription(TvKind::kSignal, m_name, SignalText(type, profile, screenId))) {
    call.Tell("type", std::to_string(type), "this module has not subscribed to " + SignalText(type, profile, screenId));
  }
  TakeSignalAnswer();
  const SwappedCallbacks swapped(*this);
  const bool unsubscribed = g_unsubscribe_signal(this, type, profile, screenId);
  if (TakeSignalAnswer() <= 0) {
    call.Tell("type", std::to_string(type),
              "the service refused to end " + SignalText(type, profile, screenId) + ", but the result reports success");
  }
  return unsubscribed;
}

// --- Programmes ------------------------------------------------------------------------------------------------------

namespace {

void CheckProgram(const Call &call, const Subscriber &object) {
  CheckThread(call);
  if (IsNull(g_program_subscriptions)) {
    call.Tell("no module has set a programme callback, and the library ends the process: call SetProgramCallback() "
              "first");
  } else if (!object.m_programCallback) {
    call.Tell("this object has no programme callback: the first notification crashes; call SetProgramCallback() "
              "before");
  } else {
    CheckShared(call, "program", &object, object.m_programCallback);
  }
}

// Takes `handle` by reference: the service fills it while the other arguments are evaluated.
bool NoteProgram(const Subscriber &object, bool subscribed, const int &handle) {
  if (subscribed) {
    NoteSubscription(TvKind::kProgram, object.m_name, "handle " + std::to_string(handle), handle);
  }
  return subscribed;
}

} // namespace

void CTVServiceSubscriber::SetProgramCallback(ProgramCallback cb) {
  const Call call{"CTVServiceSubscriber::SetProgramCallback", m_name, __builtin_return_address(0)};
  CheckSet(call, m_programCallback, cb);
  g_set_program(this, cb);
}

bool CTVServiceSubscriber::SubscribeProgram(const TCProgramFilteringItem &item, int &handle) {
  const Subscribing subscribing;
  CheckProgram({"CTVServiceSubscriber::SubscribeProgram", m_name, __builtin_return_address(0)}, *this);
  const SwappedCallbacks swapped(*this);
  return NoteProgram(*this, Request("program", [&] { return g_subscribe_program(this, item, handle); }), handle);
}

bool CTVServiceSubscriber::SubscribeProgramListPF(int arg, const TCServiceId &serviceId, ESubscribeType type,
                                                  int &handle) {
  const Subscribing subscribing;
  CheckProgram({"CTVServiceSubscriber::SubscribeProgramListPF", m_name, __builtin_return_address(0)}, *this);
  const SwappedCallbacks swapped(*this);
  return NoteProgram(
      *this, Request("program list pf", [&] { return g_subscribe_list_pf(this, arg, serviceId, type, handle); }),
      handle);
}

bool CTVServiceSubscriber::SubscribeProgramList(int arg, const TCServiceId &serviceId, unsigned int first,
                                                unsigned int second, ESubscribeType type, int &handle) {
  const Subscribing subscribing;
  CheckProgram({"CTVServiceSubscriber::SubscribeProgramList", m_name, __builtin_return_address(0)}, *this);
  const SwappedCallbacks swapped(*this);
  return NoteProgram(
      *this,
      Request("program list", [&] { return g_subscribe_list(this, arg, serviceId, first, second, type, handle); }),
      handle);
}

bool CTVServiceSubscriber::UnSubscribeProgram(int handle) {
  CheckHandle({"CTVServiceSubscriber::UnSubscribeProgram", m_name, __builtin_return_address(0)}, TvKind::kProgram,
              handle);
  return EndIf(g_unsubscribe_program(this, handle), TvKind::kProgram, handle);
}

bool CTVServiceSubscriber::UnSubscribeProgramList(int handle) {
  CheckHandle({"CTVServiceSubscriber::UnSubscribeProgramList", m_name, __builtin_return_address(0)}, TvKind::kProgram,
              handle);
  return EndIf(g_unsubscribe_list(this, handle), TvKind::kProgram, handle);
}

// --- Sections --------------------------------------------------------------------------------------------------------

namespace {

void CheckSection(const Call &call, const Subscriber &object) {
  CheckThread(call);
  if (!object.m_sectionCallback) {
    call.Tell("this object has no section callback, and the library ends the process: call SetSectionCallback() "
              "first");
  } else {
    CheckShared(call, "section", &object, object.m_sectionCallback);
  }
}

bool NoteSection(const Subscriber &object, bool subscribed, short stream, const int &handle) {
  const auto pid = static_cast<unsigned short>(stream);
  if (subscribed) {
    NoteSubscription(TvKind::kSection, object.m_name,
                     "stream " + std::to_string(pid) + ", handle " + std::to_string(handle), handle, pid);
  }
  return subscribed;
}

} // namespace

void CTVServiceSubscriber::SetSectionCallback(SectionCallback cb) {
  const Call call{"CTVServiceSubscriber::SetSectionCallback", m_name, __builtin_return_address(0)};
  CheckSet(call, m_sectionCallback, cb);
  g_set_section(this, cb);
}

bool CTVServiceSubscriber::SubscribeSection(short streamId, const TCSectionCriteriaHelper &criteria, int &handle) {
  const Subscribing subscribing;
  CheckSection({"CTVServiceSubscriber::SubscribeSection", m_name, __builtin_return_address(0)}, *this);
  const SwappedCallbacks swapped(*this);
  return NoteSection(*this, Request("section", [&] { return g_subscribe_section(this, streamId, criteria, handle); }),
                     streamId, handle);
}

bool CTVServiceSubscriber::SubscribeSectionByFilter(short streamId, const TCSectionFilterCriteriaHelper &filter,
                                                    int &handle) {
  const Subscribing subscribing;
  CheckSection({"CTVServiceSubscriber::SubscribeSectionByFilter", m_name, __builtin_return_address(0)}, *this);
  const SwappedCallbacks swapped(*this);
  return NoteSection(*this,
                     Request("section filter", [&] { return g_subscribe_filter(this, streamId, filter, handle); }),
                     streamId, handle);
}

bool CTVServiceSubscriber::UnsubscribeSection(int handle) {
  const Call call{"CTVServiceSubscriber::UnsubscribeSection", m_name, __builtin_return_address(0)};
  if (IsNull(g_section_subscriptions)) {
    call.Tell("no module has set a section callback, and the library ends the process");
  }
  CheckHandle(call, TvKind::kSection, handle);
  return EndIf(g_unsubscribe_section(this, handle), TvKind::kSection, handle);
}

// --- PES packets and captions ----------------------------------------------------------------------------------------

namespace {

template <class Callback> void CheckStream(const Call &call, TvKind kind, const Subscriber *object, Callback cb) {
  CheckThread(call);
  if (!cb) {
    call.Tell("cb", "null", "a subscription without a callback is logged as a failure with each notification");
  } else {
    CheckShared(call, kind == TvKind::kPes ? "pes" : "caption", object, cb);
  }
}

// The library asks the service once for all modules: if the service refuses the first, the others look subscribed.
bool NoteStream(const Call &call, TvKind kind, bool subscribed) {
  if (!subscribed) {
    NoteRefusal(kind);
    return false;
  }
  if (WasRefused(kind)) {
    call.Tell("the service refused this stream to an earlier module, but the result reports success: no "
              "notification will come");
  }
  NoteSubscription(kind, call.module, "", 0);
  return true;
}

void CheckStreamEnd(const Call &call, TvKind kind) {
  CheckThread(call);
  if (!EndSubscription(kind, call.module, "")) {
    call.Tell("this module has not subscribed: nothing was unsubscribed");
  }
}

} // namespace

bool CTVServiceSubscriber::SubscribePES(PesCallback cb, void *userData) {
  const Call call{"CTVServiceSubscriber::SubscribePES", m_name, __builtin_return_address(0)};
  CheckStream(call, TvKind::kPes, this, cb);
  return NoteStream(call, TvKind::kPes,
                    Request("pes", [&] { return g_subscribe_pes(this, ThunkOf(m_name, cb), userData); }));
}

bool CTVServiceSubscriber::UnsubscribePES() {
  CheckStreamEnd({"CTVServiceSubscriber::UnsubscribePES", m_name, __builtin_return_address(0)}, TvKind::kPes);
  return g_unsubscribe_pes(this);
}

bool CTVServiceSubscriber::SubscribeCaption(CaptionCallback cb, void *userData) {
  const Call call{"CTVServiceSubscriber::SubscribeCaption", m_name, __builtin_return_address(0)};
  CheckStream(call, TvKind::kCaption, this, cb);
  return NoteStream(call, TvKind::kCaption,
                    Request("caption", [&] { return g_subscribe_caption(this, ThunkOf(m_name, cb), userData); }));
}

bool CTVServiceSubscriber::UnsubscribeCaption() {
  CheckStreamEnd({"CTVServiceSubscriber::UnsubscribeCaption", m_name, __builtin_return_address(0)}, TvKind::kCaption);
  return g_unsubscribe_caption(this);
}

// --- DSM -------------------------------------------------------------------------------------------------------------

bool CTVServiceSubscriber::AttachDsm(DsmCallback cb, unsigned int &sessionHandle, const std::string &target,
                                     EDsmDataServiceType serviceType, EDsmAttachType attachType, void *userData,
                                     bool flag) {
  const Subscribing subscribing;
  const Call call{"CTVServiceSubscriber::AttachDsm", m_name, __builtin_return_address(0)};
  CheckThread(call);
  if (m_dsmCallback) {
    call.Tell("this object has attached before, and the library ends the process: an object attaches once in its life");
  } else if (!cb) {
    call.Tell("cb", "null", "the first message crashes: pass a function");
  } else {
    CheckShared(call, "dsm", this, cb);
  }
  const bool is_first = !m_dsmCallback;
  const bool attached = Request("dsm", [&] {
    return g_attach(this, ThunkOf(m_name, cb), sessionHandle, target, serviceType, attachType, userData, flag);
  });
  if (is_first) {
    m_dsmCallback = cb; // the module's object has its own; the library calls the copy's
  }
  if (attached) {
    NoteSubscription(TvKind::kDsm, m_name, "session " + std::to_string(sessionHandle), static_cast<int>(sessionHandle));
  }
  return attached;
}

bool CTVServiceSubscriber::DetachDsm(unsigned int sessionHandle) {
  const Call call{"CTVServiceSubscriber::DetachDsm", m_name, __builtin_return_address(0)};
  if (IsNull(g_dsm_subscriptions)) {
    call.Tell("no module has attached, and the library ends the process: attach first");
  } else if (!m_dsmCallback && !HasCallback(m_name, "dsm")) {
    call.Tell("this module has not attached: when it does, its first message crashes; attach first");
  }
  CheckHandle(call, TvKind::kDsm, static_cast<int>(sessionHandle));
  const SwappedCallbacks swapped(*this);
  return EndIf(g_detach(this, sessionHandle), TvKind::kDsm, static_cast<int>(sessionHandle));
}

IDsm *CTVServiceSubscriber::GetDsmInstance() {
  if (IsNull(g_dsm_subscriptions)) {
    Report({"CTVServiceSubscriber::GetDsmInstance", "", "", "",
            "no module has attached, and the library ends the process: attach first"},
           __builtin_return_address(0));
  }
  return g_dsm_instance();
}

// --- What all modules share ------------------------------------------------------------------------------------------

void CTVServiceSubscriber::ReleaseAll() {
  if (!Notification::Current()) {
    CheckMainLoop("CTVServiceSubscriber::ReleaseAll", "", __builtin_return_address(0));
  }
  g_release_all();
  EndAllSubscriptions();
}

Subscriber *CTVServiceSubscriber::m_GetCopiedSubscriptionInstance(std::string stream) {
  if (IsInLibrary(__builtin_return_address(0))) {
    return g_copied(this, std::move(stream));
  }
  const SwappedCallbacks swapped(*this);
  return g_copied(this, std::move(stream));
}
