// The test kit for modules: what it promises to a module's test.
#include <kevent.h>
#include <lumio-host/pvr-control.h>
#include <lumio-host/testing.h>
#include <lumio-host/tv-control.h>

#include <Ecore.h>
#include <Ecore_Input.h>
#include <PvrServiceSubscriber.h>
#include <TVServiceSubscriber.h>
#include <gmock/gmock.h>

#include <atomic>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "device_names.h"
#include "fake_clock.h"
#include "program.h"
#include "stored.h"

using lumio::testing::EmptyStore;
using lumio::testing::KeyDisplay;
using lumio::testing::Press;
using lumio::testing::Release;
using lumio::testing::TurnLoop;
using lumio::testing::TurnLoopUntil;
using lumio::testing::WaitForServices;
using testing::AllOf;
using testing::Each;
using testing::ElementsAre;
using testing::SizeIs;
using testing::ThrowsMessage;

namespace {

constexpr char kVariable[] = "LUMIO_VCONF_DIR";
constexpr char kKey[] = "db/a";

// --- Store -----------------------------------------------------------------------------------------------------------

TEST(TestingKitStore, BeginsWithTheInitialValues) {
  for (int test = 0; test < 2; ++test) {
    const EmptyStore store;
    EXPECT_EQ(Value(kKey), std::nullopt);
    EXPECT_EQ(Value(kBanners), 0);
    EXPECT_EQ(vconf_set_int(kKey, 1), 0);
    EXPECT_EQ(vconf_set_int(kBanners, 5), 0);
  }
}

TEST(TestingKitStore, RestoresTheStoreBeforeIt) {
  const EmptyStore outer;
  EXPECT_EQ(vconf_set_int(kKey, 1), 0);
  {
    const EmptyStore inner;
    EXPECT_NE(inner.Directory(), outer.Directory());
    EXPECT_EQ(Value(kKey), std::nullopt);
  }
  EXPECT_EQ(Value(kKey), 1);
}

TEST(TestingKitStore, RestoresTheVariable) {
  setenv(kVariable, "/a/store", 1);
  { const EmptyStore store; }
  EXPECT_STREQ(getenv(kVariable), "/a/store");
  unsetenv(kVariable);
  { const EmptyStore store; }
  EXPECT_EQ(getenv(kVariable), nullptr);
}

TEST(TestingKitStore, RemovesItsDirectoryWithTheFilesOfTheTest) {
  std::string directory;
  {
    const EmptyStore store;
    directory = store.Directory();
    std::ofstream(directory + "/notes") << "a file of the test";
    EXPECT_EQ(vconf_set_int(kKey, 1), 0);
  }
  EXPECT_FALSE(std::filesystem::exists(directory));
}

// --- Keys ------------------------------------------------------------------------------------------------------------

// A module that consumes every key and notes it, for example as "press Return from 4".
class Module {
public:
  Module() : domain_(lumio_kevent_init("module")) {
    lumio_kevent_handler_add(domain_, LUMIO_KEVENT_PRESS, 3, OnKey, this);
    lumio_kevent_handler_add(domain_, LUMIO_KEVENT_RELEASE, 3, OnKey, this);
  }
  ~Module() { lumio_kevent_fini(domain_); }
  Module(const Module &) = delete;
  Module &operator=(const Module &) = delete;

  const std::vector<std::string> &Keys() const { return keys_; }

private:
  static int OnKey(lumio_kevent *, lumio_kevent_type type, void *event, void *data) {
    const auto *key = static_cast<const Ecore_Event_Key *>(event);
    static_cast<Module *>(data)->keys_.push_back((type == LUMIO_KEVENT_PRESS ? "press " : "release ") +
                                                 std::string(key->keyname) + " from " +
                                                 std::to_string(lumio_event_source_type_get()));
    return 0;
  }

  lumio_kevent *domain_;
  std::vector<std::string> keys_;
};

struct TestingKitKeys : testing::Test {
  const EmptyStore store;
};

TEST_F(TestingKitKeys, ReachHandlersBeforeTheCallReturns) {
  const Module module;
  Press("Return");
  EXPECT_THAT(module.Keys(), SizeIs(1));
  Release("Return");
  Press("XF86AudioRaiseVolume");
  EXPECT_THAT(module.Keys(),
              ElementsAre("press Return from 0", "release Return from 0", "press XF86AudioRaiseVolume from 0"));
}

TEST_F(TestingKitKeys, AreNeverABurst) {
  constexpr int kMany = 500;
  const Module module;
  for (int count = 0; count < kMany; ++count) {
    Press("Down");
  }
  EXPECT_THAT(module.Keys(), AllOf(SizeIs(kMany), Each("press Down from 0")));
}

// The library compares the age of a press with that of the first one.
TEST_F(TestingKitKeys, AreNeverTooOld) {
  const Module module;
  fake_clock.now = 1000;
  for (const double pause : {0.0, 0.1, 1.0, 1.0, 3600.0, 1.0}) { // seconds
    *fake_clock.now += pause;
    Press("Down");
  }
  EXPECT_THAT(module.Keys(), SizeIs(6));
}

TEST_F(TestingKitKeys, TravelFromTheDevicesOfADisplay) {
  KeyDisplay display;
  const Module module;
  display.Press("Return");
  display.Release("Return");
  display.Press("XF86RaiseChannel", lumio::device::kTouchRemote);
  display.Release("XF86RaiseChannel", lumio::device::kTouchRemote);
  EXPECT_THAT(module.Keys(), ElementsAre("press Return from 4", "release Return from 4",
                                         "press XF86RaiseChannel from 2", "release XF86RaiseChannel from 2"));
}

TEST_F(TestingKitKeys, RefuseNamesThatADisplayDoesNotHave) {
  KeyDisplay display;
  EXPECT_THAT([&] { display.Press("Return", "Mouse"); },
              ThrowsMessage<std::invalid_argument>("The private display has no input device \"Mouse\""));
  EXPECT_THAT([&] { display.Release("Any"); },
              ThrowsMessage<std::invalid_argument>("The private display has no key \"Any\""));
}

// --- The main loop ---------------------------------------------------------------------------------------------------

Eina_Bool Count(void *data) {
  ++*static_cast<int *>(data);
  return ECORE_CALLBACK_RENEW;
}

TEST(TestingKitLoop, IsIdleAfterATurn) {
  int idle = 0;
  Ecore_Idle_Enterer *enterer = ecore_idle_enterer_add(Count, &idle);
  TurnLoop();
  EXPECT_GT(idle, 0);
  ecore_idle_enterer_del(enterer);
}

TEST(TestingKitLoop, TurnsUntilAConditionThatNoEventAnnounces) {
  std::atomic<bool> begun{false};
  std::atomic<bool> done{false};
  std::thread other([&] {
    while (!begun) {
      std::this_thread::yield();
    }
    done = true;
  });
  TurnLoopUntil([&] {
    begun = true;
    return done.load();
  });
  EXPECT_TRUE(done);
  other.join();
}

TEST(TestingKitLoop, DoesNotTurnForAConditionThatHolds) {
  int idle = 0;
  Ecore_Idle_Enterer *enterer = ecore_idle_enterer_add(Count, &idle);
  TurnLoopUntil([] { return true; });
  EXPECT_EQ(idle, 0);
  ecore_idle_enterer_del(enterer);
}

// --- Services --------------------------------------------------------------------------------------------------------

TEST(TestingKitServices, HaveReportedToTheMainLoop) {
  static std::vector<int> values;
  CTVServiceSubscriber module("module");
  module.SetSignalCallback([](ESignalType, TSSignalData data, void *) {
    values.push_back(data.value);
    return 0;
  });
  module.SubscribeSignal(SIGNAL_TYPE_LOCK, nullptr, PROFILE_MAIN, 0);
  for (int value = 0; value < 3; ++value) {
    lumio::tv::EmitSignal(SIGNAL_TYPE_LOCK, PROFILE_MAIN, 0, {value, 0});
    lumio::tv::EmitSignal(SIGNAL_TYPE_LOCK, PROFILE_MAIN, 0, {-value, 0});
    WaitForServices();
    EXPECT_THAT(values, ElementsAre(value, -value));
    values.clear();
  }
  module.UnsubscribeSignal(SIGNAL_TYPE_LOCK, PROFILE_MAIN, 0);
  CTVServiceSubscriber::ReleaseAll();
}

TEST(TestingKitServices, HaveReportedOnTheirThreads) {
  static std::atomic<int> states{0};
  CPvrServiceSubscriber module("module");
  const auto count = [](pvr_state_e, void *) { // takes its time: only a wait sees the result
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    ++states;
    return true;
  };
  EXPECT_EQ(module.RegisterPvrStateCb(count, nullptr), 0);
  lumio::pvr::StartRecording(1);
  WaitForServices();
  EXPECT_EQ(states, 1);
  EXPECT_EQ(module.UnRegisterPvrStateCb(count), 0);
}

// --- Session ---------------------------------------------------------------------------------------------------------

// Runs a program without a display, a bus and a directory of the session. Returns what it prints.
std::string PrintedWithout(const std::string &home) {
  const std::string command =
      "exec env -u DISPLAY -u DBUS_SESSION_BUS_ADDRESS -u XDG_RUNTIME_DIR " + home + " \"$0\" 2>&1";
  lumio::Program program({"/bin/sh", "-c", command, LUMIO_QUIET_SESSION}, {{"LUMIO_LOG", "none"}});
  const auto deadline = lumio::Clock::now() + std::chrono::hours(1); // the suite's own time limit comes first
  std::string output;
  while (const auto line = program.ReadLine(deadline)) {
    output += *line + "\n";
  }
  EXPECT_EQ(program.Wait(deadline), EXIT_SUCCESS);
  return output;
}

TEST(TestingKitSession, PrintsNothingWithoutADesktopSession) {
  EXPECT_EQ(PrintedWithout("-u HOME"), "");
  EXPECT_EQ(PrintedWithout("HOME=/nonexistent"), "");
}

} // namespace
