// Tests the module as the viewer uses it: keys arrive on the main loop.
#include "volume_keys.h"

#include <lumio-host/testing.h>

#include <gtest/gtest.h>

using lumio::testing::Press;

namespace {

class VolumeKeysTest : public testing::Test {
protected:
  const lumio::testing::EmptyStore store_; // before the module, so that each test begins with the same values
  VolumeKeys module_;
};

TEST_F(VolumeKeysTest, TurnsTheVolumeUpAndDown) {
  Press("XF86AudioRaiseVolume");
  EXPECT_EQ(module_.Volume(), 11);
  Press("XF86AudioLowerVolume");
  Press("XF86AudioLowerVolume");
  EXPECT_EQ(module_.Volume(), 9);
}

TEST_F(VolumeKeysTest, LeavesOtherKeysToOtherModules) {
  int passed_on = 0;
  const auto count = [](lumio_kevent *, lumio_kevent_type, void *, void *data) {
    ++*static_cast<int *>(data);
    return 1;
  };
  lumio_kevent *other = lumio_kevent_init("other");
  lumio_kevent_handler_add(other, LUMIO_KEVENT_PRESS, 6, count, &passed_on);
  Press("XF86AudioRaiseVolume");
  EXPECT_EQ(passed_on, 0);
  Press("Return");
  EXPECT_EQ(passed_on, 1);
  EXPECT_EQ(module_.Volume(), 11);
  lumio_kevent_fini(other);
}

} // namespace
