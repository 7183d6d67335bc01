// The sample viewer as it plays a transport stream, as a process on a real X server: its picture and what it prints.
#include <gmock/gmock.h>

#include <poll.h>

#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "display.h"
#include "program.h"
#include "temporary_directory.h"
#include "viewer_tap.h"
#include "x_observer.h"

#include <X11/Xlib.h> // after gmock, whose names its macros would replace

using testing::EndsWith;
using testing::HasSubstr;

namespace {

using Environment = std::map<std::string, std::string>;

// Colours of the sample's picture and of the test card.
constexpr unsigned kGround = 0x333333;
constexpr unsigned kGroundOfCard = 0x161d29;
constexpr double kLowest = 0.97; // where both show their ground, below what else is on the screen

constexpr int kBetweenShots = 20; // milliseconds that the viewer and the X server have to themselves

lumio::Clock::time_point Deadline() { return lumio::Clock::now() + std::chrono::seconds(60); }

bool AreAlike(unsigned one, unsigned other) {
  constexpr int kSlack = 8; // the colours went through a codec
  for (const int shift : {0, 8, 16}) {
    if (std::abs(static_cast<int>(one >> shift & 0xff) - static_cast<int>(other >> shift & 0xff)) > kSlack) {
      return false;
    }
  }
  return true;
}

unsigned PixelAt(const Picture &picture, double x, double y) {
  const auto column = static_cast<std::size_t>(x * picture.width);
  const auto row = static_cast<std::size_t>(y * picture.height);
  return picture.pixels.at(row * static_cast<std::size_t>(picture.width) + column) & 0xffffff;
}

bool IsCard(const Picture &picture) { return AreAlike(PixelAt(picture, 0.02, kLowest), kGroundOfCard); }
bool IsBroadcast(const Picture &picture) { return AreAlike(PixelAt(picture, 0.02, kLowest), kGround); }
// The bar at the left; the two services have different ones.
unsigned FirstBar(const Picture &picture) { return PixelAt(picture, 0.02, 0.2); }
constexpr unsigned kFirstBar = 0xbfbfbf, kSecondBar = 0x00b816;

// The columns in which the ball is drawn, which rolls over the ground.
std::string Ball(const Picture &picture) {
  std::string columns;
  for (double x = 0; x < 1; x += 0.01) {
    columns += AreAlike(PixelAt(picture, x, 0.75), 0xffffff) ? 'o' : '.';
  }
  return columns;
}

class Tv : public testing::Test {
protected:
  Tv()
      : x_(XOpenDisplay(display_.Name().c_str()), XCloseDisplay),
        observer_(std::make_unique<XObserver>(display_.Name())) {}

  void Start(const Environment &more = {}, const std::vector<std::string> &options = {"--grab"}) {
    Environment environment = {{"LUMIO_LOG", "none"},
                               {"LSAN_OPTIONS", "print_suppressions=0:suppressions=" LSAN_SUPPRESSIONS},
                               {"LUMIO_VCONF_DIR", directory_ / "vconf"},
                               {"LUMIO_RECORDINGS", directory_ / "recordings"}};
    for (const auto &[name, value] : more) {
      environment[name] = value;
    }
    for (const auto &[name, value] : display_.Environment()) {
      environment[name] = value;
    }
    std::vector<std::string> command = {"/bin/sh", "-c", "exec \"$0\" \"$@\" 2>&1", LUMIO_VIEWER, "--tv", LUMIO_SAMPLE};
    command.insert(command.end(), options.begin(), options.end());
    viewer_ = std::make_unique<lumio::Program>(command, environment);
    ExpectLine("ready, all keys of this display come here");
  }

  std::optional<std::string> ReadLine(lumio::Clock::time_point deadline) {
    const std::optional<std::string> line = viewer_->ReadLine(deadline);
    printed_ += line.value_or("") + "\n";
    return line;
  }

  // Returns the next line of the viewer that ends with `end`.
  std::string ExpectLine(const std::string &end) { return ExpectLine(EndsWith(end), end); }

  std::string ExpectLine(const testing::Matcher<std::string> &is_wanted, const std::string &what) {
    const auto deadline = Deadline();
    std::optional<std::string> line;
    do {
      line = ReadLine(deadline);
    } while (line && !is_wanted.Matches(*line));
    EXPECT_TRUE(line) << "the viewer does not print: " << what << "\n" << printed_;
    return line.value_or("");
  }

  void Tap(const std::string &key) {
    EXPECT_NE(TapUntilNotDropped(display_, key, [this, deadline = Deadline()] { return ReadLine(deadline); }), "")
        << "the viewer does not get " << key << "\n"
        << printed_;
  }

  void End() {
    Tap("q");
    ExpectLine("closed in order");
    const auto deadline = Deadline();
    while (ReadLine(deadline)) {
    }
    EXPECT_EQ(EXIT_SUCCESS, viewer_->Wait(deadline)) << printed_;
  }

  Window FocusedWindow() {
    Window focused = 0;
    int revert_to = 0;
    XGetInputFocus(x_.get(), &focused, &revert_to);
    return focused;
  }

  // Looks at the screen until it is as wanted.
  Picture ExpectPicture(const char *what, const std::function<bool(const Picture &)> &is_wanted) {
    const auto deadline = Deadline();
    Picture picture;
    bool is_there = false;
    while (!is_there && lumio::Clock::now() < deadline) {
      poll(nullptr, 0, kBetweenShots);
      picture = observer_->Shot(FocusedWindow());
      is_there = is_wanted(picture);
    }
    EXPECT_TRUE(is_there) << what << "\n" << printed_;
    return picture;
  }

  lumio::TemporaryDirectory directory_;
  lumio::PrivateDisplay display_;
  std::unique_ptr<Display, int (*)(Display *)> x_;
  std::unique_ptr<XObserver> observer_;
  std::unique_ptr<lumio::Program> viewer_;
  std::string printed_;
};

#ifdef __SANITIZE_THREAD__
constexpr bool kCanPlay = false;
#else
constexpr bool kCanPlay = true;
#endif

class TvPicture : public Tv {
protected:
  void SetUp() override {
    if (!kCanPlay) {
      GTEST_SKIP() << "the thread sanitizer does not know GStreamer's locks";
    }
  }
};

TEST_F(TvPicture, Moves) {
  Start();
  const Picture first = ExpectPicture("the broadcast's picture", IsBroadcast);
  EXPECT_TRUE(AreAlike(FirstBar(first), kFirstBar)) << std::hex << FirstBar(first);
  const std::string ball = Ball(first);
  EXPECT_THAT(ball, HasSubstr("ooo"));
  ExpectPicture("the ball somewhere else", [&](const Picture &picture) {
    return IsBroadcast(picture) && Ball(picture).find("ooo") != std::string::npos && Ball(picture) != ball;
  });
  End();
}

TEST_F(TvPicture, IsThatOfTheTunedService) {
  Start();
  ExpectPicture("the first service's picture",
                [](const Picture &picture) { return IsBroadcast(picture) && AreAlike(FirstBar(picture), kFirstBar); });
  for (const auto &[key, bar] : {std::pair("2", kSecondBar), {"1", kFirstBar}}) {
    Tap(key);
    ExpectPicture("the other service's picture", [bar = bar](const Picture &picture) {
      return IsBroadcast(picture) && AreAlike(FirstBar(picture), bar);
    });
  }
  End();
}

TEST_F(TvPicture, StopsInStandby) {
  Start();
  ExpectPicture("the broadcast's picture", IsBroadcast);
  Tap("s");
  ExpectPicture("a dark screen", [](const Picture &picture) { return PixelAt(picture, 0.02, kLowest) == 0; });
  Tap("s");
  ExpectPicture("the broadcast's picture again", IsBroadcast);
  End();
}

TEST_F(Tv, ShowsTheTestCardAndSaysOnceWhyThereIsNoPicture) {
  Start({{"GST_PLUGIN_SYSTEM_PATH_1_0", "/nonexistent"}, {"GST_REGISTRY_1_0", directory_ / "registry"}});
  ExpectPicture("the test card", IsCard);
  Tap("2");
  ExpectLine("now                   Gr\u00fc\u00dfe vom See");
  Tap("s");
  ExpectLine("light                 red");
  Tap("s");
  ExpectLine("light                 green");
  ExpectPicture("the test card", IsCard);
  End();
  const std::string message = "lumio-viewer: no picture: install the Debian packages gstreamer1.0-plugins-bad and "
                              "gstreamer1.0-libav\n";
  const std::size_t at = printed_.find(message);
  ASSERT_NE(at, std::string::npos) << printed_;
  EXPECT_EQ(printed_.find("no picture", at + message.size()), std::string::npos);
}

TEST_F(TvPicture, IsShownWhenASignalEndsTheViewer) {
  Start();
  ExpectPicture("the broadcast's picture", IsBroadcast);
  viewer_->Signal(SIGTERM);
  EXPECT_TRUE(viewer_->Wait(Deadline()).has_value());
}

// What the canvas has, without a picture behind it.
const std::vector<std::string> kCanvas = {"--grab", "--still", "--studio"};

TEST_F(Tv, ShowsTheFirstPageOfTeletext) {
  Start({}, kCanvas);
  Tap("t");
  ExpectLine("canvas  page                  LUMIO TEXT 888 Subtitles in English 889 Untertitel auf Deutsch "
             "The Evening News every four hours Night Train an hour before");
  Tap("t");
  ExpectLine("page                  (hidden)");
  Tap("t");
  ExpectLine(HasSubstr("screen  page                  LUMIO TEXT / 888 Subtitles in English / 889"), "the page again");
  Tap("2"); // a service without teletext
  ExpectLine("canvas  page                  page 100 has not come yet");
  End();
}

TEST_F(Tv, RecordsWhatIsTunedTo) {
  Start({}, kCanvas);
  Tap("2");
  ExpectLine("screen  channel               2");
  Tap("o");
  ExpectLine("canvas  notice                Recording has started");
  ExpectLine("start of programme 102: done");
  ExpectLine("canvas  record indicator      recording");
  Tap("XF86AudioRecord");
  ExpectLine("canvas  notice                Recording has ended");
  ExpectLine("stop of programme 102: done");
  ExpectLine("canvas  record indicator      (hidden)");
  ExpectLine("canvas  notice                (hidden)"); // after a while
  End();
  const std::filesystem::directory_iterator recordings(directory_ / "recordings");
  EXPECT_EQ(std::distance(begin(recordings), end(recordings)), 1);
}

TEST_F(Tv, SaysWhyItCannotRecord) {
  Start({{"LUMIO_RECORDINGS", "/dev/null/recordings"}}, kCanvas);
  Tap("o");
  ExpectLine("canvas  notice                Cannot record: disk full");
  End();
}

TEST_F(Tv, ShowsACaptionOfTwoSourcesOnce) {
  Start({}, kCanvas);
  viewer_->WriteLine("speed 5"); // rather than wait for what comes late in the stream
  ExpectLine("screen  transcript            Good evening. / The light is on again. / Who keeps it burning?");
  End();
}

TEST_F(Tv, OpensTheGuideAtThePresentProgramme) {
  Start({}, kCanvas);
  viewer_->WriteLine("speed 10"); // rather than wait for the first programme, which the stream repeats
  ExpectLine("now                   Night Train");
  Tap("g");
  const std::string guide =
      ExpectLine(testing::ContainsRegex("canvas  guide +.*:15 .*; \\[[0-9]{2}:15 .*\\]; [0-9]{2}:15 "),
                 "the guide, in its middle");
  const std::string now = "now                   ";
  const std::size_t title = printed_.rfind(now) + now.size(); // the next one may have begun
  EXPECT_THAT(guide, HasSubstr(":15 " + printed_.substr(title, printed_.find('\n', title) - title) + "]"));
  End();
}

} // namespace
