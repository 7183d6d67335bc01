// How the modules of the viewer receive keys.
#include "key_domain.h"
#include "key_watch.h"

#include <Ecore_Input.h>
#include <lumio-host/testing.h>

#include <gmock/gmock.h>

#include <cstdlib>

#include "key_screen.h"

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

} // namespace
