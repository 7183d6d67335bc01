// States that the exported functions cannot reach. The tests read and write the records directly.
#include "kevent_fixture.h"

#include <algorithm>
#include <cstring>
#include <vector>

#include "fake_memory.h"

// Last, since X takes names that GoogleTest uses.
#include "key_manager.h"
#include "key_source.h"

using lumio::g_kmgr;
using lumio::KeventManager;
using lumio::kPriorities;
using testing::Each;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::IsNull;
using testing::NotNull;
using testing::SizeIs;

namespace {

constexpr char kNoDomain[] = "16 calloc failed";
constexpr char kNotInitialised[] = "16 manager is not initialized";

} // namespace

class ManagerTeardown : public KeventTest {
protected:
  // Opens a domain for whose record there is no memory, while the manager counts `references` others.
  static void FailToOpen(int references) {
    g_kmgr.ref_count = references;
    ClearLog();
    journal.clear();
    FailAllocation(1);
    EXPECT_THAT(lumio_kevent_init("no memory"), IsNull());
    FailAllocation(0);
  }
};

TEST_F(ManagerTeardown, RefusesWithoutAReference) {
  FailToOpen(-1);
  EXPECT_THAT(TakeLog(), ElementsAre(kNoDomain, "16 no reference count, failed to fini"));
  EXPECT_EQ(g_kmgr.ref_count, 0);
}

TEST_F(ManagerTeardown, OnlyCountsDownWhileThereAreOthers) {
  Open("first");
  Add(Open("second"), "handler");
  FailToOpen(2);
  EXPECT_EQ(g_kmgr.ref_count, 2);
  EXPECT_THAT(TakeJournal(), IsEmpty());
  Press();
  EXPECT_THAT(TakeJournal(), testing::Contains("handler"));
}

// The teardown releases the handlers. It loses the domains' records, so the test frees them.
TEST_F(ManagerTeardown, ForgetsEverything) {
  lumio_kevent *first = Open("first");
  lumio_kevent *second = Open("second");
  lumio_kevent_handler *handler = nullptr;
  for (int priority = 0; priority < kPriorities; ++priority) {
    handler = Add(first, "handler", priority).handle;
    Add(second, "handler", priority, LUMIO_KEVENT_RELEASE);
  }
  Press();
  const ReleaseWatch released(handler);
  FailToOpen(0);
  EXPECT_EQ(released.Count(), 1);
  EXPECT_THAT(TakeLog(), ElementsAre("2 XInput Extension isn't supported.", kNoDomain, kNotInitialised,
                                     kNotInitialised)); // a line per domain
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
  fake_ecore.absent = true;
  FailToOpen(0);
  EXPECT_THAT(TakeJournal(), ElementsAre("handler add " + std::to_string(ECORE_X_EVENT_GENERIC),
                                         "handler add " + std::to_string(ECORE_EVENT_KEY_DOWN),
                                         "handler add " + std::to_string(ECORE_EVENT_KEY_UP), "enterer add"));
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
  g_kmgr.key_up_handler = nullptr;
  EXPECT_THAT(init_again(), IsEmpty());
  g_kmgr.idle_enterer = nullptr;
  EXPECT_THAT(init_again(), ElementsAre("enterer add"));
  EXPECT_EQ(LogCount("2 XInput Extension isn't supported."), 6); // asked each time
}

class Collection : public KeventTest {};

TEST_F(Collection, RefusesWithoutAReference) {
  Add(Open(), "handler").action = [] {
    g_kmgr.ref_count = 0;
    ClearLog();
  };
  Press();
  ASSERT_THAT(LogLines(), SizeIs(1));
  EXPECT_EQ(LogLines()[0].message, "manager is not initialized");
  EXPECT_EQ(LogLines()[0].function, "_gc");
  EXPECT_EQ(LogLines()[0].file, "kevent.cpp");
}

TEST_F(Collection, WalksOnlyAfterADeletion) {
  lumio_kevent *kevent = Open();
  Probe &marked = Add(kevent, "marked by hand");
  Probe &deleted = Add(kevent, "deletes itself");
  marked.handle->deleted = true;
  Press();
  EXPECT_EQ(eina_list_count(kevent->handlers), 2U);
  deleted.action = [&] { lumio_kevent_handler_del(deleted.handle); };
  Press();
  EXPECT_THAT(kevent->handlers, IsNull());
  Add(kevent, "marked after the collection").handle->deleted = true;
  Press();
  EXPECT_EQ(eina_list_count(kevent->handlers), 1U);
}

class InternalState : public KeventTest {};

TEST_F(InternalState, AnIgnoredPressAndADroppedReleaseEachKeepTheirDispatchOpen) {
  Open();
  IgnoreAPress();
  EXPECT_EQ(g_kmgr.dispatch_depth, 1);
  Release("Return");
  EXPECT_EQ(g_kmgr.dispatch_depth, 2);
  Release("XF86RaiseChannel");
  EXPECT_EQ(g_kmgr.dispatch_depth, 2);
}

// The walk skips links without a handler, and handlers without a domain or a callback.
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

// A handler whose record was overwritten is refused as a bad argument.
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
  const unsigned char *mask = lumio::input_device_info.event_mask.mask;
  EXPECT_THAT(mask, NotNull());
  EXPECT_EQ(lumio::init_x_input_extension(), 1);
  EXPECT_EQ(lumio::input_device_info.event_mask.mask, mask);
  fake_x.has_extension = false;
  EXPECT_EQ(lumio::init_x_input_extension(), 0);
}

// --- The records -----------------------------------------------------------------------------------------------------

namespace {

template <class... Fields> void ExpectInOrder(const Fields &...fields) {
  const std::vector<const void *> addresses{&fields...};
  std::vector<const void *> sorted = addresses;
  std::sort(sorted.begin(), sorted.end());
  EXPECT_EQ(addresses, sorted);
}

} // namespace

TEST(KeyRecords, OfTheManagerHaveTheirFieldsInOrder) {
  ExpectInOrder(g_kmgr.ref_count, g_kmgr.generic_handler, g_kmgr.key_down_handler, g_kmgr.key_up_handler,
                g_kmgr.idle_enterer, g_kmgr.handler_lists, g_kmgr.domains, g_kmgr.dispatch_depth, g_kmgr.timestamp_init,
                g_kmgr.app_cb_time_init, g_kmgr.ignore_threshold, g_kmgr.timestamp_last_handled_key_down,
                g_kmgr.timestamp_last_handled_key_up, g_kmgr.press_ignored, g_kmgr.last_handled_is_down,
                g_kmgr.source_type, g_kmgr.generic_event_seen);
  const lumio_kevent domain = {};
  ExpectInOrder(domain.name, domain.handlers, domain.deleted);
  const lumio_kevent_handler handler = {};
  ExpectInOrder(handler.kevent, handler.type, handler.priority, handler.cb, handler.data, handler.deleted);
}

TEST(KeyRecords, OfTheDevicesHaveTheirFieldsInOrder) {
  const lumio::InputDeviceInfo &info = lumio::input_device_info;
  ExpectInOrder(info.xi_opcode, info.display, info.root, info.event_mask.deviceid, info.event_mask.mask_len,
                info.event_mask.mask, info.virtual_core_keyboard_id, info.hwkeys_dev_id, info.advanced_touch_dev_id,
                info.floating_touch_dev_id, info.rc_dev_id, info.panel_key_dev_id, info.function_osd_dev_id);
}
