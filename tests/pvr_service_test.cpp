// The host platform's PVR service, through its interface and its control interface.
#include <lumio-host/pvr-control.h>

#include <gmock/gmock.h>

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <future>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "told.h"

using lumio::pvr::Call;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

void OnResult(ps_result_thirdpart result, void *user_data) {
  char text[128];
  std::snprintf(text, sizeof text, "operation %d request %d result %d program %d duration %d free %d reserved %d",
                result.operation, result.request_id, result.result, result.program, result.duration, result.free_space,
                result.reserved);
  static_cast<Told *>(user_data)->Add(text);
}

bool OnState(pvr_state_e state, void *user_data) {
  static const char *const kNames[] = {"idle", "recording", "disk full", "conflict"};
  static_cast<Told *>(user_data)->Add(kNames[state]);
  return true;
}

// Runs a function of a test on the service's thread.
bool OnStateRun(pvr_state_e, void *user_data) {
  (*static_cast<std::function<void()> *>(user_data))();
  return true;
}

class PvrService : public testing::Test {
protected:
  // Collects both kinds of notification in `told`.
  void Register() {
    ASSERT_EQ(svc_pvr_service_init(), 1);
    ASSERT_EQ(svc_pvr_register_to_other_apps_cb(OnResult, &told), 0);
    ASSERT_EQ(svc_pvr_register_get_pvr_state_cb(OnState, &told), 0);
  }

  void RegisterToRun(std::function<void()> function) {
    run = std::move(function);
    ASSERT_EQ(svc_pvr_service_init(), 1);
    ASSERT_EQ(svc_pvr_register_get_pvr_state_cb(OnStateRun, &run), 0);
  }

  // Returns everything that has been told once all that was emitted is delivered.
  std::vector<std::string> Everything() {
    lumio::pvr::Flush();
    return told.All();
  }

  Told told;
  std::function<void()> run;
};

TEST_F(PvrService, RefusesRegistrationsBeforeItIsConnected) {
  EXPECT_LT(svc_pvr_register_to_other_apps_cb(OnResult, &told), 0);
  EXPECT_LT(svc_pvr_register_get_pvr_state_cb(OnState, &told), 0);
  EXPECT_EQ(svc_pvr_service_init(), 1);
  EXPECT_EQ(svc_pvr_service_init(), 1);
  EXPECT_EQ(svc_pvr_register_to_other_apps_cb(OnResult, &told), 0);
  EXPECT_EQ(svc_pvr_register_get_pvr_state_cb(OnState, &told), 0);
}

TEST_F(PvrService, RefusesToRegisterNull) {
  Register();
  EXPECT_LT(svc_pvr_register_to_other_apps_cb(nullptr, &told), 0);
  EXPECT_LT(svc_pvr_register_get_pvr_state_cb(nullptr, &told), 0);
  lumio::pvr::EmitState(PVR_STATE_IDLE);
  EXPECT_THAT(Everything(), ElementsAre("idle")) << "the callback before stays";
}

TEST_F(PvrService, UnregistersOnlyWhatIsRegistered) {
  EXPECT_LT(svc_pvr_unregister_to_other_apps_cb(OnResult), 0);
  EXPECT_LT(svc_pvr_unregister_get_pvr_state_cb(OnState), 0);
  EXPECT_LT(svc_pvr_unregister_to_other_apps_cb(nullptr), 0);
  EXPECT_LT(svc_pvr_unregister_get_pvr_state_cb(nullptr), 0);
  Register();
  EXPECT_LT(svc_pvr_unregister_get_pvr_state_cb(OnStateRun), 0);
  EXPECT_EQ(svc_pvr_unregister_to_other_apps_cb(OnResult), 0);
  EXPECT_EQ(svc_pvr_unregister_get_pvr_state_cb(OnState), 0);
  EXPECT_LT(svc_pvr_unregister_to_other_apps_cb(OnResult), 0);
  EXPECT_LT(svc_pvr_unregister_get_pvr_state_cb(OnState), 0);
}

TEST_F(PvrService, KeepsOneCallbackOfEachKind) {
  Register();
  Told later;
  EXPECT_EQ(svc_pvr_register_to_other_apps_cb(OnResult, &later), 0);
  EXPECT_EQ(svc_pvr_register_get_pvr_state_cb(OnState, &later), 0);
  lumio::pvr::StopRecording();
  lumio::pvr::EmitState(PVR_STATE_IDLE);
  EXPECT_THAT(Everything(), IsEmpty());
  EXPECT_EQ(later.All().size(), 2U);
}

TEST_F(PvrService, CallsNobodyWithoutARegistration) {
  lumio::pvr::EmitState(PVR_STATE_CONFLICT);
  lumio::pvr::StartRecording(1);
  lumio::pvr::Flush();
  Register();
  EXPECT_THAT(Everything(), IsEmpty()) << "what was emitted before is gone";
  svc_pvr_unregister_to_other_apps_cb(OnResult);
  svc_pvr_unregister_get_pvr_state_cb(OnState);
  lumio::pvr::StopRecording();
  EXPECT_THAT(Everything(), IsEmpty());
}

TEST_F(PvrService, RecordsUntilItIsStopped) {
  Register();
  EXPECT_EQ(lumio::pvr::State(), PVR_STATE_IDLE);
  EXPECT_EQ(lumio::pvr::StartRecording(7), 1);
  EXPECT_EQ(lumio::pvr::State(), PVR_STATE_RECORDING);
  lumio::pvr::AdvanceRecording(20);
  lumio::pvr::AdvanceRecording(4);
  EXPECT_EQ(lumio::pvr::StopRecording(), 2);
  EXPECT_EQ(lumio::pvr::State(), PVR_STATE_IDLE);
  EXPECT_THAT(Everything(),
              ElementsAre("operation 1 request 1 result 0 program 7 duration 0 free 1024 reserved 0", "recording",
                          "operation 2 request 2 result 0 program 7 duration 24 free 1000 reserved 0", "idle"));
}

TEST_F(PvrService, RefusesASecondRecording) {
  Register();
  lumio::pvr::StartRecording(7);
  lumio::pvr::AdvanceRecording(10);
  EXPECT_EQ(lumio::pvr::StartRecording(8), 2);
  EXPECT_EQ(lumio::pvr::State(), PVR_STATE_RECORDING);
  lumio::pvr::StopRecording();
  EXPECT_THAT(Everything(),
              ElementsAre("operation 1 request 1 result 0 program 7 duration 0 free 1024 reserved 0", "recording",
                          "operation 1 request 2 result -1 program 8 duration 0 free 1014 reserved 0", "conflict",
                          "recording", "operation 2 request 3 result 0 program 7 duration 10 free 1014 reserved 0",
                          "idle"));
}

TEST_F(PvrService, HasNothingToStopWhileItIsIdle) {
  Register();
  EXPECT_EQ(lumio::pvr::StopRecording(), 1);
  EXPECT_THAT(Everything(), ElementsAre("operation 2 request 1 result -3 program 0 duration 0 free 1024 reserved 0"));
}

TEST_F(PvrService, LetsTimePassOnlyForARecording) {
  Register();
  lumio::pvr::AdvanceRecording(5);
  lumio::pvr::StartRecording(1);
  lumio::pvr::AdvanceRecording(-5);
  lumio::pvr::StopRecording();
  EXPECT_THAT(Everything(),
              ElementsAre("operation 1 request 1 result 0 program 1 duration 0 free 1024 reserved 0", "recording",
                          "operation 2 request 2 result 0 program 1 duration 0 free 1024 reserved 0", "idle"));
}

TEST_F(PvrService, EndsARecordingWhenTheDiskIsFull) {
  Register();
  lumio::pvr::SetFreeSpace(30);
  lumio::pvr::StartRecording(7);
  lumio::pvr::AdvanceRecording(50);
  EXPECT_EQ(lumio::pvr::State(), PVR_STATE_DISK_FULL);
  lumio::pvr::StartRecording(8);
  lumio::pvr::StopRecording();
  EXPECT_EQ(lumio::pvr::State(), PVR_STATE_DISK_FULL);
  lumio::pvr::SetFreeSpace(5);
  EXPECT_EQ(lumio::pvr::State(), PVR_STATE_IDLE);
  EXPECT_THAT(Everything(),
              ElementsAre("operation 1 request 1 result 0 program 7 duration 0 free 30 reserved 0", "recording",
                          "operation 2 request 1 result -2 program 7 duration 30 free 0 reserved 0", "disk full",
                          "operation 1 request 2 result -2 program 8 duration 0 free 0 reserved 0", "disk full",
                          "operation 2 request 3 result -3 program 0 duration 0 free 0 reserved 0", "idle"));
}

TEST_F(PvrService, EndsARecordingWhenOthersFillTheDisk) {
  Register();
  lumio::pvr::StartRecording(7);
  lumio::pvr::SetFreeSpace(500);
  lumio::pvr::SetFreeSpace(-1);
  EXPECT_THAT(Everything(),
              ElementsAre("operation 1 request 1 result 0 program 7 duration 0 free 1024 reserved 0", "recording",
                          "operation 2 request 1 result -2 program 7 duration 0 free 0 reserved 0", "disk full"));
}

TEST_F(PvrService, AFullDiskMattersOnlyToARecording) {
  Register();
  lumio::pvr::SetFreeSpace(0);
  EXPECT_EQ(lumio::pvr::State(), PVR_STATE_IDLE);
  EXPECT_THAT(Everything(), IsEmpty());
}

TEST_F(PvrService, EmitsInOrder) {
  Register();
  const ps_result_thirdpart result = {1, 2, 3, 4, 5, 6, 7};
  lumio::pvr::EmitState(PVR_STATE_CONFLICT);
  lumio::pvr::EmitResult(result);
  lumio::pvr::EmitState(PVR_STATE_IDLE);
  EXPECT_THAT(Everything(),
              ElementsAre("conflict", "operation 1 request 2 result 3 program 4 duration 5 free 6 reserved 7", "idle"));
  EXPECT_EQ(lumio::pvr::State(), PVR_STATE_IDLE);
}

TEST_F(PvrService, CallsBackOnOneThread) {
  std::set<std::thread::id> threads;
  RegisterToRun([&] { threads.insert(std::this_thread::get_id()); });
  lumio::pvr::EmitState(PVR_STATE_IDLE);
  lumio::pvr::EmitState(PVR_STATE_RECORDING);
  lumio::pvr::Flush();
  EXPECT_EQ(threads.size(), 1U);
  EXPECT_EQ(threads.count(std::this_thread::get_id()), 0U);
}

struct Refusal {
  const char *name;
  Call call;
  std::function<int()> make; // makes the call
};

class PvrServiceCall : public PvrService, public testing::WithParamInterface<Refusal> {};

TEST_P(PvrServiceCall, IsRefusedAsOftenAsPlanned) {
  Register();
  svc_pvr_unregister_to_other_apps_cb(OnResult);
  svc_pvr_unregister_get_pvr_state_cb(OnState);
  lumio::pvr::RefuseNext(GetParam().call, 42);
  lumio::pvr::RefuseNext(GetParam().call, -43);
  EXPECT_EQ(GetParam().make(), 42);
  EXPECT_EQ(GetParam().make(), -43);
  EXPECT_NE(GetParam().make(), -43);
}

TEST_P(PvrServiceCall, ReturnsAfterThePlannedAction) {
  std::promise<void> begun, released;
  bool ended = false;
  lumio::pvr::DuringNext(GetParam().call, [&] {
    begun.set_value();
    released.get_future().wait();
    ended = true;
  });
  std::future<bool> answer = std::async(std::launch::async, [&] {
    GetParam().make();
    return ended;
  });
  begun.get_future().wait();
  released.set_value();
  EXPECT_TRUE(answer.get());
  GetParam().make(); // would set the promises twice, and throw, if the action were not for one call only
}

INSTANTIATE_TEST_SUITE_P(All, PvrServiceCall,
                         testing::Values(Refusal{"Init", Call::Init, [] { return svc_pvr_service_init(); }},
                                         Refusal{"RegisterResult", Call::RegisterResult,
                                                 [] { return svc_pvr_register_to_other_apps_cb(OnResult, nullptr); }},
                                         Refusal{"UnregisterResult", Call::UnregisterResult,
                                                 [] { return svc_pvr_unregister_to_other_apps_cb(OnResult); }},
                                         Refusal{"RegisterState", Call::RegisterState,
                                                 [] { return svc_pvr_register_get_pvr_state_cb(OnState, nullptr); }},
                                         Refusal{"UnregisterState", Call::UnregisterState,
                                                 [] { return svc_pvr_unregister_get_pvr_state_cb(OnState); }}),
                         [](const testing::TestParamInfo<Refusal> &call) { return call.param.name; });

TEST_F(PvrService, ARefusedCallChangesNothing) {
  lumio::pvr::RefuseNext(Call::Init, 0);
  EXPECT_EQ(svc_pvr_service_init(), 0);
  EXPECT_LT(svc_pvr_register_get_pvr_state_cb(OnState, &told), 0) << "not connected";

  EXPECT_EQ(svc_pvr_service_init(), 1);
  lumio::pvr::RefuseNext(Call::RegisterState, 0);
  EXPECT_EQ(svc_pvr_register_get_pvr_state_cb(OnState, &told), 0);
  lumio::pvr::EmitState(PVR_STATE_IDLE);
  EXPECT_THAT(Everything(), IsEmpty()) << "not registered";

  svc_pvr_register_get_pvr_state_cb(OnState, &told);
  lumio::pvr::RefuseNext(Call::UnregisterState, 0);
  EXPECT_EQ(svc_pvr_unregister_get_pvr_state_cb(OnState), 0);
  lumio::pvr::EmitState(PVR_STATE_IDLE);
  EXPECT_THAT(Everything(), ElementsAre("idle")) << "still registered";
}

TEST_F(PvrService, ANotificationMayArriveInTheMiddleOfARegistration) {
  svc_pvr_service_init();
  std::vector<std::string> meanwhile;
  lumio::pvr::DuringNext(Call::RegisterState, [&] {
    lumio::pvr::EmitState(PVR_STATE_RECORDING);
    meanwhile = Everything();
  });
  svc_pvr_register_get_pvr_state_cb(OnState, &told);
  EXPECT_THAT(meanwhile, ElementsAre("recording"));
}

// Callers unregister while they hold a lock that their callback takes, too.
TEST_F(PvrService, UnregisteringDoesNotWaitForTheCallback) {
  std::mutex callers;
  std::promise<void> begun;
  std::atomic<bool> ended{false};
  RegisterToRun([&] {
    begun.set_value();
    const std::lock_guard<std::mutex> lock(callers);
    ended = true;
  });
  {
    const std::lock_guard<std::mutex> lock(callers);
    lumio::pvr::EmitState(PVR_STATE_IDLE);
    begun.get_future().wait();
    EXPECT_EQ(svc_pvr_unregister_get_pvr_state_cb(OnStateRun), 0);
    EXPECT_EQ(svc_pvr_register_get_pvr_state_cb(OnState, &told), 0);
    EXPECT_FALSE(ended);
  }
  lumio::pvr::Flush();
  EXPECT_TRUE(ended);
}

TEST_F(PvrService, EveryFunctionMayBeCalledInACallback) {
  std::vector<int> results;
  RegisterToRun([&] {
    results.push_back(svc_pvr_service_init());
    results.push_back(svc_pvr_unregister_get_pvr_state_cb(OnStateRun));
    results.push_back(svc_pvr_register_get_pvr_state_cb(OnState, &told));
    results.push_back(svc_pvr_register_to_other_apps_cb(OnResult, &told));
    results.push_back(svc_pvr_unregister_to_other_apps_cb(OnResult));
    lumio::pvr::StartRecording(1);
    lumio::pvr::Flush();
    results.push_back(lumio::pvr::State());
  });
  lumio::pvr::EmitState(PVR_STATE_IDLE);
  lumio::pvr::Flush();
  EXPECT_THAT(results, ElementsAre(1, 0, 0, 0, 0, PVR_STATE_RECORDING));
  EXPECT_THAT(Everything(), ElementsAre("recording"));
}

TEST_F(PvrService, ShutdownDeliversAndJoins) {
  std::atomic<int> ends{0};
  std::atomic<int> count{0};
  RegisterToRun([&] {
    EndOfThread::Watch(ends);
    ++count;
  });
  for (int i = 0; i < 100; ++i) {
    lumio::pvr::EmitState(PVR_STATE_IDLE);
  }
  lumio::pvr::Shutdown();
  EXPECT_EQ(count, 100);
  EXPECT_EQ(ends, 1);

  lumio::pvr::EmitState(PVR_STATE_IDLE);
  lumio::pvr::Flush();
  lumio::pvr::Shutdown();
  EXPECT_EQ(count, 100);
  EXPECT_EQ(svc_pvr_unregister_get_pvr_state_cb(OnStateRun), 0) << "calls are still answered";
}

// Nobody can wait for the end of such a thread, so what it uses must exist until the process ends.
TEST_F(PvrService, ShutdownInACallbackDropsTheRest) {
  static std::atomic<bool> emitted{false};
  static std::atomic<int> count{0};
  svc_pvr_service_init();
  svc_pvr_register_get_pvr_state_cb(
      [](pvr_state_e, void *) {
        while (!emitted) {
          std::this_thread::yield();
        }
        lumio::pvr::Shutdown();
        ++count;
        return true;
      },
      nullptr);
  lumio::pvr::EmitState(PVR_STATE_IDLE);
  lumio::pvr::EmitState(PVR_STATE_IDLE);
  emitted = true;
  lumio::pvr::Flush();
  EXPECT_EQ(count, 1);
}

// The process waits at exit for the callback that is running, and drops what has not begun.
void ExitWhileACallbackRuns() {
  static std::promise<void> begun;
  static std::atomic<bool> exiting{false};
  svc_pvr_service_init();
  svc_pvr_register_get_pvr_state_cb(
      [](pvr_state_e, void *) {
        begun.set_value();
        while (!exiting) {
          std::this_thread::yield();
        }
        std::fputs("the callback ended\n", stderr);
        return true;
      },
      nullptr);
  lumio::pvr::EmitState(PVR_STATE_IDLE);
  begun.get_future().wait();
  lumio::pvr::EmitState(PVR_STATE_IDLE);
  // Runs before anything that existed at the first use of the service is destroyed.
  std::atexit([] { exiting = true; });
  std::exit(0);
}

void ExitInACallback() {
  svc_pvr_service_init();
  svc_pvr_register_get_pvr_state_cb([](pvr_state_e, void *) -> bool { std::exit(7); }, nullptr);
  lumio::pvr::EmitState(PVR_STATE_IDLE);
  lumio::pvr::Flush();
}

TEST(PvrServiceDeathTest, IsJoinedWhenTheProcessExits) {
  EXPECT_EXIT(ExitWhileACallbackRuns(), testing::ExitedWithCode(0), "^the callback ended\n$");
  EXPECT_EXIT(ExitInACallback(), testing::ExitedWithCode(7), "");
}

TEST_F(PvrService, LosesAndReordersNothingFromManyThreads) {
  constexpr int kThreads = 4;
  constexpr int kEach = 2000;
  static std::vector<int> next; // of each emitting thread; used by the service's thread only until Shutdown
  static int disorder;
  next.assign(kThreads, 0);
  disorder = 0;
  svc_pvr_service_init();
  svc_pvr_register_to_other_apps_cb(
      [](ps_result_thirdpart result, void *) { disorder += result.result != next[result.program]++; }, nullptr);
  std::vector<std::thread> threads;
  for (int thread = 0; thread < kThreads; ++thread) {
    threads.emplace_back([thread, this] {
      for (int i = 0; i < kEach; ++i) {
        lumio::pvr::EmitResult({0, 0, i, thread, 0, 0, 0});
        svc_pvr_register_get_pvr_state_cb(OnState, &told);
        lumio::pvr::EmitState(PVR_STATE_IDLE);
        svc_pvr_unregister_get_pvr_state_cb(OnState);
      }
    });
  }
  for (std::thread &thread : threads) {
    thread.join();
  }
  lumio::pvr::Shutdown();
  EXPECT_THAT(next, testing::Each(kEach));
  EXPECT_EQ(disorder, 0);
}

} // namespace
