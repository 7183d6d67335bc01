// What the viewer draws, on a real X server: what Edje says is shown, and what a screenshot says.
#include "screen/screen.h"

#include <Edje.h>
#include <Eina.h>
#include <gmock/gmock.h>
#include <kevent.h>
#include <lumio-host/testing.h>

#include <algorithm>
#include <cstdlib>
#include <memory>
#include <string>
#include <vector>

#include "display.h"
#include "key_journal.h"
#include "pointer.h"
#include "screen/test_card.h"
#include "temporary_directory.h"
#include "x_connection.h"
#include "x_observer.h"

using lumio::testing::TurnLoop;
using lumio::testing::TurnLoopUntil;
using testing::HasSubstr;

namespace {

// An area of the picture, in parts of its width and height.
struct Area {
  double left, top, right, bottom;
};

class ScreenOnDisplay : public testing::Test {
protected:
  explicit ScreenOnDisplay(bool still = true) {
    for (const auto &[name, value] : display_.Environment()) {
      setenv(name.c_str(), value.c_str(), 1);
    }
    x_ = std::make_unique<XConnection>();
    canvas_ = std::make_unique<Canvas>(LUMIO_THEME);
    auto card = std::make_unique<TestCard>(*canvas_);
    card_ = card.get();
    screen_ = std::make_unique<Screen>(*canvas_, std::move(card), WallClock(still));
    observer_ = std::make_unique<XObserver>(display_.Name());
    TurnLoopUntil([&] { return canvas_->Frames() > 0 && observer_->IsVisible(canvas_->Window()); });
    empty_ = Shot();
  }
  ~ScreenOnDisplay() override {
    observer_.reset();
    screen_.reset();
    canvas_.reset();
    x_.reset();
    eina_mmap_safety_enabled_set(EINA_FALSE); // a file that Edje has for the life of the process
  }

  Presentation &Television() { return *screen_; }

  Picture Shot() {
    TurnLoop();
    canvas_->Draw();
    return observer_->Shot(canvas_->Window());
  }

  std::string Text(const std::string &part) const {
    const char *text = edje_object_part_text_get(canvas_->Theme(), part.c_str());
    return text ? text : "";
  }

  struct Size {
    int width = 0, height = 0;
  };

  Size SizeOf(const char *part) const {
    Size size;
    edje_object_part_geometry_get(canvas_->Theme(), part, nullptr, nullptr, &size.width, &size.height);
    return size;
  }

  // What the picture differs in from `before` fills the area, and nothing differs outside of it.
  void ExpectChange(const Picture &before, const Area &area) {
    const Picture after = Shot();
    const Box box = Difference(before, after);
    const double right = after.width, bottom = after.height, slack = 2;
    EXPECT_GE(box.left, area.left * right - slack);
    EXPECT_GE(box.top, area.top * bottom - slack);
    EXPECT_LE(box.right, area.right * right + slack);
    EXPECT_LE(box.bottom, area.bottom * bottom + slack);
    EXPECT_GE((box.right - box.left) * (box.bottom - box.top),
              0.5 * (area.right - area.left) * right * (area.bottom - area.top) * bottom);
  }

  void Resize(int width, int height) {
    observer_->Resize(canvas_->Window(), width, height);
    TurnLoopUntil([&] {
      const Picture shot = Shot();
      return shot.width == width && shot.height == height;
    });
  }

  lumio::PrivateDisplay display_;
  std::unique_ptr<XConnection> x_;
  std::unique_ptr<Canvas> canvas_;
  TestCard *card_; // of the screen
  std::unique_ptr<Screen> screen_;
  std::unique_ptr<XObserver> observer_;
  Picture empty_;
};

const Details kList = {{"One", "Two", "Three"}, 1};

TEST_F(ScreenOnDisplay, ShowsEachItemInItsPlaceAndNowhereElse) {
  const struct {
    const char *item;
    const char *text;
    Details details;
    const char *shown; // what Edje has
    Area area;
  } items[] = {
      {"captions", "Here is the news.", {}, "Here is the news.", {0.35, 0.89, 0.64, 0.95}},
      {"data service", "module 3: sunny", {}, "module 3: sunny", {0.62, 0.1, 0.9625, 0.42}},
      {"volume", "40", {}, "40", {0.9, 0.52, 0.9625, 0.95}},
      {"info", "what is on now", {}, "what is on now", {0.0375, 0.45, 0.882, 0.95}},
      {"guide", "One; Two; Three", kList, "One; [Two]; Three", {0.0375, 0.1, 0.882, 0.74}},
      {"guide", "loading", {}, "loading", {0.0375, 0.1, 0.882, 0.74}},
      {"page", "page 100 has not come yet", {}, "page 100 has not come yet", {0.25, 0.04, 0.75, 0.96}},
      {"notice", "Recording has started", {}, "Recording has started", {0.4, 0.03, 0.8, 0.085}},
      {"menu", "Two", kList, "One; [Two]; Three", {0.0375, 0.1, 0.32, 0.485}},
      {"record indicator", "recording", {}, "recording", {0.815, 0.03, 0.9625, 0.085}},
      {"keys", "the last ten keys", {}, "the last ten keys", {0.0125, 0.56, 0.9875, 0.98}},
      {"remote", "click to press a key", {}, "click to press a key", {0.785, 0.03, 0.9875, 0.97}},
  };
  for (const auto &[item, text, details, shown, area] : items) {
    SCOPED_TRACE(item);
    Television().Show(item, text, details);
    EXPECT_EQ(screen_->Shown(item), shown);
    ExpectChange(empty_, area);
    Television().Hide(item);
    EXPECT_EQ(screen_->Shown(item), "(hidden)");
    EXPECT_EQ(Shot(), empty_);
  }
}

TEST_F(ScreenOnDisplay, ShowsTheRestInTheInformation) {
  const Area panel = {0.0375, 0.45, 0.882, 0.95};
  Television().Show("info", "what is on now");
  for (const char *item : {"tuner", "teletext", "stream meter", "recorder", "services", "layout", "unused keys",
                           "transcript", "subscriptions", "light", "now", "next"}) {
    SCOPED_TRACE(item);
    const Picture before = Shot();
    Television().Show(item, "12 of something");
    EXPECT_EQ(screen_->Shown(item), "12 of something");
    const Box box = Difference(before, Shot());
    EXPECT_FALSE(box.IsEmpty());
    EXPECT_GE(box.left, panel.left * before.width);
    EXPECT_GE(box.top, panel.top * before.height);
    EXPECT_LE(box.right, panel.right * before.width);
    EXPECT_LE(box.bottom, panel.bottom * before.height);
  }
}

TEST_F(ScreenOnDisplay, NamesTheChannelAndWhatIsOn) {
  const std::int64_t evening = WallClock(true).Now();
  Television().Show("now", "Evening News", {{}, 0, evening - 300, evening + 600});
  Television().Show("next", "The Weather");
  Television().Show("channel", "2");
  Television().Show("services", "One, Two", {{"One", "Two"}});
  EXPECT_EQ(Text("info:services"), "One, Two");
  EXPECT_EQ(Text("channel:text"), "2");
  EXPECT_EQ(Text("channel:name"), "Two");
  EXPECT_EQ(Text("channel:now"), "Evening News");
  EXPECT_EQ(Text("channel:next"), "The Weather");
  EXPECT_EQ(Text("channel:time"), "20:15 \xe2\x80\x93 20:30");
  EXPECT_EQ(Text("channel:clock"), "20:20");
  const Size bar = SizeOf("channel:progress");
  const auto filled_between = [&](std::int64_t start, std::int64_t end) {
    Television().Show("now", "Evening News", {{}, 0, start, end});
    Shot();
    return SizeOf("channel:progress.fill").width;
  };
  EXPECT_NEAR(SizeOf("channel:progress.fill").width, bar.width / 3., 2);
  EXPECT_NEAR(filled_between(evening - 900, evening - 300), bar.width, 2) << "it has ended";
  EXPECT_NEAR(filled_between(evening + 300, evening + 900), 0, 2) << "it is yet to begin";
  EXPECT_NEAR(filled_between(0, 0), 0, 2) << "its time is not known";
  EXPECT_EQ(Text("channel:time"), "");
  Television().Show("channel", "3");
  EXPECT_EQ(Text("channel:name"), "") << "a channel without a service";
}

TEST_F(ScreenOnDisplay, FillsTheVolumeBar) {
  for (const int level : {0, 10, 40, 100}) {
    Television().Show("volume", std::to_string(level));
    EXPECT_NEAR(SizeOf("volume:bar.fill").height, SizeOf("volume:bar").height * level / 100., 2) << level;
  }
}

TEST_F(ScreenOnDisplay, OutlinesCaptions) {
  Television().Show("captions", "Here is the news.");
  const Picture shot = Shot();
  const auto first_row = static_cast<long>(shot.height * 0.89) * shot.width;
  const auto count = [&](const Picture &picture, unsigned colour) {
    return std::count(picture.pixels.begin() + first_row, picture.pixels.end(), colour);
  };
  EXPECT_GT(count(shot, 0xffffff), 100); // the letters
  EXPECT_GT(count(shot, 0), 100);        // around them
  EXPECT_EQ(count(empty_, 0), 0);
}

TEST_F(ScreenOnDisplay, ShowsTheRowsOfATeletextPageBelowEachOther) {
  Television().Show("page", "<News> / 12", {{"  <News>", "", "  12"}});
  EXPECT_EQ(Text("page:text"), "  &lt;News&gt;<br/><br/>  12<br/>");
}

TEST_F(ScreenOnDisplay, ShowsOnTheOverlayWhetherKeysCome) {
  Television().Show("viewer", "ready");
  EXPECT_EQ(Text("keys:viewer"), "ready");
  EXPECT_EQ(screen_->Shown("viewer"), "ready");
}

TEST_F(ScreenOnDisplay, ShowsAListInPlaceOfItsText) {
  Television().Show("guide", "loading");
  EXPECT_EQ(Text("guide:text"), "loading");
  Television().Show("guide", "One; Two; Three", kList);
  EXPECT_EQ(Text("guide:text"), "");
}

TEST_F(ScreenOnDisplay, SaysThatThereIsNoSignal) {
  Television().Show("picture", "no signal");
  EXPECT_EQ(screen_->Shown("picture"), "no signal");
  ExpectChange(empty_, {0, 0, 1, 1});
  Television().Show("picture", "moving");
  EXPECT_EQ(screen_->Shown("picture"), "(hidden)");
  EXPECT_EQ(Shot(), empty_);
}

TEST_F(ScreenOnDisplay, IsDarkInStandbyButForTheLight) {
  Television().Show("light", "green");
  EXPECT_EQ(Shot(), empty_);
  Television().Show("info", "what is on now");
  Television().Show("light", "red");
  const Picture standby = Shot();
  const Picture black = {standby.width, standby.height, std::vector<unsigned>(standby.pixels.size(), 0)};
  const Box light = Difference(black, standby);
  EXPECT_NEAR((light.left + light.right) / 2., standby.width / 2., 2);
  EXPECT_LE(light.right - light.left, 12);
  EXPECT_LE(light.bottom - light.top, 12);
  Television().Hide("info");
  Television().Show("light", "green");
  EXPECT_EQ(Shot(), empty_);
}

TEST_F(ScreenOnDisplay, ScrollsALongListWithItsCursor) {
  Details list;
  for (int i = 1; i <= 12; ++i) {
    list.entries.push_back(std::to_string(i));
  }
  const auto shown_at = [&](size_t cursor) {
    list.cursor = cursor;
    Television().Show("guide", "", list);
    return screen_->Shown("guide");
  };
  EXPECT_EQ(shown_at(0), "[1]; 2; 3; 4; 5; 6; 7; 8");
  EXPECT_EQ(shown_at(7), "1; 2; 3; 4; 5; 6; 7; [8]");
  EXPECT_EQ(shown_at(8), "2; 3; 4; 5; 6; 7; 8; [9]");
  EXPECT_EQ(shown_at(11), "5; 6; 7; 8; 9; 10; 11; [12]");
  EXPECT_EQ(shown_at(10), "5; 6; 7; 8; 9; 10; [11]; 12");
  EXPECT_EQ(shown_at(2), "[3]; 4; 5; 6; 7; 8; 9; 10");
  list.entries.resize(2);
  EXPECT_EQ(shown_at(0), "[1]; 2") << "no empty row while there is an entry for it";
}

TEST_F(ScreenOnDisplay, ShowsTextAsItStands) {
  Television().Show("captions", "<b>1 & 2</b>");
  EXPECT_EQ(screen_->Shown("captions"), "<b>1 & 2</b>");
  Television().Show("channel", "%s");
  EXPECT_EQ(screen_->Shown("channel"), "%s");
}

TEST_F(ScreenOnDisplay, IsSixteenToNineInAWindowOfAnyShape) {
  for (const auto &[width, height] : {std::pair{640, 360}, {700, 700}, {900, 200}}) {
    Resize(width, height);
    int x = 0, y = 0, w = 0, h = 0;
    evas_object_geometry_get(canvas_->Theme(), &x, &y, &w, &h);
    EXPECT_NEAR(w * 9, h * 16, 16);
    EXPECT_TRUE(w == width || h == height);
    EXPECT_NEAR(x, (width - w) / 2., 1);
    EXPECT_NEAR(y, (height - h) / 2., 1);
    const Picture shot = Shot();
    for (int row = 0; row < height; ++row) {
      for (int column = 0; column < width; ++column) {
        if (column < x || column >= x + w || row < y || row >= y + h) {
          ASSERT_EQ(shot.pixels[static_cast<size_t>(row * width + column)] & 0xffffffU, 0U);
        }
      }
    }
  }
}

TEST_F(ScreenOnDisplay, IsWholeAgainAfterItWasIconifiedOrCovered) {
  Television().Show("menu", "Two", kList);
  const Picture before = Shot();
  observer_->Cover(canvas_->Window());
  Television().Show("volume", "40");
  Shot();
  Television().Hide("volume");
  observer_->Uncover();
  TurnLoopUntil([&] { return Shot() == before; });
  observer_->Iconify(canvas_->Window());
  Television().Show("volume", "40");
  TurnLoop();
  Television().Hide("volume");
  observer_->Restore(canvas_->Window());
  TurnLoopUntil([&] { return observer_->IsVisible(canvas_->Window()) && Shot() == before; });
}

TEST_F(ScreenOnDisplay, ShowsTheMousePointerWhenItMovesAndHidesItByWayOfTheLibrary) {
  const unsigned long window = canvas_->Window();
  ecore_x_window_focus(canvas_->Window());
  const Pointer pointer(canvas_->Window());
  TurnLoopUntil([&] { return observer_->HasFocus(window); });
  lumio_cursor_show_after_movement();
  TurnLoopUntil([&] { return !observer_->IsPointerDrawn(); });
  observer_->MovePointer(window, 100, 100);
  observer_->MovePointer(window, 110, 110);
  TurnLoopUntil([&] { return observer_->IsPointerDrawn(); });
  lumio_cursor_show_after_movement();
  TurnLoopUntil([&] { return !observer_->IsPointerDrawn(); });
}

KeyJourney Journey(int number) {
  KeyJourney journey;
  journey.time = 1000 + number;
  journey.key = "F" + std::to_string(number);
  journey.press = number % 2 == 0;
  journey.source = 4;
  journey.device = "HWKeys";
  return journey;
}

TEST_F(ScreenOnDisplay, HasTheLastTenKeysOnTheOverlay) {
  Television().Show("keys", "the last ten keys");
  for (int number = 1; number <= 12; ++number) {
    KeyJourney journey = Journey(number);
    if (number == 12) {
      journey.asked = {"menu", "volume"};
      journey.taker = "volume";
      journey.duration = 0.0125;
    } else if (number == 11) {
      journey.device = "";
      journey.asked = {"menu"};
    } else {
      journey.unasked = "dropped: burst";
    }
    Television().ShowKey(journey);
  }
  EXPECT_THAT(screen_->Keys().Row(0),
              testing::EndsWith("  F12  press  HWKeys  asked menu, volume  taken by volume  12.500 ms"));
  EXPECT_THAT(screen_->Keys().Row(1), HasSubstr("  F11  release  other device  asked menu  taken by nobody  "));
  EXPECT_THAT(screen_->Keys().Row(2), HasSubstr("  F10  press  HWKeys  asked nobody  dropped: burst  -"));
  EXPECT_THAT(screen_->Keys().Row(9), HasSubstr("  F3  release  "));
}

// A row of the overlay, from the newest on.
Evas_Object *KeyRow(const Canvas &canvas, unsigned number) {
  Eina_List *rows = evas_object_box_children_get(edje_object_part_object_get(canvas.Theme(), "keys:rows"));
  auto *row = static_cast<Evas_Object *>(eina_list_nth(rows, number));
  eina_list_free(rows);
  return row;
}

TEST_F(ScreenOnDisplay, WritesTheOverlayWhenItIsShown) {
  const auto written = [&] {
    TurnLoop();
    const char *key = edje_object_part_text_get(KeyRow(*canvas_, 0), "key");
    return std::string(key ? key : "");
  };
  Television().ShowKey(Journey(1));
  EXPECT_EQ(written(), "");
  Television().Show("keys", "the last ten keys");
  TurnLoopUntil([&] { return written() == "F1"; });
  Television().ShowKey(Journey(2));
  TurnLoopUntil([&] { return written() == "F2"; });
  Television().Hide("keys");
  Television().ShowKey(Journey(3));
  EXPECT_EQ(written(), "F2");
}

TEST_F(ScreenOnDisplay, ColoursTheKeysOnTheOverlay) {
  const auto state = [&](unsigned row, const char *part) -> std::string {
    return edje_object_part_state_get(KeyRow(*canvas_, row), part, nullptr);
  };
  EXPECT_EQ(state(0, "newest"), "here");
  EXPECT_EQ(state(1, "newest"), "default");
  Television().Show("keys", "the last ten keys");
  KeyJourney taken = Journey(2);
  taken.asked = {"menu", "volume"};
  taken.taker = "volume";
  KeyJourney dropped = Journey(3);
  dropped.unasked = "dropped: burst";
  KeyJourney passed_on = Journey(4);
  passed_on.unasked = "passed on: factory aging mode";
  KeyJourney declined = Journey(5);
  declined.asked = {"menu"};
  const struct {
    const KeyJourney &journey;
    const char *outcome, *asked, *kind;
  } keys[] = {{taken, "taken", "default", "default"},       {dropped, "dropped", "dropped", "release"},
              {taken, "taken", "default", "default"}, // on a row that had another colour
              {passed_on, "dropped", "dropped", "default"}, {declined, "default", "default", "release"},
              {dropped, "dropped", "dropped", "release"}};
  for (const auto &[journey, outcome, asked, kind] : keys) {
    Television().ShowKey(journey);
    Shot(); // draws the row
    EXPECT_EQ(state(0, "outcome"), outcome);
    EXPECT_EQ(state(0, "asked"), asked);
    EXPECT_EQ(state(0, "key"), kind);
    EXPECT_EQ(state(0, "kind"), kind);
  }
}

TEST_F(ScreenOnDisplay, MayGoBeforeTheOverlayIsWritten) {
  Television().Show("keys", "the last ten keys");
  TurnLoop();
  Television().ShowKey(Journey(1));
  Television().ShowKey(Journey(2));
  screen_.reset();
  TurnLoop();
}

// --- What moves ------------------------------------------------------------------------------------------------------

class MovingScreen : public ScreenOnDisplay {
protected:
  MovingScreen() : ScreenOnDisplay(false) {}

  std::string OnCard(const char *part) const { return edje_object_part_text_get(card_->Object(), part); }

  // Where the mark is that moves across the card.
  int Mark() const {
    int x = 0;
    edje_object_part_geometry_get(card_->Object(), "second", &x, nullptr, nullptr, nullptr);
    return x;
  }

  // Whether the mark moves before the clock shows another second.
  bool DoesMarkMove() {
    const int before = Mark();
    const std::string time = OnCard("clock");
    TurnLoopUntil([&] { return OnCard("clock") != time || Mark() != before; });
    return Mark() != before;
  }
};

TEST_F(MovingScreen, HasATestCardWithChannelAndClockThatMovesWhileItCanBeSeen) {
  EXPECT_EQ(OnCard("channel"), "Channel 1");
  Television().Show("channel", "2");
  EXPECT_EQ(OnCard("channel"), "Channel 2");
  EXPECT_THAT(OnCard("clock"), testing::ContainsRegex("^[0-9]{2}:[0-9]{2}:[0-9]{2}$"));
  EXPECT_TRUE(DoesMarkMove());
  Television().Show("light", "red");
  EXPECT_FALSE(DoesMarkMove());
  Television().Show("picture", "no signal");
  Television().Show("light", "green");
  EXPECT_FALSE(DoesMarkMove());
  Television().Show("picture", "moving");
  EXPECT_TRUE(DoesMarkMove());
}

// --- Pictures of the window ------------------------------------------------------------------------------------------

// Reads a file with the canvas.
Picture Load(const std::string &file, const Canvas &canvas) {
  Evas_Object *image = evas_object_image_add(evas_object_evas_get(canvas.Theme()));
  evas_object_image_file_set(image, file.c_str(), nullptr);
  Picture picture;
  evas_object_image_size_get(image, &picture.width, &picture.height);
  const auto *pixels = static_cast<const unsigned *>(evas_object_image_data_get(image, EINA_FALSE));
  const size_t stride = static_cast<size_t>(evas_object_image_stride_get(image)) / sizeof *pixels;
  for (int row = 0; row < picture.height; ++row) {
    const unsigned *first = pixels + static_cast<size_t>(row) * stride;
    picture.pixels.insert(picture.pixels.end(), first, first + picture.width);
  }
  evas_object_del(image);
  return picture;
}

TEST_F(ScreenOnDisplay, SavesWhatIsInTheWindow) {
  const lumio::TemporaryDirectory directory;
  Television().Show("captions", "Here is the news.");
  ASSERT_TRUE(canvas_->Save(directory / "picture.png"));
  const Picture saved = Load(directory / "picture.png", *canvas_);
  const Picture shot = Shot();
  ASSERT_EQ(saved.width, shot.width);
  ASSERT_EQ(saved.height, shot.height);
  EXPECT_TRUE(Difference(saved, shot).IsEmpty());
  EXPECT_FALSE(Difference(saved, empty_).IsEmpty());
  EXPECT_FALSE(canvas_->Save(directory / "none/picture.png"));
}

TEST_F(ScreenOnDisplay, SavesThePartOfALargeWindowThatIsOnTheScreen) {
  int width = 0;
  int height = 0;
  ecore_x_window_size_get(ecore_x_window_root_first_get(), &width, &height);
  observer_->Resize(canvas_->Window(), width + 200, height + 100);
  TurnLoopUntil([&] {
    int now = 0;
    ecore_x_window_size_get(canvas_->Window(), &now, nullptr);
    return now == width + 200;
  });
  const lumio::TemporaryDirectory directory;
  const std::string file = directory / "picture.png";
  ASSERT_TRUE(canvas_->Save(file));
  const Picture saved = Load(file, *canvas_);
  EXPECT_EQ(saved.width, width);
  EXPECT_EQ(saved.height, height);
}

} // namespace
