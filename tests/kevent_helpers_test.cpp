// The cursor property and the application's cache flags.
#include "journal.h"
#include "kevent_fixture.h"

using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

constexpr char kNoDisplay[] = "16 failed to get display";
constexpr char kInvalidated[] = "16 invalidate cachelist...";

} // namespace

// --- lumio_cursor_show_after_movement --------------------------------------------------------------------------------

class CursorHelper : public KeventTest {};

TEST_F(CursorHelper, SetsThePropertyOfTheFocusedWindow) {
  fake_x.display = FakeDisplay();
  fake_x.focus = 1234;
  lumio_cursor_show_after_movement();
  EXPECT_THAT(TakeJournal(), ElementsAre("atom E_SHOW_CURSOR_AFTER_MOVEMENT", "focus", "property 4711 of 1234: 1"));
  EXPECT_THAT(TakeLog(), IsEmpty());
}

TEST_F(CursorHelper, ChangesNothingWithoutAFocusedWindow) {
  fake_x.display = FakeDisplay();
  lumio_cursor_show_after_movement();
  EXPECT_THAT(TakeJournal(), ElementsAre("atom E_SHOW_CURSOR_AFTER_MOVEMENT", "focus"));
  EXPECT_THAT(TakeLog(), ElementsAre(kNoDisplay));
}

TEST_F(CursorHelper, AsksNothingWithoutADisplay) {
  fake_x.focus = 1234;
  lumio_cursor_show_after_movement();
  EXPECT_THAT(TakeJournal(), IsEmpty());
  EXPECT_THAT(TakeLog(), ElementsAre(kNoDisplay));
}

// --- lumio_kevent_cache_list_set -------------------------------------------------------------------------------------

class CacheList : public KeventTest {
protected:
  void SetUp() override {
    KeventTest::SetUp();
    fake_x.display = FakeDisplay();
    domain = Open();
    lumio_kevent_cache_list_set(&list);
  }

  // Raises both flags; Fell() and Stand() tell whether the library has lowered them since.
  void Raise() { first = second = true; }
  bool Fell() const { return !first && !second; }
  bool Stand() const { return first && second; }

  lumio_kevent *domain = nullptr;
  bool first = true;
  bool second = true;
  std::vector<bool *> list = {&first, &second};
};

TEST_F(CacheList, IsInvalidatedByEveryKeyThatIsDispatched) {
  Press();
  EXPECT_TRUE(Fell());
  EXPECT_EQ(LogMessages().back(), kInvalidated);
  Raise();
  Release();
  EXPECT_TRUE(Fell());
  EXPECT_EQ(LogCount(kInvalidated), 2);
}

TEST_F(CacheList, IsInvalidatedAfterTheKeyWasHandled) {
  Probe &probe = Add(domain, "handler");
  probe.result = 0;
  probe.action = [&] { EXPECT_TRUE(Stand()); };
  Press();
  EXPECT_TRUE(Fell());
  const std::vector<std::string> log = TakeLog();
  EXPECT_EQ(log[log.size() - 2], "16 Return key [type: 0]  press was handled by [domain], priority[3].");
  EXPECT_EQ(log.back(), kInvalidated);
}

TEST_F(CacheList, IsInvalidatedAfterTheTimeOfTheKeyWasTaken) {
  Ecore_Event_Key key = {};
  key.keyname = "Return";
  Add(domain, "handler");
  fake_clock.on_read = [&] { Note(Stand() ? "time" : "time, too late"); };
  CallBack(ECORE_EVENT_KEY_DOWN, ECORE_EVENT_KEY_DOWN, &key);
  Raise();
  CallBack(ECORE_EVENT_KEY_UP, ECORE_EVENT_KEY_UP, &key);
  fake_clock.on_read = nullptr;
  EXPECT_THAT(TakeJournal(), ElementsAre("time", "mark [lumio] begin _key_cb", "handler", "mark [lumio] end _key_cb",
                                         "time", "time", "mark [lumio] end _key_cb", "time"));
}

TEST_F(CacheList, IsNotTouchedByKeysThatAreNotDispatched) {
  fake_vconf.values["db/FactoryApp/Aging"] = 1;
  Press();
  fake_vconf.values["db/FactoryApp/Aging"] = 0;
  EXPECT_TRUE(Stand());
  IgnoreAPress();
  EXPECT_EQ(LogCount(kInvalidated), 1); // by the press that was handled
  Raise();
  Press("Return", kPowerOn + 1000);
  Release();
  EXPECT_TRUE(Stand());
  EXPECT_EQ(LogCount("2 key released ignored"), 1);
}

TEST_F(CacheList, IsNotTouchedAfterItWasSetToNull) {
  lumio_kevent_cache_list_set(nullptr);
  Press();
  EXPECT_TRUE(Stand());
  EXPECT_EQ(LogCount(kInvalidated), 0);
}

TEST_F(CacheList, IsReadWhenTheKeyIsHandled) {
  bool third = true;
  list = {&third};
  Press();
  EXPECT_FALSE(third);
  EXPECT_TRUE(Stand());
}

TEST_F(CacheList, MayBeEmptyOrHoldNull) {
  list.clear();
  Press();
  EXPECT_EQ(LogCount(kInvalidated), 1);
  list = {nullptr, &first};
  Press();
  EXPECT_FALSE(first);
  EXPECT_EQ(LogCount(kInvalidated), 2);
}

TEST_F(CacheList, MayBeChangedByAHandler) {
  Probe &probe = Add(domain, "handler");
  probe.action = [] { lumio_kevent_cache_list_set(nullptr); };
  Press();
  EXPECT_TRUE(Stand());
}

TEST_F(CacheList, NeedsNoDomain) {
  lumio_kevent_fini(domain);
  Press();
  EXPECT_TRUE(Fell());
}
