// Which captions the viewer shows where a service carries them twice.
#include "caption_choice.h"

#include <gmock/gmock.h>

#include <string>

namespace {

constexpr int kEnglish = 'e' << 16 | 'n' << 8 | 'g', kGerman = 'd' << 16 | 'e' << 8 | 'u';
constexpr unsigned long long kSecond = 90000;

TSCaption Caption(double seconds, const std::string &text, int language = kEnglish) {
  TSCaption caption;
  caption.language = language;
  caption.pts = static_cast<unsigned long long>(seconds * kSecond);
  caption.payload.assign(text.begin(), text.end());
  return caption;
}

TEST(CaptionChoice, TakesTheLanguageThatComesFirst) {
  CaptionChoice choice;
  EXPECT_FALSE(choice.Accepts(Caption(1, "", kGerman)));
  EXPECT_TRUE(choice.Accepts(Caption(1, "Guten Abend.", kGerman)));
  EXPECT_FALSE(choice.Accepts(Caption(1, "Good evening.")));
  EXPECT_FALSE(choice.Accepts(Caption(4, "")));
  EXPECT_TRUE(choice.Accepts(Caption(4, "", kGerman)));
  choice.Reset();
  EXPECT_TRUE(choice.Accepts(Caption(5, "Good evening.")));
}

TEST(CaptionChoice, TakesTheSourceThatComesFirst) {
  CaptionChoice choice;
  EXPECT_TRUE(choice.Accepts(Caption(1, "Good evening.")));
  EXPECT_FALSE(choice.Accepts(Caption(1.5, "Good evening.")));
  EXPECT_TRUE(choice.Accepts(Caption(4, "The light is on again.")));
  EXPECT_FALSE(choice.Accepts(Caption(3, "Good evening."))) << "the other source is late";
  EXPECT_FALSE(choice.Accepts(Caption(3.9, ""))) << "its end of the caption before";
  EXPECT_FALSE(choice.Accepts(Caption(2.5, "The light is on again."))) << "the other source has it for an earlier time";
  EXPECT_TRUE(choice.Accepts(Caption(7, "")));
}

TEST(CaptionChoice, ShowsAgainWhatComesAgain) {
  CaptionChoice choice;
  EXPECT_TRUE(choice.Accepts(Caption(1, "Yes.")));
  EXPECT_FALSE(choice.Accepts(Caption(3, "Yes.")));
  EXPECT_TRUE(choice.Accepts(Caption(3.1, "Yes.")));
  for (const char *text : {"a", "b", "c", "d"}) {
    EXPECT_TRUE(choice.Accepts(Caption(4, text)));
  }
  EXPECT_TRUE(choice.Accepts(Caption(3.1, "Yes."))) << "long ago";
}

TEST(CaptionChoice, EndsACaptionAfterTheStreamHasStartedAgain) {
  CaptionChoice choice;
  EXPECT_TRUE(choice.Accepts(Caption(19, "That was all.")));
  EXPECT_TRUE(choice.Accepts(Caption(1, "")));
}

TEST(CaptionChoice, KnowsThatTimesStartAgain) {
  constexpr double kAll = static_cast<double>(1ULL << 33) / kSecond;
  CaptionChoice choice;
  EXPECT_TRUE(choice.Accepts(Caption(kAll - 1, "Good night.")));
  EXPECT_FALSE(choice.Accepts(Caption(0.5, "Good night.")));
  EXPECT_TRUE(choice.Accepts(Caption(2, "")));
}

TEST(CaptionChoice, TakesAllWithoutTime) {
  CaptionChoice choice;
  TSCaption caption = Caption(0, "Good evening.");
  EXPECT_TRUE(choice.Accepts(caption));
  EXPECT_TRUE(choice.Accepts(caption));
  caption.pts = ~0ULL;
  EXPECT_TRUE(choice.Accepts(caption));
  EXPECT_TRUE(choice.Accepts(caption));
  caption.payload.clear();
  EXPECT_TRUE(choice.Accepts(caption));
}

} // namespace
