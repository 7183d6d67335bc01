#include "player.h"

#ifndef LUMIO_TRACE_HOST_TYPES // a television's services cannot be made to send notifications

namespace lumio::trace {

bool IsReplaying() { return false; }
bool IsInRecordedOrder() { return false; }
bool IsOfReplay(const std::string &) { return true; }
int RecordedBanners() { return 0; }
void StartReplay() {}
void EndReplay() {}
bool NoteReplayIdle() { return true; }
void BeginKey(Ecore_Event_Key *) {}
void BeginNotification() {}
void BeginOwn() {}
void BeginPlug() {}
void EndServiceCall() {}
int NoteRequest(const char *) { return 0; }
Nanoseconds SilenceBefore(Nanoseconds silence) { return silence; }
int WaitOfKey(int stall) { return stall; }
Hold BeginHold(int callback) { return {callback, Now(), kNoLimit}; }
void EndHold(const Hold &) {}
Nanoseconds OwnTime(const Hold &, Nanoseconds own) { return own; }

} // namespace lumio::trace

#else

#include <TVServiceTypes.h>
#include <lumio-host/tv-control.h>
#include <pvr-service.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <set>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "efl.h"
#include "next.h"
#include "own_work.h"
#include "record.h"
#include "recording.h"
#include "rooms.h"
#include "session.h"
#include "subscriptions.h"

namespace lumio::trace {

namespace {

constexpr Nanoseconds kPatience = 60 * kSecond; // for the program to reach an event
constexpr char kAgingKey[] = "db/FactoryApp/Aging";

Next<int(ESignalType, EProfile, unsigned short, TSSignalData)>
    g_emit_signal("_ZN5lumio2tv10EmitSignalE11ESignalType8EProfilet12TSSignalData");
Next<int(int, EProgramChangeType, const TCProgramData &, int)>
    g_emit_program("_ZN5lumio2tv11EmitProgramEi18EProgramChangeTypeRK13TCProgramDatai");
Next<int(int, const std::vector<unsigned char> &, bool)>
    g_emit_section("_ZN5lumio2tv13EmitSectionToEiRKSt6vectorIhSaIhEEb");
Next<int(const TSPESData &)> g_emit_pes("_ZN5lumio2tv7EmitPesERK9TSPESData");
Next<int(const TSCaption &)> g_emit_caption("_ZN5lumio2tv11EmitCaptionERK9TSCaption");
Next<int(const TSDsmMessage &)> g_emit_dsm("_ZN5lumio2tv7EmitDsmERK12TSDsmMessage");
Next<void(const ps_result_thirdpart &)> g_emit_pvr_result("_ZN5lumio3pvr10EmitResultERK19ps_result_thirdpart");
Next<void(pvr_state_e)> g_emit_pvr_state("_ZN5lumio3pvr9EmitStateE11pvr_state_e");
Next<void(tv::Operation, int)> g_refuse_next("_ZN5lumio2tv10RefuseNextENS0_9OperationEi");
Next<int(const char *, int)> g_vconf_set_int("vconf_set_int");
Next<void(void (*)(void *), void *)> g_call_on_main_loop("ecore_main_loop_thread_safe_call_async");

// A recording, and how far the player and the program have come in it.
struct Replay {
  Recording recording;
  std::vector<const RecordedEvent *> events[kEventClasses];
  std::atomic<unsigned> sent[kEventClasses] = {};
  std::atomic<unsigned> begun[kEventClasses] = {};
  unsigned sent_alone[kEventClasses] = {}; // the last one that was not queued, and all before it; of the player
  std::atomic<size_t> next{0};             // event to send
  std::atomic<Nanoseconds> zero{0};        // of the recorded times, on the program's clock
  const RecordedEvent *key = nullptr;      // that began last; null for none of the recording; of the main-loop thread
  Nanoseconds silence = 0;                 // that kept the main loop before the next event; of the main-loop thread
  std::atomic<unsigned> idle_count{0};     // of the main loop
  std::atomic<unsigned> idle_wanted{0}; // the count at which the main loop is done with the events that it has reached
  std::atomic<bool> is_over{false};     // the program has left its main loop
  std::atomic<bool> is_told{false};     // lumio-replay knows how it ended
  std::mutex expected_mutex;
  std::multiset<std::string> expected;     // notifications that the services have not sent yet
  bool is_exact = TheOptions().speed == 1; // whether the program's clock follows the recording

  explicit Replay(const std::string &file) : recording(ReadRecording(file)) {
    for (const RecordedEvent &event : recording.events) {
      events[static_cast<int>(event.event_class)].push_back(&event);
    }
  }

  Nanoseconds At(Nanoseconds recorded) const {
    return zero + static_cast<Nanoseconds>(static_cast<double>(recorded) / TheOptions().speed);
  }
};

// Read at the first request that needs it; null if nothing is replayed or the file cannot be read.
Replay *TheReplay() {
  // never destroyed: a thread may play until the process ends
  static Replay *const replay = []() -> Replay * {
    try {
      return TheOptions().replay.empty() ? nullptr : new Replay(TheOptions().replay);
    } catch (const std::exception &error) {
      fprintf(stderr, "lumio-replay: %s\n", error.what());
      return nullptr;
    }
  }();
  return replay;
}

constexpr Nanoseconds RoundUp(Nanoseconds time, Nanoseconds unit) { return (time + unit - 1) / unit * unit; }

// Returns a time soon after `now` from which the recorded times count, so that the recorded time stamps of keys are
// whole milliseconds: a key then comes as long after every other event as in the recording. The recording has whole
// microseconds; a time stamp that is a little too early is rounded up.
Nanoseconds WithPhase(Nanoseconds now, const Replay &replay) {
  constexpr Nanoseconds kLittle = kMillisecond / 1000;
  for (const RecordedEvent *key : replay.events[static_cast<int>(EventClass::kKey)]) {
    if (IsLateness(key->Late())) {
      return RoundUp(now + key->time, kMillisecond) - key->time - kLittle;
    }
  }
  return now;
}

bool WaitFor(Nanoseconds patience, const std::function<bool()> &condition) {
  const Nanoseconds deadline = ComputerClock() + patience;
  while (!condition()) {
    if (ComputerClock() > deadline) {
      return false;
    }
    std::this_thread::sleep_for(std::chrono::microseconds(200));
  }
  return true;
}

// Returns when the program's clock has come to `time`; false if it does not come.
bool AwaitTime(Nanoseconds time) {
  if (TheOptions().skip_waits && TheOptions().speed == 1) {
    MoveClockTo(time);
  }
  return WaitForClock(time);
}

std::vector<unsigned char> Bytes(const std::string &text) { return {text.begin(), text.end()}; }

[[noreturn]] void Miss(const RecordedEvent &event) {
  throw std::runtime_error("the program does not reach an event that it reached in the recording, before " +
                           event.kind + " " + (event.words.empty() ? "" : event.words[0]));
}

// --- Events ----------------------------------------------------------------------------------------------------------

// Asks lumio-replay to do something at the display, and waits until it is done.
void Ask(const std::string &what) {
  char answer;
  const std::string line = what + "\n";
  if (write(TheOptions().replay_keys, line.data(), line.size()) != static_cast<ssize_t>(line.size()) ||
      read(TheOptions().replay_keys, &answer, 1) != 1) {
    throw std::runtime_error("lumio-replay has ended");
  }
}

int Handle(TvKind kind, const RecordedEvent &event) {
  return HandleOf(kind, {event.Word(0), static_cast<int>(event.Number(1))});
}

int PlaySignal(const RecordedEvent &event) {
  return g_emit_signal(static_cast<ESignalType>(event.Number(0)), static_cast<EProfile>(event.Number(1)),
                       static_cast<unsigned short>(event.Number(2)),
                       {static_cast<int>(event.Number(3)), static_cast<int>(event.Number(4))});
}

int PlayProgram(const RecordedEvent &event) {
  TCProgramData data;
  data.serviceId = strtoull(event.Word(4).c_str(), nullptr, 10);
  data.eventId = static_cast<unsigned short>(event.Number(5));
  data.startTime = event.Number(6);
  data.duration = static_cast<unsigned>(event.Number(7));
  data.title = event.Word(8);
  data.description = event.Word(9);
  return g_emit_program(Handle(TvKind::kProgram, event), static_cast<EProgramChangeType>(event.Number(2)), data,
                        static_cast<int>(event.Number(3)));
}

int PlaySection(const RecordedEvent &event) {
  return g_emit_section(Handle(TvKind::kSection, event), Bytes(event.Word(3)), event.Number(2) != 0);
}

int PlayPes(const RecordedEvent &event) {
  TSPESData data;
  data.pid = static_cast<unsigned short>(event.Number(0));
  data.streamId = static_cast<unsigned char>(event.Number(1));
  data.pts = strtoull(event.Word(2).c_str(), nullptr, 10);
  data.payload = Bytes(event.Word(3));
  return std::min(g_emit_pes(data), 1);
}

int PlayCaption(const RecordedEvent &event) {
  TSCaption data;
  data.language = static_cast<int>(event.Number(0));
  data.pts = strtoull(event.Word(1).c_str(), nullptr, 10);
  data.payload = Bytes(event.Word(2));
  return std::min(g_emit_caption(data), 1);
}

int PlayDsm(const RecordedEvent &event) {
  const std::string &bytes = event.Word(6);
  TSDsmMessage message = {};
  message.sessionHandle = Handle(TvKind::kDsm, event);
  message.type = static_cast<int>(event.Number(2));
  message.status = static_cast<int>(event.Number(3));
  message.version = static_cast<int>(event.Number(4));
  message.moduleId = static_cast<int>(event.Number(5));
  message.data = bytes.data();
  message.size = static_cast<std::uint32_t>(bytes.size());
  return g_emit_dsm(message);
}

int PlayPvrResult(const RecordedEvent &event) {
  int words[7];
  for (size_t i = 0; i < 7; ++i) {
    words[i] = static_cast<int>(event.Number(i));
  }
  g_emit_pvr_result({words[0], words[1], words[2], words[3], words[4], words[5], words[6]});
  return 1;
}

int PlayPvrState(const RecordedEvent &event) {
  g_emit_pvr_state(static_cast<pvr_state_e>(event.Number(0)));
  return 1;
}

// Waits until the events that come while the main loop is busy are there, now that it is busy no longer.
void AwaitQueuedEvents(const Replay &replay) {
  const std::vector<RecordedEvent> &events = replay.recording.events;
  const Nanoseconds now = Now();
  WaitFor(kPatience, [&] {
    const size_t next = replay.next;
    return next >= events.size() || !events[next].is_queued || replay.At(events[next].time) > now;
  });
}

void BlockMainLoop(void *data) {
  const auto *event = static_cast<const RecordedEvent *>(data);
  Replay &replay = *TheReplay();
  const Nanoseconds end = Now() + replay.At(event->Number(0) * 1000) - replay.At(0);
  replay.idle_wanted = replay.idle_count + 1;
  ++replay.begun[static_cast<int>(EventClass::kSilence)];
  const Nanoseconds limit = LimitCallback(replay.is_exact ? end : kNoLimit);
  AwaitTime(end);
  AwaitQueuedEvents(replay);
  LimitCallback(limit);
  replay.silence = event->Number(0) * 1000;
}

int PlaySilence(const RecordedEvent &event) {
  g_call_on_main_loop(BlockMainLoop, const_cast<RecordedEvent *>(&event));
  return 1;
}

const RecordedEvent *Begin(EventClass event_class);

void RunRecordedTimer(void *data) {
  const auto *event = static_cast<const RecordedEvent *>(data);
  Begin(EventClass::kTimer);
  MoveClockTo(TheReplay()->At(event->time));
  RunTimer(event->Word(0), static_cast<int>(event->Number(1)));
}

void RunRecordedCall(void *data) {
  const auto *event = static_cast<const RecordedEvent *>(data);
  Begin(EventClass::kCall);
  MoveClockTo(TheReplay()->At(event->time));
  RunCall(event->Word(0));
}

// At another speed, timers end by the clock.
int PlayTimer(const RecordedEvent &event) {
  if (!TheReplay()->is_exact) {
    return 0;
  }
  g_call_on_main_loop(RunRecordedTimer, const_cast<RecordedEvent *>(&event));
  return 1;
}

// Waits for the thread of the program. If it waits for the time to pass, the clock goes on.
int PlayCall(const RecordedEvent &event) {
  constexpr Nanoseconds kClocksPatience = kSecond;
  if (!TheReplay()->is_exact) {
    return 0;
  }
  const auto is_waiting = [&] { return IsCallWaiting(event.Word(0)) || TheReplay()->is_over; };
  if (!WaitFor(kClocksPatience, is_waiting)) {
    LimitClock(kNoLimit);
    if (!WaitFor(kPatience, is_waiting)) {
      Miss(event);
    }
  }
  g_call_on_main_loop(RunRecordedCall, const_cast<RecordedEvent *>(&event));
  return 1;
}

int PlayKey(const RecordedEvent &event) {
  const Replay &replay = *TheReplay();
  const int key = static_cast<int>(replay.sent[static_cast<int>(EventClass::kKey)]) + 1;
  const bool aging = replay.recording.aging.count(key) != 0;
  const bool was_aging = replay.recording.aging.count(key - 1) != 0;
  if (aging != was_aging) {
    g_vconf_set_int(kAgingKey, aging ? 1 : 0);
  }
  Ask(event.kind + "\t" + event.Word(1) + "\t" + event.Word(0));
  return 1;
}

int PlayPlug(const RecordedEvent &event) {
  Ask(event.kind + "\t" + event.Word(0));
  return 1;
}

// Returns how many events the program will reach.
int Play(const RecordedEvent &event) {
  using Kinds = std::map<std::string, int (*)(const RecordedEvent &)>;
  // never destroyed: a thread may play until the process ends
  static const Kinds &kinds = *new Kinds{{"press", PlayKey},
                                         {"release", PlayKey},
                                         {"timer", PlayTimer},
                                         {"call", PlayCall},
                                         {"plug", PlayPlug},
                                         {"unplug", PlayPlug},
                                         {"signal", PlaySignal},
                                         {"program", PlayProgram},
                                         {"section", PlaySection},
                                         {"pes", PlayPes},
                                         {"caption", PlayCaption},
                                         {"dsm", PlayDsm},
                                         {"pvr-result", PlayPvrResult},
                                         {"pvr-state", PlayPvrState},
                                         {"silence", PlaySilence}};
  const auto found = kinds.find(event.kind);
  return found == kinds.end() ? 0 : found->second(event);
}

// --- The player ------------------------------------------------------------------------------------------------------

bool IsReached(const Replay &replay, EventClass event_class) {
  const int i = static_cast<int>(event_class);
  return replay.begun[i] >= replay.sent[i];
}

// Returns whether the program has handled everything that was sent.
bool IsDone(const Replay &replay) {
  for (int i = 0; i < kEventClasses; ++i) {
    if (!IsReached(replay, static_cast<EventClass>(i))) {
      return false;
    }
  }
  return static_cast<int>(replay.idle_count - replay.idle_wanted) >= 0;
}

// Waits until the program has handled what was sent before the event, or has left its main loop.
void AwaitHandled(const Replay &replay, const RecordedEvent &event) {
  if (!WaitFor(kPatience, [&] { return IsDone(replay) || replay.is_over; })) {
    Miss(event);
  }
}

// Lets the clock go on until the recorded time. If the event comes later than in the recording, all that follows does.
void AllowUntil(Replay &replay, const RecordedEvent &event, Nanoseconds until) {
  if (replay.is_exact) {
    replay.zero += RoundUp(std::max<Nanoseconds>(Now() - replay.At(event.Begin()), 0), kMillisecond);
    LimitClock(replay.At(until));
  }
}

// Waits until the program has done by itself what it did in the recording: most of that it does in its timers and
// calls, which have run. If it does not, the clock goes on. `next` is what was sent then.
void AwaitOwn(Replay &replay, const RecordedEvent &event, const RecordedEvent *next) {
  constexpr Nanoseconds kLittle = 5 * kMillisecond;
  constexpr Nanoseconds kTimersPatience = kSecond;
  const auto own = static_cast<int>(EventClass::kOwn);
  const bool is_at_end = !next || next->Is(EventClass::kEnd); // ending the program may be what makes it do that
  const Nanoseconds until = std::max(event.time + kLittle, next ? next->time : 0);
  if (!replay.is_exact) {
    return;
  }
  AllowUntil(replay, event, until);
  ++replay.sent[own];
  const auto is_reached = [&] { return IsReached(replay, EventClass::kOwn) || replay.is_over; };
  const auto is_late = [&] { return Now() >= replay.At(until); };
  WaitFor(kPatience, [&] { return is_reached() || is_late(); });
  if (WaitFor(kTimersPatience, is_reached)) {
    return;
  }
  if (is_at_end) {
    --replay.sent[own];
    return;
  }
  LimitClock(kNoLimit);
  if (!WaitFor(kPatience, is_reached)) {
    Miss(event);
  }
}

// A plug that changes nothing is not told to the program.
void AwaitPlug(Replay &replay) {
  constexpr Nanoseconds kPlugPatience = 2 * kSecond;
  const auto plug = static_cast<int>(EventClass::kPlug);
  if (!WaitFor(kPlugPatience, [&] { return IsReached(replay, EventClass::kPlug); })) {
    replay.sent[plug] = replay.begun[plug].load();
  }
}

void Send(Replay &replay, const RecordedEvent &event) {
  const auto event_class = static_cast<int>(event.event_class);
  if (!event.is_queued) {
    AllowUntil(replay, event, event.time);
  }
  if (!AwaitTime(replay.At(event.time))) {
    Miss(event);
  }
  if (!event.notification.empty()) {
    const std::lock_guard<std::mutex> lock(replay.expected_mutex);
    replay.expected.insert(event.notification);
  }
  const int played = Play(event);
  if (played == 0 && (event.Is(EventClass::kNotification) || event.Is(EventClass::kService))) {
    throw std::runtime_error("no module has subscribed to an event of the recording: " + event.kind);
  }
  replay.sent[event_class] += static_cast<unsigned>(played);
  if (!event.is_queued) {
    std::copy(std::begin(replay.sent), std::end(replay.sent), replay.sent_alone);
  }
  if (event.Is(EventClass::kPlug)) {
    AwaitPlug(replay);
  }
  if (event.Is(EventClass::kSilence)) { // what comes next comes during it
    WaitFor(kPatience, [&] { return IsReached(replay, EventClass::kSilence); });
  }
}

// Waits until the event can be sent. One that came while the main loop was busy is sent when the program has reached
// what kept it busy.
void Await(Replay &replay, const RecordedEvent &event) {
  if (!event.is_queued) {
    AwaitHandled(replay, event);
    return;
  }
  const auto is_busy = [&] {
    for (int i = 0; i < kEventClasses; ++i) {
      if (replay.begun[i] < replay.sent_alone[i]) {
        return false;
      }
    }
    return true;
  };
  if (!WaitFor(kPatience, [&] { return is_busy() || replay.is_over; })) {
    Miss(event);
  }
}

// Returns whether the program can have left its main loop before the event: in the turn in which the loop was asked to
// end, it may or may not have done what it does by itself.
bool IsOptionalAtTheEnd(const RecordedEvent &event) {
  return event.Is(EventClass::kEnd) || event.Is(EventClass::kOwn) || event.Is(EventClass::kTimer) ||
         event.Is(EventClass::kCall) || event.Is(EventClass::kService);
}

void PlayAll(Replay &replay) {
  const std::vector<RecordedEvent> &events = replay.recording.events;
  for (size_t i = 0; i < events.size(); ++i) {
    Await(replay, events[i]);
    if (replay.is_over) {
      const auto missed = std::find_if_not(events.begin() + static_cast<long>(i), events.end(), IsOptionalAtTheEnd);
      if (missed != events.end()) {
        Miss(*missed);
      }
      break;
    }
    if (events[i].Is(EventClass::kOwn)) {
      const auto next = std::find_if(events.begin() + static_cast<long>(i), events.end(),
                                     [](const RecordedEvent &event) { return !event.Is(EventClass::kOwn); });
      AwaitOwn(replay, events[i], next == events.end() ? nullptr : &*next);
    } else {
      Send(replay, events[i]);
    }
    replay.next = i + 1;
    if (events[i].Is(EventClass::kEnd)) {
      break; // what the program does then does not concern the player
    }
  }
}

void Run() {
  std::string end;
  try {
    PlayAll(*TheReplay());
    end = TheReplay()->is_over ? "" : "end"; // a program that has ended by itself needs no signal
  } catch (const std::exception &error) {
    end = std::string("failed\t") + error.what();
  }
  try {
    if (!end.empty()) {
      Ask(end);
    }
  } catch (const std::exception &) {
    // lumio-replay already knows.
  }
  TheReplay()->is_told = true;
  // A program that is told to end ends no timer before that. One that does not leave its main loop needs its clock.
  WaitFor(kSecond, [] { return false; });
  EndReplay();
}

// Counts an event that the program has reached. Returns what is recorded of it; null if nothing is replayed or it is
// none of the recording.
const RecordedEvent *Begin(EventClass event_class) {
  Replay *replay = TheReplay();
  if (!replay || replay->zero == 0) {
    return nullptr;
  }
  if (IsMainLoopThread()) {
    replay->idle_wanted = replay->idle_count + 1;
  }
  const auto i = static_cast<int>(event_class);
  const unsigned number = replay->begun[i]++;
  return number < replay->events[i].size() ? replay->events[i][number] : nullptr;
}

} // namespace

void EndReplay() {
  if (Replay *replay = TheReplay()) {
    replay->is_over = true;
    LimitClock(kNoLimit);
    WaitFor(kSecond, [&] { return replay->is_told.load(); });
  }
}

bool IsReplaying() { return TheReplay(); }

int RecordedBanners() {
  const Replay *replay = TheReplay();
  return replay ? replay->recording.banners : 0;
}

bool IsInRecordedOrder() {
  const Replay *replay = TheReplay();
  return replay && replay->is_exact && replay->zero != 0 && !replay->is_over;
}

bool IsOfReplay(const std::string &notification) {
  Replay &replay = *TheReplay();
  const std::lock_guard<std::mutex> lock(replay.expected_mutex);
  const auto found = replay.expected.find(notification);
  if (found == replay.expected.end()) {
    return false;
  }
  replay.expected.erase(found);
  return true;
}

// Leaves signals to the program's own threads.
void StartReplay() {
  Replay *replay = TheReplay();
  if (!replay) {
    return;
  }
  replay->zero = WithPhase(Now(), *replay);
  if (replay->is_exact) {
    LimitClock(replay->zero);
  }
  sigset_t all;
  sigset_t before;
  sigfillset(&all);
  pthread_sigmask(SIG_SETMASK, &all, &before);
  std::thread(Run).detach();
  pthread_sigmask(SIG_SETMASK, &before, nullptr);
}

// The keys of a burst are those that the main loop was not idle between.
bool NoteReplayIdle() {
  Replay *replay = TheReplay();
  if (!replay) {
    return true;
  }
  ++replay->idle_count;
  if (replay->is_over) {
    LetTimersRun();
  }
  const auto &keys = replay->events[static_cast<int>(EventClass::kKey)];
  const unsigned next = replay->begun[static_cast<int>(EventClass::kKey)];
  return !replay->is_exact || next >= keys.size() || !keys[next]->IsInBurst();
}

// The key's time stamp is a whole number of milliseconds, and the key comes exactly as late as in the recording: that
// decides whether it is stale.
void BeginKey(Ecore_Event_Key *key) {
  const RecordedEvent *event = Begin(EventClass::kKey);
  if (TheReplay()) {
    TheReplay()->key = event;
  }
  if (!event || !key || !TheReplay()->is_exact) {
    return;
  }
  const Nanoseconds late = event->Late();
  const Nanoseconds earliest = std::max(Now(), TheReplay()->At(event->Begin())) - late;
  const Nanoseconds stamp = earliest / kMillisecond + (earliest % kMillisecond > 0 ? 1 : 0);
  MoveClockTo(stamp * kMillisecond + late);
  LimitClock(0); // until a handler is asked
  key->timestamp = static_cast<unsigned>(stamp);
  if (!event->IsInBurst()) {
    TellLibraryIdle();
  }
}

void BeginNotification() {
  const RecordedEvent *event = Begin(EventClass::kNotification);
  if (event && TheReplay()->is_exact && IsMainLoopThread()) {
    MoveClockTo(TheReplay()->At(event->Begin()));
    LimitClock(0); // until a callback runs
  }
}

void BeginOwn() {
  const RecordedEvent *event = Begin(EventClass::kOwn);
  if (event && TheReplay()->is_exact) {
    MoveClockTo(TheReplay()->At(event->time));
  }
}

void BeginPlug() { Begin(EventClass::kPlug); }

void EndServiceCall() { Begin(EventClass::kService); }

int NoteRequest(const char *call) {
  using Operations = std::map<std::string, tv::Operation>;
  // never destroyed: modules subscribe as late as at exit
  static const Operations &operations = *new Operations{{"signal", tv::Operation::SubscribeSignal},
                                                        {"program", tv::Operation::SubscribeProgram},
                                                        {"program list pf", tv::Operation::SubscribeProgramListPF},
                                                        {"program list", tv::Operation::SubscribeProgramList},
                                                        {"section", tv::Operation::SubscribeSectionByCriteria},
                                                        {"section filter", tv::Operation::SubscribeSectionByFilter},
                                                        {"pes", tv::Operation::SubscribePES},
                                                        {"caption", tv::Operation::SubscribeCaption},
                                                        {"dsm", tv::Operation::AttachDsm}};
  static auto &numbers = *new std::map<std::string, int>; // never destroyed: modules subscribe as late as at exit
  int number = 0;
  {
    const Lock lock;
    number = ++numbers[call];
  }
  const Replay *replay = TheReplay();
  if (replay && replay->recording.refusals.count({call, number}) != 0) {
    g_refuse_next(operations.at(call), 0);
  }
  return number;
}

Nanoseconds SilenceBefore(Nanoseconds silence) {
  Replay *replay = TheReplay();
  return replay && replay->is_exact ? std::exchange(replay->silence, 0) : silence;
}

int WaitOfKey(int stall) {
  const Replay *replay = TheReplay();
  return replay && replay->is_exact && replay->key ? replay->key->Stall() : stall;
}

Hold BeginHold(int callback) {
  const Replay *replay = callback == 0 ? nullptr : TheReplay();
  Hold hold{callback, Now(), kNoLimit};
  if (replay && replay->is_exact) {
    const auto found = replay->recording.holds.find(callback);
    const bool is_recorded = found != replay->recording.holds.end();
    if (is_recorded) {
      MoveClockTo(replay->At(found->second.begin));
      hold.begin = Now();
    }
    hold.limit = LimitCallback(hold.begin + (is_recorded ? found->second.end - found->second.begin : 0));
  }
  return hold;
}

void EndHold(const Hold &hold) {
  const Replay *replay = hold.callback == 0 ? nullptr : TheReplay();
  if (!replay) {
    return;
  }
  const auto found = replay->recording.holds.find(hold.callback);
  if (found != replay->recording.holds.end()) {
    AwaitTime(hold.begin + replay->At(found->second.end) - replay->At(found->second.begin));
    AwaitQueuedEvents(*replay);
  }
  if (replay->is_exact) {
    LimitCallback(hold.limit);
  }
}

// A callback that is not recorded took less than a millisecond.
Nanoseconds OwnTime(const Hold &hold, Nanoseconds own) {
  const Replay *replay = hold.callback == 0 ? nullptr : TheReplay();
  if (!replay || !replay->is_exact) {
    return own;
  }
  const auto found = replay->recording.holds.find(hold.callback);
  return found == replay->recording.holds.end() ? 0 : found->second.own;
}

} // namespace lumio::trace

#endif
