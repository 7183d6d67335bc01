#include "player.h"

#ifndef LUMIO_TRACE_HOST_TYPES // a television's services cannot be made to send notifications

namespace lumio::trace {

void NoteReplayed(bool) {}
void NoteReplayIdle() {}
int NoteRequest(const char *) { return 0; }
Nanoseconds HoldBack(int, int, Nanoseconds) { return 0; }

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
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "next.h"
#include "recording.h"
#include "session.h"
#include "subscriptions.h"

namespace lumio::trace {

namespace {

constexpr Nanoseconds kPatience = 10 * kSecond; // for the program to reach an event
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

// Read at the first request that needs it; null if nothing is replayed or the file cannot be read.
const Recording *TheRecording() {
  static const Recording *recording = []() -> const Recording * {
    try {
      return TheOptions().replay.empty() ? nullptr : new Recording(ReadRecording(TheOptions().replay));
    } catch (const std::exception &error) {
      fprintf(stderr, "lumio-replay: %s\n", error.what());
      return nullptr;
    }
  }();
  return recording;
}

std::atomic<unsigned> g_begun{0};            // events that the program has reached
std::atomic<unsigned> g_keys_sent{0};        // keys that the X server has sent
std::atomic<Nanoseconds> g_longest_delay{0}; // of a key, after its time
std::atomic<unsigned> g_idle_count{0};       // of the main loop
std::atomic<unsigned> g_idle_wanted{0}; // the count at which the main loop is done with the events that it has reached

void Sleep() { std::this_thread::sleep_for(std::chrono::microseconds(200)); }

bool WaitFor(const std::function<bool()> &condition) {
  const Nanoseconds deadline = Now() + kPatience;
  while (!condition()) {
    if (Now() > deadline) {
      return false;
    }
    Sleep();
  }
  return true;
}

void SleepUntil(Nanoseconds time) {
  const Nanoseconds left = time - Now();
  if (left > 0) {
    std::this_thread::sleep_for(std::chrono::nanoseconds(left));
  }
}

std::vector<unsigned char> Bytes(const std::string &text) { return {text.begin(), text.end()}; }

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

void BlockMainLoop(void *duration) {
  const std::unique_ptr<std::chrono::microseconds> owned(static_cast<std::chrono::microseconds *>(duration));
  std::this_thread::sleep_for(*owned);
}

int PlaySilence(const RecordedEvent &event) {
  g_call_on_main_loop(BlockMainLoop, std::make_unique<std::chrono::microseconds>(event.Number(0)).release());
  return 0;
}

int PlayKey(const RecordedEvent &event) {
  const int key = static_cast<int>(g_keys_sent) + 1;
  const bool aging = TheRecording()->aging.count(key) != 0;
  const bool was_aging = TheRecording()->aging.count(key - 1) != 0;
  if (aging != was_aging) {
    g_vconf_set_int(kAgingKey, aging ? 1 : 0);
  }
  Ask(event.kind + "\t" + event.Word(1) + "\t" + event.Word(0));
  ++g_keys_sent;
  return 1;
}

int PlayPlug(const RecordedEvent &event) {
  Ask(event.kind + "\t" + event.Word(0));
  return 0;
}

int PlayNothing(const RecordedEvent &) { return 0; }

// The program does this by itself, after a delay or on a thread of its own. The next event waits for it.
int PlayOwn(const RecordedEvent &) { return 1; }

// Returns how many events the program will reach.
int Play(const RecordedEvent &event) {
  using Kinds = std::map<std::string, int (*)(const RecordedEvent &)>;
  // never destroyed: a thread may play until the process ends
  static const Kinds &kinds = *new Kinds{{"press", PlayKey},
                                         {"release", PlayKey},
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
                                         {"silence", PlaySilence},
                                         {"end", PlayNothing},
                                         {"banner", PlayOwn},
                                         {"state", PlayOwn}};
  const auto found = kinds.find(event.kind);
  if (found == kinds.end()) {
    throw std::runtime_error("the recording has an event of the unknown kind '" + event.kind + "'");
  }
  return found->second(event);
}

// --- The player ------------------------------------------------------------------------------------------------------

bool IsDone(unsigned sent, bool with_idle) {
  return g_begun >= sent && (!with_idle || static_cast<int>(g_idle_count - g_idle_wanted) >= 0);
}

// Queued keys are sent while the key before them is handled, not earlier.
bool IsDue(const RecordedEvent &event, unsigned sent, unsigned sent_before_queue) {
  return event.is_queued ? IsDone(sent_before_queue, false) : IsDone(sent, true);
}

void PlayAll(Nanoseconds begin) {
  unsigned sent = 0;
  unsigned sent_before_queue = 0;
  for (const RecordedEvent &event : TheRecording()->events) {
    if (!WaitFor([&] { return IsDue(event, sent, sent_before_queue); })) {
      throw std::runtime_error("the program does not reach an event that it reached in the recording, before " +
                               event.kind + " " + (event.words.empty() ? "" : event.words[0]));
    }
    const Nanoseconds due = begin + static_cast<Nanoseconds>(static_cast<double>(event.time) / TheOptions().speed);
    SleepUntil(due);
    const int played = Play(event);
    if (played == 0 && event.IsNotification()) {
      throw std::runtime_error("no module has subscribed to an event of the recording: " + event.kind);
    }
    if (event.IsKey()) {
      g_longest_delay = std::max(g_longest_delay.load(), Now() - due);
    }
    sent += static_cast<unsigned>(played);
    sent_before_queue = event.is_queued ? sent_before_queue : sent;
  }
}

void Run() {
  std::string end = "end";
  try {
    PlayAll(Now());
  } catch (const std::exception &error) {
    end = std::string("failed\t") + error.what();
  }
  try {
    Ask(end);
  } catch (const std::exception &) {
    // lumio-replay already knows.
  }
}

// Returns how many keys came while this one was handled.
unsigned QueuedBehind(int key) {
  unsigned queued = 0;
  int number = 0;
  for (const RecordedEvent &event : TheRecording()->events) {
    number += event.IsKey() ? 1 : 0;
    if (event.IsKey() && number > key) {
      if (!event.is_queued) {
        break;
      }
      ++queued;
    }
  }
  return queued;
}

// Returns the handler during which they came: the one that took longest.
bool IsSlowest(int key, int handler) {
  int slowest = 0;
  Nanoseconds longest = 0;
  for (const auto &[place, duration] : TheRecording()->holds) {
    if (place.first == key && duration > longest) {
      slowest = place.second;
      longest = duration;
    }
  }
  return handler == slowest;
}

// Leaves signals to the program's own threads.
void StartPlayer() {
  sigset_t all;
  sigset_t before;
  sigfillset(&all);
  pthread_sigmask(SIG_SETMASK, &all, &before);
  std::thread(Run).detach();
  pthread_sigmask(SIG_SETMASK, &before, nullptr);
}

} // namespace

void NoteReplayed(bool on_main_loop) {
  if (g_idle_count == 0) {
    return; // before the times begin
  }
  if (on_main_loop) {
    g_idle_wanted = g_idle_count + 1;
  }
  ++g_begun;
}

void NoteReplayIdle() {
  if (g_idle_count == 0 && TheRecording()) {
    StartPlayer();
  }
  ++g_idle_count;
}

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
  const Recording *recording = TheRecording();
  if (recording && recording->refusals.count({call, number}) != 0) {
    g_refuse_next(operations.at(call), 0);
  }
  return number;
}

Nanoseconds HoldBack(int key, int handler, Nanoseconds took) {
  if (!TheRecording()) {
    return 0;
  }
  const Nanoseconds begin = Now();
  const auto hold = TheRecording()->holds.find({key, handler});
  if (hold != TheRecording()->holds.end()) {
    SleepUntil(begin - took + static_cast<Nanoseconds>(static_cast<double>(hold->second) / TheOptions().speed));
  }
  const unsigned queued = QueuedBehind(key);
  if (queued > 0 && IsSlowest(key, handler)) {
    WaitFor([&] { return g_keys_sent >= static_cast<unsigned>(key) + queued; });
    // On a busy machine the keys came late. They must not wait for less time than in the recording.
    SleepUntil(Now() + (hold == TheRecording()->holds.end() ? 0 : g_longest_delay.load()));
  }
  return Now() - begin;
}

} // namespace lumio::trace

#endif
