// Tests the modules of the guide.
#include "../docs/examples/pause_on_standby.h"
#include "../docs/examples/recording_light.h"
#include "../docs/examples/signal_watch.h"
#include "../docs/examples/volume_banner.h"

#include <Ecore.h>
#include <Ecore_Input.h>
#include <lumio-host/pvr-control.h>
#include <lumio-host/testing.h>
#include <lumio-host/tv-control.h>
#include <vconf.h>

#include <gtest/gtest.h>

#include <cstdlib>
#include <memory>

#include "volume_keys.h"

using lumio::testing::Press;
using lumio::testing::WaitForServices;

namespace {

class Guide : public testing::Test {
private:
  const lumio::testing::EmptyStore store_;
};

} // namespace

TEST_F(Guide, VolumeKeysDoNotMindAKeyWithoutAName) {
  VolumeKeys module;
  ecore_event_add(ECORE_EVENT_KEY_DOWN, calloc(1, sizeof(Ecore_Event_Key)), nullptr, nullptr);
  lumio::testing::TurnLoop();
  EXPECT_EQ(module.Volume(), 10);
}

TEST_F(Guide, VolumeKeysMayGoWhileAKeyIsHandled) {
  auto module = std::make_unique<VolumeKeys>();
  lumio_kevent *other = lumio_kevent_init("other");
  const auto unload = [](lumio_kevent *, lumio_kevent_type, void *, void *data) {
    static_cast<std::unique_ptr<VolumeKeys> *>(data)->reset();
    return 1;
  };
  lumio_kevent_handler_add(other, LUMIO_KEVENT_PRESS, 0, unload, &module);
  Press("XF86AudioRaiseVolume");
  EXPECT_EQ(module, nullptr);
  Press("XF86AudioRaiseVolume");
}

TEST_F(Guide, BannerIsShownOnce) {
  BannerCounter module;
  EXPECT_TRUE(ShowVolumeBanner());
  EXPECT_TRUE(ShowVolumeBanner());
  EXPECT_EQ(module.Shown(), 1);

  int word = 0;
  vconf_get_int("memory/lumio/lumio_banner_state_1", &word);
  EXPECT_EQ(word, 1 << kVolumeBanner);
}

TEST_F(Guide, PausesOnStandby) {
  PauseOnStandby module;
  CLumioStateSubscriber::HandleStateChanged(kLumioStateStandby);
  EXPECT_TRUE(module.Paused());
  CLumioStateSubscriber::HandleStateChanged(kLumioStateShown);
  EXPECT_FALSE(module.Paused());
}

TEST_F(Guide, PausingIsLeftToTheFirst) {
  PauseOnStandby module;
  { const PauseOnStandby second; }
  CLumioStateSubscriber::HandleStateChanged(kLumioStateStandby);
  EXPECT_TRUE(module.Paused());
}

TEST_F(Guide, LightFollowsTheRecorder) {
  RecordingLight module;
  lumio::pvr::StartRecording(1);
  WaitForServices();
  EXPECT_TRUE(module.On());
  lumio::pvr::StopRecording();
  WaitForServices();
  EXPECT_FALSE(module.On());
}

TEST_F(Guide, SignalArrivesOnTheMainLoop) {
  SignalWatch module("signal-watch");
  auto second = std::make_unique<SignalWatch>("second-watch");
  second.reset();
  lumio::tv::EmitSignal(SIGNAL_TYPE_LOCK, PROFILE_MAIN, 0, TSSignalData{1, 0});
  WaitForServices();
  EXPECT_TRUE(module.Locked());
  CTVServiceSubscriber::ReleaseAll();
}
