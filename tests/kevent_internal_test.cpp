// What the exported functions cannot reach: the library's records are looked at and set here.
#include "kevent_fixture.h"

// Last, since X takes names that GoogleTest uses.
#include "../kevent/src/kevent.cpp" // NOLINT(bugprone-suspicious-include)

using testing::Each;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

namespace {

constexpr char kNotInitialised[] = "16 manager is not initialized";

} // namespace

class ManagerTeardown : public KeventTest {};

TEST_F(ManagerTeardown, RefusesWithoutAReference) {
  _kevent_manager_fini();
  EXPECT_THAT(TakeLog(), ElementsAre("16 no reference count, failed to fini"));
  EXPECT_EQ(g_kmgr.ref_count, 0);
}

TEST_F(ManagerTeardown, OnlyCountsDownWhileThereAreOthers) {
  Open("first");
  Add(Open("second"), "handler");
  _kevent_manager_fini();
  EXPECT_EQ(g_kmgr.ref_count, 1);
  EXPECT_THAT(TakeJournal(), IsEmpty());
  Press();
  EXPECT_THAT(TakeJournal(), testing::Contains("handler"));
}

// The domains' own records are lost: nobody owns them any more. Their handlers are released.
TEST_F(ManagerTeardown, ForgetsEverything) {
  lumio_kevent *first = Open("first");
  lumio_kevent *second = Open("second");
  lumio_kevent_handler *handler = nullptr;
  for (int priority = 0; priority < kPriorities; ++priority) {
    handler = Add(first, "handler", priority).handle;
    Add(second, "handler", priority, LUMIO_KEVENT_RELEASE);
  }
  Press();
  ClearLog();
  journal.clear();
  g_kmgr.ref_count = 1;
  _kevent_manager_fini();
  EXPECT_THAT(TakeLog(), ElementsAre(kNotInitialised, kNotInitialised)); // a line per domain
  EXPECT_THAT(TakeJournal(), ElementsAre("handler del", "handler del", "handler del", "enterer del"));
  const KeventManager zeroed{};
  EXPECT_EQ(memcmp(&g_kmgr, &zeroed, sizeof zeroed), 0);
  lumio_kevent_handler_del(handler);
  lumio_kevent_fini(first);
  EXPECT_THAT(TakeLog(), ElementsAre(kNotInitialised, kNotInitialised));
  lumio_kevent_init("again");
  lumio_kevent_handler_del(handler);
  EXPECT_EQ(LogMessages().back(), "16 Invalid kevent");
  for (lumio_kevent *lost : {first, second}) {
    eina_list_free(lost->handlers);
    free(lost->name);
    free(lost);
  }
}

TEST_F(ManagerTeardown, DeletesOnlyWhatWasAdded) {
  g_kmgr.ref_count = 1;
  _kevent_manager_fini();
  EXPECT_THAT(TakeJournal(), IsEmpty());
}

// The handler for releases comes and goes with the one for presses.
TEST_F(ManagerTeardown, InitAddsOnlyWhatIsAbsent) {
  const auto init_again = [] {
    g_kmgr.ref_count = 0;
    journal.clear();
    lumio_kevent_init("again");
    return TakeJournal();
  };
  lumio_kevent_init("first");
  EXPECT_THAT(init_again(), IsEmpty());
  g_kmgr.generic_handler = nullptr;
  EXPECT_THAT(init_again(), ElementsAre("handler add " + std::to_string(ECORE_X_EVENT_GENERIC)));
  g_kmgr.key_down_handler = nullptr;
  EXPECT_THAT(init_again(), ElementsAre("handler add " + std::to_string(ECORE_EVENT_KEY_DOWN),
                                        "handler add " + std::to_string(ECORE_EVENT_KEY_UP)));
  g_kmgr.idle_enterer = nullptr;
  EXPECT_THAT(init_again(), ElementsAre("enterer add"));
  EXPECT_EQ(LogCount("2 XInput Extension isn't supported."), 5); // asked each time
}

class Collection : public KeventTest {};

TEST_F(Collection, RefusesWithoutAReference) {
  _gc();
  ASSERT_THAT(LogLines(), SizeIs(1));
  EXPECT_EQ(LogLines()[0].message, "manager is not initialized");
  EXPECT_EQ(LogLines()[0].function, "_gc");
  EXPECT_EQ(LogLines()[0].file, "kevent.cpp");
}

TEST_F(Collection, WalksOnlyWhenSomethingWasMarked) {
  lumio_kevent *kevent = Open();
  Probe &probe = Add(kevent, "deletes itself");
  probe.action = [&] { lumio_kevent_handler_del(probe.handle); };
  EXPECT_FALSE(g_has_marked);
  Press();
  EXPECT_FALSE(g_has_marked);
  EXPECT_THAT(kevent->handlers, testing::IsNull());
}

class InternalState : public KeventTest {};

TEST_F(InternalState, BurstLimitNeedsABusyLoop) {
  Add(Open(), "handler");
  g_key_cb_count = 5;
  g_busy_flag = false;
  Ecore_Event_Key key{};
  _key_cb(nullptr, ECORE_EVENT_KEY_DOWN, &key);
  EXPECT_EQ(LogCount("16 skip _key_cb .."), 0);
  EXPECT_EQ(g_key_cb_count, 6);
  EXPECT_TRUE(g_busy_flag);
  _key_cb(nullptr, ECORE_EVENT_KEY_DOWN, &key);
  EXPECT_EQ(LogCount("16 skip _key_cb .."), 1);
  EXPECT_EQ(g_key_cb_count, 6);
  EXPECT_EQ(_enterer_cb(nullptr), ECORE_CALLBACK_RENEW);
  EXPECT_EQ(g_key_cb_count, 0);
  EXPECT_FALSE(g_busy_flag);
}

TEST_F(InternalState, OpeningADomainForgetsThatTheLastKeyWasAPress) {
  Open();
  Press();
  EXPECT_EQ(g_kmgr.last_handled_is_down, 1);
  Open();
  EXPECT_EQ(g_kmgr.last_handled_is_down, 0);
}

TEST_F(InternalState, AnIgnoredPressAndADroppedReleaseEachKeepTheirDispatchOpen) {
  Open();
  IgnoreAPress();
  EXPECT_EQ(g_kmgr.dispatch_depth, 1);
  Release("Return");
  EXPECT_EQ(g_kmgr.dispatch_depth, 2);
  Release("XF86RaiseChannel");
  EXPECT_EQ(g_kmgr.dispatch_depth, 2);
}

// Nodes without a handler, and handlers without a domain or a callback, are passed over.
TEST_F(InternalState, TheWalkSkipsWhatIsIncomplete) {
  lumio_kevent *kevent = Open();
  lumio_kevent_handler no_domain{};
  no_domain.cb = [](lumio_kevent *, lumio_kevent_type, void *, void *) { return 0; };
  lumio_kevent_handler no_callback{};
  no_callback.kevent = kevent;
  Eina_List **list = &g_kmgr.handler_lists[3];
  Add(kevent, "first");
  *list = eina_list_append(*list, &no_domain);
  *list = eina_list_append(*list, &no_callback);
  *list = eina_list_append(*list, &no_callback);
  eina_list_data_set(eina_list_last(*list), nullptr);
  Add(kevent, "last");
  Press();
  EXPECT_THAT(TakeJournal(), ElementsAre("mark [lumio] begin _key_cb", "first", "last", "mark [lumio] end _key_cb"));
}

// A handler whose record was overwritten is refused like a bad argument.
TEST_F(InternalState, ADamagedHandlerIsNotDeleted) {
  lumio_kevent *kevent = Open();
  lumio_kevent_handler *handler = Add(kevent, "handler").handle;
  const lumio_kevent_handler intact = *handler;
  int damages = 0;
  const auto expect_refused = [&](auto damage) {
    damage();
    lumio_kevent_handler_del(handler);
    *handler = intact;
    ++damages;
    EXPECT_THAT(LogMessages(), SizeIs(damages));
  };
  expect_refused([&] { handler->kevent = nullptr; });
  expect_refused([&] { handler->cb = nullptr; });
  expect_refused([&] { handler->priority = kPriorities; });
  expect_refused([&] { handler->priority = -1; });
  expect_refused([&] { handler->type = 2; });
  expect_refused([&] { handler->type = -1; });
  EXPECT_THAT(TakeLog(), Each("16 Invalid argument"));
  lumio_kevent_handler_del(handler);
  EXPECT_THAT(TakeLog(), IsEmpty());
}

TEST_F(InternalState, TheEventMaskIsAllocatedOnce) {
  fake_x.display = FakeDisplay();
  Open();
  const unsigned char *mask = input_device_info.event_mask.mask;
  EXPECT_EQ(init_x_input_extension(), 1);
  EXPECT_EQ(input_device_info.event_mask.mask, mask);
  fake_x.has_extension = false;
  EXPECT_EQ(init_x_input_extension(), 0);
}
