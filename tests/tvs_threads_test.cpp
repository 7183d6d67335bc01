// Notifications of all kinds from four threads at once, with the real lock, while modules subscribe and unsubscribe.
#include <TVServiceSubscriber.h>
#include <lumio-host/testing.h>

#include <Ecore.h>
#include <dlog.h>
#include <gmock/gmock.h>

#include <array>
#include <atomic>
#include <mutex>
#include <thread>

#include "fake_tv_service.h"

// Discards the log, which would be hundreds of thousands of lines.
extern "C" int __dlog_print(int, int, const char *, const char *, ...) { return 0; }

using lumio::testing::TurnLoop;
using lumio::testing::TurnLoopUntil;
using lumio::testing::WaitForServices;

namespace {

using Module = CTVServiceSubscriber;

constexpr int kThreads = 4;
constexpr int kNotifications = 200000 / kThreads; // of each thread
constexpr int kLast = 600;                        // of each thread, after the modules have stopped
constexpr int kAtATime = 250;                     // before a thread waits for the main loop; bounds the memory
constexpr int kRounds = 300;

// The four kinds that go over the main loop share one way, because the bridge keeps their order.
enum Way { kMainLoop, kSection, kDsm, kWays };

// Carried by each notification.
struct Stamp {
  int thread;
  int number; // counted from 0 on each way
};

// The arrivals of one thread's notifications on one way. Only one thread uses it: the main loop's or, for sections and
// DSM messages, the one that notifies.
struct Arrivals {
  int next = 0;    // the next number to arrive
  int missing = 0; // numbers skipped so far
  int gap_end = 0; // the number after the last one skipped
  int wrong = 0;   // arrivals that came late or twice
};

struct ServiceThread {
  std::array<int, kWays> sent = {};
  std::array<int, kWays> sent_before_calm = {};
  std::array<Arrivals, kWays> arrivals;
  int sections = 0; // callbacks
  std::thread thread;
};

std::array<ServiceThread, kThreads> g_threads;
TCProgramData g_program_data[kThreads]; // identifies the thread of a programme notification
std::atomic<int> g_section_key{0}, g_session{0}, g_program_handle{0};
std::atomic<bool> g_calm{false}; // the modules have stopped subscribing and unsubscribing
std::atomic<int> g_finished{0};
void (*g_in_section_callback)(ServiceThread &) = [](ServiceThread &) {};

ServiceThread &ThreadOf(const Stamp &stamp) { return g_threads[static_cast<size_t>(stamp.thread)]; }

void Arrive(Way way, const Stamp &stamp) {
  Arrivals &arrivals = ThreadOf(stamp).arrivals[way];
  if (stamp.number < arrivals.next) {
    ++arrivals.wrong;
    return;
  }
  if (stamp.number > arrivals.next) {
    arrivals.missing += stamp.number - arrivals.next;
    arrivals.gap_end = stamp.number;
  }
  arrivals.next = stamp.number + 1;
}

// --- Callbacks of the module that counts ---

int OnSignal(ESignalType, TSSignalData data, void *) {
  Arrive(kMainLoop, {data.extra, data.value});
  return 0;
}

void OnProgram(EProgramChangeType, TCProgramData *data, int number, int) {
  Arrive(kMainLoop, {static_cast<int>(data - g_program_data), number});
}

template <class Data> void OnData(Data &data, void *) {
  Arrive(kMainLoop, {data.payload.front(), static_cast<int>(data.pts)});
}

void OnSection(bool, unsigned short, unsigned char *data, int) {
  const Stamp &stamp = *reinterpret_cast<const Stamp *>(data);
  Arrive(kSection, stamp);
  g_in_section_callback(ThreadOf(stamp));
}

void OnDsm(TSDsmMessage &message) { Arrive(kDsm, *static_cast<const Stamp *>(message.data)); }

void SubscribeTheCountingModule() {
  const char *name = "counting";
  int handle = 0;
  unsigned session = 0;
  Module module(name);
  module.SetSignalCallback(OnSignal);
  module.SubscribeSignal(SIGNAL_TYPE_LOCK, nullptr, PROFILE_MAIN, 0);
  module.SetProgramCallback(OnProgram);
  module.SubscribeProgram(TCProgramFilteringItem(), handle);
  g_program_handle = handle;
  module.SubscribePES(OnData<TSPESData>, nullptr);
  module.SubscribeCaption(OnData<TSCaption>, nullptr);
  module.SetSectionCallback(OnSection);
  module.SubscribeSectionByFilter(1, TCSectionFilterCriteriaHelper(), handle);
  g_section_key = fake_tv_service.section_key;
  module.AttachDsm(OnDsm, session, "", DSM_DATA_SERVICE_OBJECT_CAROUSEL, DSM_ATTACH_NORMAL, nullptr, false);
  g_session = static_cast<int>(session);
}

// --- A module that subscribes and unsubscribes ---

int IgnoreSignal(ESignalType, EProfile, unsigned short, TSSignalData, void *) { return 0; }
void IgnoreProgram(EProgramChangeType, TCProgramData *, int, int) {}
template <class Data> void IgnoreData(Data &, void *) {}
void IgnoreSection(bool, unsigned short, unsigned char *, int) {}
void IgnoreDsm(TSDsmMessage &) {}

void ComeAndGo() {
  int program = 0, section = 0;
  unsigned session = 0;
  Module module("visitor");
  module.SetSignalCallback(IgnoreSignal);
  module.SubscribeSignal(SIGNAL_TYPE_LOCK, nullptr, PROFILE_MAIN, 0);
  module.SubscribeSignal(SIGNAL_TYPE_STRENGTH, nullptr, PROFILE_MAIN, 0);
  module.SetProgramCallback(IgnoreProgram);
  module.SubscribeProgramListPF(0, 0, SUBSCRIBE_TYPE_CHANGES, program);
  module.SubscribePES(IgnoreData<TSPESData>, nullptr);
  module.SubscribeCaption(IgnoreData<TSCaption>, nullptr);
  module.SetSectionCallback(IgnoreSection);
  module.SubscribeSectionByFilter(2, TCSectionFilterCriteriaHelper(), section);
  module.AttachDsm(IgnoreDsm, session, "", DSM_DATA_SERVICE_OBJECT_CAROUSEL, DSM_ATTACH_NORMAL, nullptr, false);
  TurnLoop();
  module.DetachDsm(session);
  module.UnsubscribeSection(section);
  module.UnsubscribeCaption();
  module.UnsubscribePES();
  module.UnSubscribeProgramList(program);
  module.UnsubscribeSignal(SIGNAL_TYPE_STRENGTH, PROFILE_MAIN, 0);
  module.UnsubscribeSignal(SIGNAL_TYPE_LOCK, PROFILE_MAIN, 0);
}

// --- The service's threads ---

template <class Data> void NotifyData(void (*notify)(Data &, void *), const Stamp &stamp) {
  Data data;
  data.pts = static_cast<unsigned long long>(stamp.number);
  data.payload.assign(4, static_cast<unsigned char>(stamp.thread));
  notify(data, nullptr);
}

void Notify(int thread, int kind) {
  const Way way = kind == 4 ? kSection : kind == 5 ? kDsm : kMainLoop;
  Stamp stamp = {thread, g_threads[static_cast<size_t>(thread)].sent[way]++};
  switch (kind) {
  case 0:
    Module::t_SignalCallback(SIGNAL_TYPE_LOCK, PROFILE_MAIN, 0, {stamp.number, thread}, nullptr);
    break;
  case 1:
    Module::t_ProgramCallback(PROGRAM_CHANGE_LIST, &g_program_data[thread], stamp.number, g_program_handle);
    break;
  case 2:
    NotifyData(Module::t_PesDataCallback, stamp);
    break;
  case 3:
    NotifyData(Module::t_CaptionCallback, stamp);
    break;
  case 4:
    Module::t_SectionCallback(true, 0, reinterpret_cast<unsigned char *>(&stamp), g_section_key);
    break;
  default: {
    TSDsmMessage message = {};
    message.sessionHandle = g_session;
    message.data = &stamp;
    Module::t_DsmCallback(message);
  }
  }
}

void *WaitForTheMainLoop(void *) { return nullptr; }

void NotifyAll(int thread) {
  ServiceThread &self = g_threads[static_cast<size_t>(thread)];
  int last = 0;
  for (int i = 0; last < kLast; ++i) {
    Notify(thread, i % 6);
    if (i % kAtATime == 0) {
      ecore_main_loop_thread_safe_call_sync(WaitForTheMainLoop, nullptr);
    }
    if (last > 0 || (i >= kNotifications && g_calm)) {
      if (last++ == 0) {
        self.sent_before_calm = self.sent;
      }
    }
  }
  ++g_finished;
}

// Runs the service's threads, and the rounds on this one, until all notifications have been handled.
void RunAll(void (*round)(int), void (*calm_down)()) {
  for (int thread = 0; thread < kThreads; ++thread) {
    g_threads[static_cast<size_t>(thread)].thread = std::thread(NotifyAll, thread);
  }
  for (int i = 0; i < kRounds; ++i) {
    TurnLoop();
    round(i);
  }
  calm_down();
  TurnLoopUntil([] { return g_finished == kThreads; });
  for (ServiceThread &thread : g_threads) {
    thread.thread.join();
  }
  WaitForServices();
}

void CalmDown() { g_calm = true; }

// Expects that everything arrived in order, nothing twice, and nothing is missing since the modules stopped.
void ExpectOrder() {
  for (const ServiceThread &thread : g_threads) {
    for (size_t way = 0; way < kWays; ++way) {
      EXPECT_EQ(thread.arrivals[way].wrong, 0);
      EXPECT_EQ(thread.arrivals[way].next, thread.sent[way]) << "the last notification arrived";
      EXPECT_LE(thread.arrivals[way].gap_end, thread.sent_before_calm[way]);
    }
  }
}

TEST(TvsThreads, EverythingArrivesOnceAndInOrderWhileOtherModulesComeAndGo) {
  SubscribeTheCountingModule();
  RunAll([](int) { ComeAndGo(); }, CalmDown);
  ExpectOrder();
  for (const ServiceThread &thread : g_threads) {
    for (const Arrivals &arrivals : thread.arrivals) {
      EXPECT_EQ(arrivals.missing, 0);
    }
  }
  Module::ReleaseAll();
}

TEST(TvsThreads, EverythingArrivesInOrderWhileAllIsReleasedNowAndThen) {
  SubscribeTheCountingModule();
  const auto round = [](int i) {
    ComeAndGo();
    if (i % 10 == 0) {
      Module::ReleaseAll();
      TurnLoop();
      SubscribeTheCountingModule();
    }
  };
  RunAll(round, CalmDown);
  ExpectOrder();
  Module::ReleaseAll();
}

// Modules also subscribe from inside their section callbacks, on the service's threads, and release everything there.
// Setting up again takes several steps; this lock keeps a release from coming between them.
std::mutex g_setting_up;
bool g_released;

void SetUpAgain() {
  if (g_released) {
    g_released = false;
    SubscribeTheCountingModule();
  }
}

void WorkInTheSectionCallback(ServiceThread &thread) {
  if (++thread.sections % 100 != 0) {
    return;
  }
  Module module("worker");
  EProgramMonitoringType type;
  module.SubscribePES(IgnoreData<TSPESData>, nullptr);
  module.SubscribeCaption(IgnoreData<TSCaption>, nullptr);
  module.MonitoringType(type);
  module.UnsubscribeSignal(SIGNAL_TYPE_SCRAMBLED, PROFILE_MAIN, 0);
  module.UnSubscribeProgram(1);
  module.UnsubscribeCaption();
  module.UnsubscribePES();

  const std::unique_lock<std::mutex> lock(g_setting_up, std::try_to_lock);
  if (lock && !g_calm) {
    Module::ReleaseAll();
    g_released = true;
  }
}

TEST(TvsThreads, EverythingArrivesInOrderWhileCallbacksOnTheServicesThreadsReleaseAll) {
  SubscribeTheCountingModule();
  g_in_section_callback = WorkInTheSectionCallback;
  const auto round = [](int) {
    const std::lock_guard<std::mutex> lock(g_setting_up);
    SetUpAgain();
    ComeAndGo();
  };
  const auto calm_down = [] {
    const std::lock_guard<std::mutex> lock(g_setting_up);
    SetUpAgain();
    g_calm = true;
  };
  RunAll(round, calm_down);
  ExpectOrder();
  Module::ReleaseAll();
}

} // namespace
