// A test of a module. It makes the desktop platform's recorder do what the module must cope with.
#include <PvrServiceSubscriber.h>
#include <lumio-host/pvr-control.h>

#include <gtest/gtest.h>

#include <vector>

namespace {

std::vector<pvr_state_e> g_states;

class RecorderTest : public testing::Test {
protected:
  RecorderTest() { EXPECT_EQ(module_.RegisterPvrStateCb(OnState, this), 0); }
  ~RecorderTest() override { EXPECT_EQ(module_.UnRegisterPvrStateCb(OnState), 0); }

  static bool OnState(pvr_state_e state, void *) {
    g_states.push_back(state);
    return true;
  }

  CPvrServiceSubscriber module_{"example"};
};

TEST_F(RecorderTest, TheModuleSeesTheDiskFillUp) {
  lumio::pvr::SetFreeSpace(60);
  lumio::pvr::StartRecording(7);
  lumio::pvr::AdvanceRecording(61);
  lumio::pvr::Flush();
  EXPECT_EQ(g_states, (std::vector<pvr_state_e>{PVR_STATE_RECORDING, PVR_STATE_DISK_FULL}));
}

} // namespace
