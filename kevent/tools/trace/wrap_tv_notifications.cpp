// Follows a notification from the service's call, through the main loop, to the modules' callbacks.
#include <TVServiceSubscriber.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstring>
#include <map>
#include <memory>
#include <utility>

#include "checks.h"
#include "efl.h"
#include "log_listener.h"
#include "next.h"
#include "notification.h"
#include "player.h"
#include "record.h"
#include "rooms.h"
#include "sent_queue.h"
#include "session.h"
#include "subscriptions.h"
#include "tv_callbacks.h"

using namespace lumio::trace;
using Subscriber = CTVServiceSubscriber;

namespace {

Next<int(ESignalType, EProfile, unsigned short, TSSignalData, void *)>
    g_told_signal("_ZN20CTVServiceSubscriber16t_SignalCallbackE11ESignalType8EProfilet12TSSignalDataPv");
Next<void(EProgramChangeType, TCProgramData *, int, int)>
    g_told_program("_ZN20CTVServiceSubscriber17t_ProgramCallbackE18EProgramChangeTypeP13TCProgramDataii");
Next<void(TSPESData &, void *)> g_told_pes("_ZN20CTVServiceSubscriber17t_PesDataCallbackER9TSPESDataPv");
Next<void(TSCaption &, void *)> g_told_caption("_ZN20CTVServiceSubscriber17t_CaptionCallbackER9TSCaptionPv");
Next<void(bool, unsigned short, unsigned char *, int)>
    g_told_section("_ZN20CTVServiceSubscriber17t_SectionCallbackEbtPhi");
Next<void(TSDsmMessage &)> g_told_dsm("_ZN20CTVServiceSubscriber13t_DsmCallbackER12TSDsmMessage");
Next<Eina_Bool(void *, int, void *)> g_handler("_ZN20CTVServiceSubscriber22m_DeferredEventHandlerEPviS0_");
Variable<const int> g_event_type("_ZN20CTVServiceSubscriber11m_eventTypeE");

using SentQueues = std::array<SentQueue, kTvKinds>;
SentQueues &g_sent = *new SentQueues; // never destroyed: the services' threads outlive the end of main
SentQueue &SentOf(TvKind kind) { return g_sent[static_cast<std::size_t>(kind)]; }

// --- Thunks ----------------------------------------------------------------------------------------------------------

// Runs a callback of any kind: each kind has its own callback type.
struct RunCallback {
  template <class Function, class... Arguments>
  static auto Run(ThunkTarget &target, Function function, Arguments &&...arguments) {
    const NotifiedCall call(target);
    return function(std::forward<Arguments>(arguments)...);
  }
};

template <class Callback> using TvThunks = Thunks<RunCallback, Callback>;

template <class Callback> Callback Find(const std::string &module, Callback callback) {
  const Lock lock;
  return TvThunks<Callback>::For(module, callback);
}

// --- Contents --------------------------------------------------------------------------------------------------------

void Describe(const TSignalEvent &event, Words &words) {
  int data[2];
  memcpy(data, &event.signalData, sizeof data);
  words.Set(TheOptions().json ? "\"type\":%d,\"profile\":%d,\"screen\":%d,\"data\":[%d,%d]"
                              : "type %d, profile %d, screen %d: %d %d",
            event.signalType, event.profile, event.screenId, data[0], data[1]);
}

void Describe(const TProgramEvent &event, Words &words) {
  words.Set(TheOptions().json ? "\"change\":%d,\"handle\":%d,\"arg\":%d" : "change %d, handle %d, %d", event.changeType,
            event.handle, event.arg);
}

template <class Data> void DescribeData(const Data &data, Words &words) {
  words.Set(TheOptions().json ? "\"bytes\":%zu" : "%zu bytes", data.payload.size());
}

void Describe(const TPesEvent &event, Words &words) { DescribeData(*event.data, words); }
void Describe(const TCaptionEvent &event, Words &words) { DescribeData(*event.data, words); }

std::uint64_t ContentOf(const TSignalEvent &event) {
  return Content()
      .Add(event.signalType)
      .Add(event.profile)
      .Add(event.screenId)
      .Add(&event.signalData, sizeof event.signalData)
      .Value();
}

std::uint64_t ContentOf(const TProgramEvent &event) {
  return Content().Add(event.changeType).Add(event.programData).Add(event.arg).Add(event.handle).Value();
}

template <class Data> std::uint64_t ContentOfData(const Data &data) {
  constexpr size_t kSample = 16; // bytes from either end
  const size_t size = data.payload.size();
  const size_t sample = std::min(size, kSample);
  return Content().Add(size).Add(data.payload.data(), sample).Add(data.payload.data() + size - sample, sample).Value();
}

std::uint64_t ContentOf(const TPesEvent &event) { return ContentOfData(*event.data); }
std::uint64_t ContentOf(const TCaptionEvent &event) { return ContentOfData(*event.data); }

// --- The service's side ----------------------------------------------------------------------------------------------

// Reads from the log whether the library dropped a notification; there is no result that says so.
class DropListener : public LogListener {
public:
  void Heard(const char *format, const char *) override {
    dropped_ = dropped_ || strncmp(format, "No ", 3) == 0 || strncmp(format, "no ", 3) == 0;
  }
  bool WasDropped() const { return dropped_; }

private:
  bool dropped_ = false;
};

void CheckEcoreIsUp(const char *function, const void *caller) {
  if (!IsEcoreUp()) {
    Report({function, "", "", "",
            "the service sent a notification while Ecore is not initialised: call ecore_init() before the first "
            "subscription, and "
            "end the service's threads before ecore_shutdown()"},
           caller);
  }
}

// `tell` passes the call on to the library.
template <class Event, class Tell>
void Send(TvKind kind, const char *function, const Event &event, const void *caller, const Tell &tell) {
  if (IsReplaying() && !IsOfReplay(TextOf(event))) {
    return;
  }
  const std::uint64_t content = ContentOf(event);
  CheckEcoreIsUp(function, caller);
  SentOf(kind).Push(content);
  DropListener listener;
  tell();
  if (listener.WasDropped()) {
    SentOf(kind).TakeBack(content);
    Words words;
    Describe(event, words);
    Notification(NameOf(kind), words).ToldNobody("dropped: no module has subscribed");
    BeginNotification();
  }
}

// --- The main loop's side --------------------------------------------------------------------------------------------

template <class Event, class Callback> Eina_Bool Receive(TvKind kind, void *data, int type, void *event) {
  const auto &received = *static_cast<const Event *>(event);
  BeginNotification();
  const Nanoseconds posted = SentOf(kind).Pop(ContentOf(received));
  Words words;
  Describe(received, words);
  NoteArrival(posted);
  if (IsRecording()) {
    RecordDelivery(TextOf(received), posted == kNotKnown ? Now() : posted);
  }
  Notification notification(NameOf(kind), words, posted == kNotKnown ? kNotKnown : Now() - posted);
  const Eina_Bool result = g_handler(data, type, event);
  if (notification.Count() == 0) {
    notification.ToldNobody(TvThunks<Callback>::IsExhausted() ? "delivered to callbacks that are not traced"
                                                              : "no module has subscribed");
  }
  return result;
}

// --- What the service answers ----------------------------------------------------------------------------------------

thread_local int g_signal_answer = 1;

// Stands in for the service's object, because the library ignores its answers.
class AnswerWatch final : public ISignalSubscriber {
public:
  explicit AnswerWatch(ISignalSubscriber *service) : service_(service) {}

  int Subscribe(ESignalType type, void *userData, EProfile profile, unsigned short screenId) override {
    return g_signal_answer = service_->Subscribe(type, userData, profile, screenId);
  }
  int Unsubscribe(ESignalType type, EProfile profile, unsigned short screenId) override {
    return g_signal_answer = service_->Unsubscribe(type, profile, screenId);
  }

private:
  ISignalSubscriber *service_;
};

// Returns the same watch for the same object, so that comparing pointers gives the same result as without the tracer.
ISignalSubscriber *WatchOf(ISignalSubscriber *service) {
  static auto &watches = *new std::map<ISignalSubscriber *, std::unique_ptr<AnswerWatch>>; // never destroyed: as above
  const Lock lock;
  auto &watch = watches[service];
  if (!watch) {
    watch = std::make_unique<AnswerWatch>(service);
  }
  return watch.get();
}

} // namespace

namespace lumio::trace {

Subscriber::PesCallback ThunkOf(const std::string &module, Subscriber::PesCallback callback) {
  return Find(module, callback);
}
Subscriber::CaptionCallback ThunkOf(const std::string &module, Subscriber::CaptionCallback callback) {
  return Find(module, callback);
}
Subscriber::DsmCallback ThunkOf(const std::string &module, Subscriber::DsmCallback callback) {
  return Find(module, callback);
}

SwappedCallbacks::SwappedCallbacks(CTVServiceSubscriber &object)
    : object_(object), signal_(object.m_signalCallback), tt_signal_(object.m_ttSignalCallback),
      program_(object.m_programCallback), section_(object.m_sectionCallback), dsm_(object.m_dsmCallback) {
  object.m_signalCallback = Find(object.m_name, signal_);
  object.m_ttSignalCallback = Find(object.m_name, tt_signal_);
  object.m_programCallback = Find(object.m_name, program_);
  object.m_sectionCallback = Find(object.m_name, section_);
  object.m_dsmCallback = Find(object.m_name, dsm_);
}

SwappedCallbacks::~SwappedCallbacks() {
  object_.m_signalCallback = signal_;
  object_.m_ttSignalCallback = tt_signal_;
  object_.m_programCallback = program_;
  object_.m_sectionCallback = section_;
  object_.m_dsmCallback = dsm_;
}

int TakeSignalAnswer() { return std::exchange(g_signal_answer, 1); }

void VisitTvCallbacks(const CallbackVisitor &visit) {
  const auto visit_thunk = [&](const ThunkTarget &target, auto function) {
    visit("callback", target.module, target.symbol, reinterpret_cast<const void *>(function));
  };
  TvThunks<Subscriber::SignalCallback>::ForEach(visit_thunk);
  TvThunks<Subscriber::TTSignalCallback>::ForEach(visit_thunk);
  TvThunks<Subscriber::ProgramCallback>::ForEach(visit_thunk);
  TvThunks<Subscriber::SectionCallback>::ForEach(visit_thunk);
  TvThunks<Subscriber::PesCallback>::ForEach(visit_thunk);
  TvThunks<Subscriber::CaptionCallback>::ForEach(visit_thunk);
  TvThunks<Subscriber::DsmCallback>::ForEach(visit_thunk);
}

void PrintTvState(Text &text) {
  PrintSubscriptions(text);
  for (const TvKind kind : {TvKind::kSignal, TvKind::kProgram, TvKind::kPes, TvKind::kCaption}) {
    const SentQueue &queue = SentOf(kind);
    if (queue.LongestWait() == 0 && queue.Length() == 0) {
      continue;
    }
    if (TheOptions().json) {
      text.Append("{\"event\":\"state\",\"queue\":\"%s\",\"length\":%llu,\"longest_wait_ms\":", NameOf(kind),
                  queue.Length());
      text.AppendMilliseconds(queue.LongestWait());
      text.Append("}\n");
    } else {
      text.Append("%s%-9s %llu on their way to the main loop, longest wait ", kMore, NameOf(kind), queue.Length());
      text.AppendDuration(queue.LongestWait());
      text.Append("\n");
    }
    Put(text);
  }
}

} // namespace lumio::trace

int CTVServiceSubscriber::t_SignalCallback(ESignalType type, EProfile profile, unsigned short screenId,
                                           TSSignalData data, void *userData) {
  int result = 0;
  Send(TvKind::kSignal, "CTVServiceSubscriber::t_SignalCallback", TSignalEvent{type, data, profile, screenId, userData},
       __builtin_return_address(0), [&] { result = g_told_signal(type, profile, screenId, data, userData); });
  return result;
}

void CTVServiceSubscriber::t_ProgramCallback(EProgramChangeType changeType, TCProgramData *data, int arg, int handle) {
  Send(TvKind::kProgram, "CTVServiceSubscriber::t_ProgramCallback", TProgramEvent{changeType, arg, data, handle},
       __builtin_return_address(0), [&] { g_told_program(changeType, data, arg, handle); });
}

void CTVServiceSubscriber::t_PesDataCallback(TSPESData &data, void *userData) {
  Send(TvKind::kPes, "CTVServiceSubscriber::t_PesDataCallback", TPesEvent{&data}, __builtin_return_address(0),
       [&] { g_told_pes(data, userData); });
}

void CTVServiceSubscriber::t_CaptionCallback(TSCaption &data, void *userData) {
  Send(TvKind::kCaption, "CTVServiceSubscriber::t_CaptionCallback", TCaptionEvent{&data}, __builtin_return_address(0),
       [&] { g_told_caption(data, userData); });
}

void CTVServiceSubscriber::t_SectionCallback(bool flag, unsigned short number, unsigned char *data, int key) {
  const int stream = key & 0xffff;
  if (!Admit(SectionEvent{NameOfSection(key), flag, data, number})) {
    return;
  }
  Words words;
  words.Set(TheOptions().json ? "\"stream\":%d,\"flag\":%s,\"number\":%d" : "stream %d, %s, %d", stream,
            flag ? "true" : "false", number);
  Notification notification(NameOf(TvKind::kSection), words);
  g_told_section(flag, number, data, key);
  if (notification.Count() == 0) {
    notification.ToldNobody("no module has subscribed");
  }
  EndServiceCall();
}

void CTVServiceSubscriber::t_DsmCallback(TSDsmMessage &message) {
  if (!Admit(message)) {
    return;
  }
  Words words;
  words.Set(TheOptions().json ? "\"session\":%d" : "session %d", message.sessionHandle);
  Notification notification(NameOf(TvKind::kDsm), words);
  g_told_dsm(message);
  if (notification.Count() == 0) {
    notification.ToldNobody("no module has attached");
  }
  EndServiceCall();
}

Eina_Bool CTVServiceSubscriber::m_DeferredEventHandler(void *data, int type, void *event) {
  const int *const types = type != 0 && event ? g_event_type.Get() : nullptr;
  if (types && type == types[0]) {
    return Receive<TSignalEvent, SignalCallback>(TvKind::kSignal, data, type, event);
  }
  if (types && type == types[3]) {
    return Receive<TPesEvent, PesCallback>(TvKind::kPes, data, type, event);
  }
  if (types && type == types[4]) {
    return Receive<TCaptionEvent, CaptionCallback>(TvKind::kCaption, data, type, event);
  }
  if (types && type == types[5]) {
    return Receive<TProgramEvent, ProgramCallback>(TvKind::kProgram, data, type, event);
  }
  return g_handler(data, type, event);
}

namespace TVServiceAPI {

__attribute__((visibility("default"))) int CreateSignalSubscriber(int (*callback)(ESignalType, EProfile, unsigned short,
                                                                                  TSSignalData, void *),
                                                                  ISignalSubscriber **subscriber) {
  static Next<int(int (*)(ESignalType, EProfile, unsigned short, TSSignalData, void *), ISignalSubscriber **)> next(
      "_ZN12TVServiceAPI22CreateSignalSubscriberEPFi11ESignalType8EProfilet12TSSignalDataPvEPP17ISignalSubscriber");
  const int result = next(callback, subscriber);
  if (result == 0 && subscriber && *subscriber) {
    *subscriber = WatchOf(*subscriber);
  }
  return result;
}

} // namespace TVServiceAPI
