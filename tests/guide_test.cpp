// Tests the modules of the guide. The guide shows this file as an example of a test on a desktop.
#include "../docs/examples/pause_on_standby.h"
#include "../docs/examples/recording_light.h"
#include "../docs/examples/signal_watch.h"
#include "../docs/examples/volume_banner.h"
#include "../docs/examples/volume_keys.h"

#include <Ecore.h>
#include <lumio-host/pvr-control.h>
#include <lumio-host/testing.h>
#include <lumio-host/tv-control.h>
#include <vconf.h>

#include <gtest/gtest.h>

#include <memory>

#include "temporary_directory.h"

using lumio::testing::TurnLoop;
using lumio::testing::TurnLoopUntil;

namespace {

// Gives each test a store of its own.
class Guide : public testing::Test {
protected:
  Guide() { setenv("LUMIO_VCONF_DIR", (directory_ / "store").c_str(), 1); }

private:
  const lumio::TemporaryDirectory directory_;
};

// Sends the press that Ecore would send, and turns the main loop.
void Press(const char *name) {
  auto *key = static_cast<Ecore_Event_Key *>(calloc(1, sizeof(Ecore_Event_Key)));
  key->keyname = name;
  ecore_event_add(ECORE_EVENT_KEY_DOWN, key, nullptr, nullptr);
  TurnLoop();
}

} // namespace

TEST_F(Guide, VolumeKeysTurnTheVolume) {
  VolumeKeys module;
  Press("XF86AudioRaiseVolume");
  EXPECT_EQ(module.Volume(), 11);
  Press("XF86AudioLowerVolume");
  EXPECT_EQ(module.Volume(), 10);
  Press("Return");
  EXPECT_EQ(module.Volume(), 10);
}

TEST_F(Guide, VolumeKeysDoNotMindAKeyWithoutAName) {
  VolumeKeys module;
  Press(nullptr);
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
  lumio::pvr::Flush();
  EXPECT_TRUE(module.On());
  lumio::pvr::StopRecording();
  lumio::pvr::Flush();
  EXPECT_FALSE(module.On());
}

TEST_F(Guide, SignalArrivesOnTheMainLoop) {
  SignalWatch module("signal-watch");
  auto second = std::make_unique<SignalWatch>("second-watch");
  second.reset();
  lumio::tv::EmitSignal(SIGNAL_TYPE_LOCK, PROFILE_MAIN, 0, TSSignalData{1, 0});
  TurnLoopUntil([&] { return module.Locked(); });
  EXPECT_TRUE(module.Locked());

  CTVServiceSubscriber::ReleaseAll();
  lumio::tv::Shutdown(); // stop the service's threads before ecore_shutdown: they wake the main loop
}
