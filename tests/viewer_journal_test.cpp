// The journal of what happens to each key.
#include <gmock/gmock.h>

#include "key_screen.h"

using testing::ElementsAre;
using testing::IsEmpty;

namespace {

class Journal : public testing::Test {
protected:
  KeyScreen screen_;
  KeyJournal journal_{screen_};
};

TEST_F(Journal, ShowsATakenKeyAtOnce) {
  journal_.Begin("Up", true, 2, "HWKeys");
  journal_.Answered("menu", false);
  journal_.Answered("channel", true);
  ASSERT_EQ(1U, screen_.journeys.size());
  const KeyJourney &journey = screen_.journeys[0];
  EXPECT_EQ("Up", journey.key);
  EXPECT_TRUE(journey.press);
  EXPECT_EQ(2, journey.source);
  EXPECT_THAT(journey.asked, ElementsAre("menu", "channel"));
  EXPECT_EQ("channel", journey.taker);
  EXPECT_EQ("HWKeys", journey.device);
  EXPECT_GT(journey.time, 0);
  journal_.End();
  EXPECT_EQ(1U, screen_.journeys.size());
}

TEST_F(Journal, ShowsADeclinedKeyWhenItEnds) {
  journal_.Begin("Up", false, 0, "HWKeys");
  journal_.Answered("menu", false);
  EXPECT_THAT(screen_.journeys, IsEmpty());
  journal_.End();
  ASSERT_EQ(1U, screen_.journeys.size());
  EXPECT_FALSE(screen_.journeys[0].press);
  EXPECT_THAT(screen_.journeys[0].asked, ElementsAre("menu"));
  EXPECT_EQ("", screen_.journeys[0].taker);
}

TEST_F(Journal, EndsAKeyWhenTheNextOneBegins) {
  journal_.Begin("1", true, 0, "HWKeys");
  journal_.Begin("2", true, 0, "HWKeys");
  ASSERT_EQ(1U, screen_.journeys.size());
  EXPECT_EQ("1", screen_.journeys[0].key);
  EXPECT_THAT(screen_.journeys[0].asked, IsEmpty());
  EXPECT_EQ("dropped: burst", screen_.journeys[0].unasked);
}

TEST_F(Journal, ShowsAKeyThatWasPassedOn) {
  journal_.Begin("Up", true, 0, "HWKeys");
  journal_.PassedOn("dropped: stale");
  ASSERT_EQ(1U, screen_.journeys.size());
  EXPECT_EQ("dropped: stale", screen_.journeys[0].unasked);
}

TEST_F(Journal, IgnoresWhatBelongsToNoKey) {
  journal_.Answered("menu", true);
  journal_.PassedOn("dropped: stale");
  journal_.End();
  EXPECT_THAT(screen_.journeys, IsEmpty());
}

} // namespace
