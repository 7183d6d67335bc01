// Banner states in the real store of the platform: processes share them, and they are intact after a process is killed.
#include <lumio-banner-state.h>

#include <gtest/gtest.h>
#include <lumio-host/testing.h>
#include <vconf.h>

#include <cstdlib>
#include <random>

#include "fork.h"

namespace {

constexpr int kBanners = 32;

class BannerStore : public testing::Test {
protected:
  BannerStore() { setenv("LUMIO_LOG", "none", 1); }

private:
  const lumio::testing::EmptyStore store_;
};

int State(int banner_id) {
  int state = -1;
  EXPECT_EQ(lumio_get_banner_state(banner_id, &state), 0);
  return state;
}

// The order in which banners are shown.
int Nth(int n) { return n * 7 % kBanners; }

// Hides all banners and shows them one by one, for ever. Sends the number of each acknowledged banner.
void ShowAll(Pipe *acknowledged) {
  ASSERT_EQ(vconf_set_int("memory/lumio/lumio_banner_state_1", 0), 0);
  for (int n = 0;; n = (n + 1) % kBanners) {
    ASSERT_EQ(lumio_set_banner_state(Nth(n), 1), 0);
    acknowledged->Send(n);
  }
}

} // namespace

TEST_F(BannerStore, EveryProcessSeesTheStates) {
  EXPECT_TRUE(Fork([] {
                EXPECT_EQ(lumio_set_banner_state(3, 1), 0);
                EXPECT_EQ(lumio_set_banner_state(31, 1), 0);
              }).Succeeds());
  EXPECT_TRUE(Fork([] {
                EXPECT_EQ(State(3), 1);
                EXPECT_EQ(State(4), 0);
                EXPECT_EQ(State(31), 1);
                EXPECT_EQ(lumio_set_banner_state(4, 1), 0);
              }).Succeeds());
  EXPECT_TRUE(Fork([] {
                EXPECT_EQ(State(3), 1);
                EXPECT_EQ(State(4), 1);
              }).Succeeds());
}

TEST_F(BannerStore, AKilledProcessLeavesEveryAcknowledgedBannerShown) {
  std::mt19937 random(1);
  for (int round = 0; round < 20; ++round) {
    Pipe acknowledged;
    Fork writer([&] { ShowAll(&acknowledged); });
    acknowledged.CloseSender();
    int count = 0; // acknowledged banners
    int n = 0;
    const int enough = 1 + static_cast<int>(random() % (kBanners + 7));
    while (count < enough && acknowledged.Receive(&n)) {
      ++count;
    }
    writer.Kill();
    while (acknowledged.Receive(&n)) {
      ++count;
    }
    ASSERT_GE(count, enough);
    EXPECT_TRUE(Fork([count] {
                  for (int i = 0; i < kBanners; ++i) {
                    // The banner that was just being shown may have either state.
                    EXPECT_TRUE(i == count || State(Nth(i)) == (i < count ? 1 : 0)) << i << " of " << count;
                  }
                  EXPECT_EQ(lumio_set_banner_state(Nth(count), 1), 0);
                  EXPECT_EQ(State(Nth(count)), 1);
                }).Succeeds());
  }
}
