// How the modules of the viewer receive keys.
#include "key_domain.h"
#include "key_watch.h"

#include <Ecore_Input.h>
#include <lumio-host/testing.h>

#include <gmock/gmock.h>

#include <cstdlib>

#include "key_name.h"
#include "key_screen.h"
#include "text.h"

using lumio::testing::TurnLoop;
using testing::ElementsAre;

namespace {

TEST(ViewerKeys, MayHaveNoName) {
  KeyScreen screen;
  KeyJournal journal(screen);
  KeyDomain domain("module", journal);
  const KeySenders senders;
  const KeyWatch watch(journal, senders);
  std::vector<std::string> asked;
  domain.OnPress(3, [&](const std::string &key) {
    asked.push_back(key);
    return true;
  });
  ecore_event_add(ECORE_EVENT_KEY_DOWN, calloc(1, sizeof(Ecore_Event_Key)), nullptr, nullptr);
  TurnLoop();
  EXPECT_THAT(asked, ElementsAre(""));
  ASSERT_EQ(screen.journeys.size(), 1U);
  EXPECT_EQ(screen.journeys[0].key, "");
  EXPECT_EQ(screen.journeys[0].taker, "module");
}

struct Typed {
  const char *name; // of the key, whatever is typed with it
  const char *key;  // symbol with the modifiers
  const char *string;
  unsigned modifiers;
  const char *symbol; // that modules see
};

TEST(KeySymbol, IsWhatTheKeyboardTypes) {
  const Typed keys[] = {{"equal", "plus", "+", ECORE_EVENT_MODIFIER_SHIFT, "+"}, // of an American keyboard
                        {"plus", "plus", "+", 0, "+"},                           // of a German one
                        {"KP_Add", "KP_Add", "+", 0, "+"},
                        {"ampersand", "1", "1", ECORE_EVENT_MODIFIER_SHIFT, "1"}, // of a French one
                        {"KP_End", "KP_1", "1", 0, "1"},
                        {"m", "M", "M", ECORE_EVENT_MODIFIER_SHIFT, "m"},
                        {"m", "m", nullptr, 0, "m"},
                        {"m", "M", nullptr, ECORE_EVENT_MODIFIER_SHIFT, "m"},
                        {"Up", "Up", nullptr, 0, "Up"},
                        {"Return", "Return", "\r", 0, "Return"},
                        {"space", "space", " ", 0, "space"},
                        {"Delete", "Delete", "\x7f", 0, "Delete"},
                        {"Tab", "ISO_Left_Tab", "\t", ECORE_EVENT_MODIFIER_SHIFT, "ISO_Left_Tab"},
                        {"c", "c", "\x03", ECORE_EVENT_MODIFIER_CTRL, "Ctrl+c"},
                        {"q", "q", "q", ECORE_EVENT_MODIFIER_ALT, "Alt+q"},
                        {"q", "q", "q", ECORE_EVENT_MODIFIER_WIN, "Super+q"},
                        {"XF86AudioRaiseVolume", "XF86AudioRaiseVolume", nullptr, 0, "XF86AudioRaiseVolume"},
                        {"XF86Red", "r", "r", 0, "XF86Red"},
                        {"F5", nullptr, nullptr, 0, "F5"},
                        {nullptr, nullptr, nullptr, 0, ""}};
  for (const Typed &typed : keys) {
    Ecore_Event_Key event = {};
    event.keyname = typed.name;
    event.key = typed.key;
    event.string = typed.string;
    event.modifiers = typed.modifiers;
    EXPECT_EQ(KeySymbol(&event), typed.symbol);
  }
}

TEST(Printable, LeavesTextAndReplacesTheRest) {
  const std::pair<std::string, std::string> texts[] = {
      {"Tatort: \xc3\x84pfel \xe2\x99\xaa", "Tatort: \xc3\x84pfel \xe2\x99\xaa"},
      {"two\nlines\tand\r", "two lines and "},
      {std::string("a\0b", 3), "a\xef\xbf\xbd"
                               "b"},
      {"\x1b[2J", "\xef\xbf\xbd[2J"},
      {"\xc2\x9b", "\xef\xbf\xbd"},
      {"\xe2\x80\xae", "\xef\xbf\xbd"},
      {"\xff\xfe", "\xef\xbf\xbd\xef\xbf\xbd"},
      {"", ""}};
  for (const auto &[text, printable] : texts) {
    EXPECT_EQ(Printable(text), printable);
    EXPECT_TRUE(IsText(Printable(text)));
  }
  EXPECT_TRUE(IsText("two\nlines"));
  EXPECT_FALSE(IsText("\x01"));
  EXPECT_FALSE(IsText("\xff"));
}

} // namespace
