// The two callback registries on many threads, with the platform's real lock and real recording service.
#include <LumioStateSubscriber.h>
#include <PvrServiceSubscriber.h>

#include <lumio-host/pvr-control.h>

#include <gmock/gmock.h>

#include "race.h"

using testing::Each;
using testing::Ge;
using testing::IsEmpty;

enum ELUMIO_STATE : int { kRunning = 7 };

namespace {

constexpr int kRounds = 200;
constexpr ps_result_thirdpart kResult = {};

// No callback runs on two threads at once, so its counter needs no protection.
struct Counts {
  int told[kThreads] = {};
};

void Count(void *user_data) { ++*static_cast<int *>(user_data); }

// A callback for each thread.
template <int> void CountState(ELUMIO_STATE, void *user_data) { Count(user_data); }
template <int> void CountResult(ps_result_thirdpart, void *user_data) { Count(user_data); }
template <int> bool CountPvrState(pvr_state_e, void *user_data) {
  Count(user_data);
  return true;
}

constexpr CLumioStateSubscriber::StateChangedCallback kStateCallbacks[kThreads] = {CountState<0>, CountState<1>,
                                                                                   CountState<2>, CountState<3>};
constexpr CPvrServiceSubscriber::PvrResultCallback kResultCallbacks[kThreads] = {CountResult<0>, CountResult<1>,
                                                                                 CountResult<2>, CountResult<3>};
constexpr CPvrServiceSubscriber::PvrStateCallback kPvrStateCallbacks[kThreads] = {CountPvrState<0>, CountPvrState<1>,
                                                                                  CountPvrState<2>, CountPvrState<3>};

} // namespace

TEST(ViewerThreads, EachHearsAtLeastWhatItAnnounces) {
  Counts counts;
  ASSERT_FALSE(viewerMutex.IsCreated()); // the threads race to create it, too
  Race([&counts](int i) {
    CLumioStateSubscriber module("module");
    for (int round = 0; round < kRounds; ++round) {
      EXPECT_TRUE(module.RegisterLumioStateChangeCb(kStateCallbacks[i], &counts.told[i]));
      CLumioStateSubscriber::HandleStateChanged(kRunning);
      EXPECT_TRUE(module.UnregisterLumioStateChangeCb(kStateCallbacks[i]));
    }
  });
  EXPECT_THAT(counts.told, Each(Ge(kRounds)));
  EXPECT_THAT(CLumioStateSubscriber::m_StateChangedCBMap, IsEmpty());
  EXPECT_THAT(CLumioStateSubscriber::m_StateChangedCBRequesterMap, IsEmpty());
}

TEST(PvrThreads, EachHearsAtLeastWhatItTells) {
  Counts results;
  Counts states;
  ASSERT_FALSE(pvrMutex.IsCreated());
  Race([&](int i) {
    CPvrServiceSubscriber module("module");
    for (int round = 0; round < kRounds; ++round) {
      EXPECT_EQ(module.RegisterPvrCb(kResultCallbacks[i], &results.told[i]), 0);
      EXPECT_EQ(module.RegisterPvrStateCb(kPvrStateCallbacks[i], &states.told[i]), 0);
      lumio::pvr::EmitResult(kResult); // runs on the service's own thread, later
      lumio::pvr::EmitState(PVR_STATE_IDLE);
      CPvrServiceSubscriber::t_PvrResultCB(kResult, &module);
      EXPECT_TRUE(CPvrServiceSubscriber::t_PvrStateCB(PVR_STATE_RECORDING, &module));
      EXPECT_EQ(module.UnRegisterPvrCb(kResultCallbacks[i]), 0);
      EXPECT_EQ(module.UnRegisterPvrStateCb(kPvrStateCallbacks[i]), 0);
    }
  });
  EXPECT_THAT(results.told, Each(Ge(kRounds)));
  EXPECT_THAT(states.told, Each(Ge(kRounds)));
  EXPECT_THAT(CPvrServiceSubscriber::m_PvrResultCBMap, IsEmpty());
  EXPECT_THAT(CPvrServiceSubscriber::m_pvrStateCallbackMap, IsEmpty());
}

TEST(PvrThreads, TheServicesThreadTellsAllCallbacks) {
  Counts results;
  Counts states;
  CPvrServiceSubscriber module("module");
  for (int i = 0; i < kThreads; ++i) {
    module.RegisterPvrCb(kResultCallbacks[i], &results.told[i]);
    module.RegisterPvrStateCb(kPvrStateCallbacks[i], &states.told[i]);
  }
  lumio::pvr::StartRecording(1);
  lumio::pvr::Flush();
  EXPECT_THAT(results.told, Each(1));
  EXPECT_THAT(states.told, Each(1));
}

// A television would wait for ever, which no test can show. The desktop's lock ends the process.
TEST(ViewerThreads, ACallbackThatUsesTheClassIsFoundOut) {
  CLumioStateSubscriber module("module");
  module.RegisterLumioStateChangeCb(
      [](ELUMIO_STATE state, void *) { CLumioStateSubscriber::HandleStateChanged(state); }, nullptr);
  EXPECT_DEATH(CLumioStateSubscriber::HandleStateChanged(kRunning), "not recursive");
}

TEST(PvrThreads, ACallbackThatUsesTheClassIsFoundOut) {
  CPvrServiceSubscriber module("module");
  module.RegisterPvrCb(
      [](ps_result_thirdpart, void *user_data) {
        static_cast<CPvrServiceSubscriber *>(user_data)->UnRegisterPvrCb(CountResult<0>);
      },
      &module);
  EXPECT_DEATH(CPvrServiceSubscriber::t_PvrResultCB(kResult, &module), "not recursive");
}
