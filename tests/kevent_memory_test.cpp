// Short memory: each allocation of each function fails in turn, and the library works afterwards.
#include "kevent_fixture.h"

#include "fake_memory.h"

using testing::AllOf;
using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::IsNull;
using testing::IsSupersetOf;
using testing::Not;
using testing::NotNull;
using testing::StartsWith;

namespace {

constexpr char kNoDomain[] = "16 calloc failed";
constexpr char kNoHandler[] = "16 Calloc failed";
constexpr char kNoExtension[] = "2 XInput Extension isn't supported.";
constexpr char kNotInitialised[] = "16 manager is not initialized";

// A handler that allocates nothing.
int Count(lumio_kevent *, lumio_kevent_type, void *, void *data) { return ++*static_cast<int *>(data); }

} // namespace

class ShortMemory : public KeventTest {
protected:
  void ExpectKeysToWork(lumio_kevent *kevent) {
    int asked = 0;
    lumio_kevent_handler *press = lumio_kevent_handler_add(kevent, LUMIO_KEVENT_PRESS, 6, Count, &asked);
    lumio_kevent_handler *release = lumio_kevent_handler_add(kevent, LUMIO_KEVENT_RELEASE, 6, Count, &asked);
    for (int i = 0; i < 3; ++i) { // more than one burst
      Press();
      Release();
    }
    EXPECT_EQ(asked, 6);
    lumio_kevent_handler_del(press);
    lumio_kevent_handler_del(release);
    ClearLog();
  }
};

// Without a display, whose event mask would be one more allocation.
TEST_F(ShortMemory, ForTheFirstDomainUndoesTheInstallation) {
  lumio_kevent *kevent = nullptr;
  int failures = 0;
  FailEachAllocation([&] { kevent = lumio_kevent_init("first"); },
                     [&](int) {
                       if (kevent) {
                         return; // only its name is missing
                       }
                       ++failures;
                       EXPECT_THAT(TakeJournal(), ElementsAre(StartsWith("handler add"), StartsWith("handler add"),
                                                              StartsWith("handler add"), "enterer add", "handler del",
                                                              "handler del", "handler del", "enterer del"));
                       EXPECT_THAT(TakeLog(), ElementsAre(kNoExtension, kNoDomain));
                       lumio_kevent_fini(Forbidden<lumio_kevent>());
                       EXPECT_THAT(TakeLog(), ElementsAre(kNotInitialised));
                       Press();
                       Release();
                       EXPECT_THAT(TakeLog(), IsEmpty()); // Ecore has nothing left to call
                     });
  EXPECT_GE(failures, 2); // the record and its place in the list of domains
  ASSERT_THAT(kevent, NotNull());
  ExpectKeysToWork(kevent);
}

TEST_F(ShortMemory, ForItsNameLeavesADomainNameless) {
  Open("first");
  FailAllocation(3); // after the record and its place in the list of domains
  lumio_kevent *kevent = lumio_kevent_init("second");
  EXPECT_EQ(AllocationsMade(), 3);
  FailAllocation(0);
  ASSERT_THAT(kevent, NotNull());
  EXPECT_THAT(TakeLog(), IsEmpty());
  Probe &probe = Add(kevent, "handler");
  probe.result = 0;
  Press();
  EXPECT_THAT(TakeLog(), IsSupersetOf({"2 [(null)] Return key press handling....",
                                       "16 Return key [type: 0]  press was handled by [(null)], priority[3]."}));
  lumio_kevent_fini(kevent);
  lumio_kevent_fini(kevent);
  EXPECT_THAT(TakeLog(), ElementsAre("16 Cannot find give handle"));
}

TEST_F(ShortMemory, LeavesALateKeyToOthers) {
  FailAllocation(1);
  EXPECT_THAT(lumio_kevent_init("first"), IsNull());
  FailAllocation(0);
  ClearLog();
  Ecore_Event_Key key{};
  EXPECT_EQ(CallBack(ECORE_EVENT_KEY_DOWN, ECORE_EVENT_KEY_DOWN, &key), ECORE_CALLBACK_PASS_ON);
  EXPECT_THAT(TakeLog(), ElementsAre(kNotInitialised));
  EXPECT_EQ(CallBack(ECORE_EVENT_KEY_UP, ECORE_EVENT_KEY_UP, nullptr), ECORE_CALLBACK_PASS_ON);
  EXPECT_THAT(TakeLog(), ElementsAre(kNotInitialised));
  fake_vconf.values["db/FactoryApp/Aging"] = 1;
  EXPECT_EQ(CallBack(ECORE_EVENT_KEY_UP, ECORE_EVENT_KEY_UP, &key), ECORE_CALLBACK_PASS_ON);
  EXPECT_THAT(TakeLog(), ElementsAre("16 do not process the key in aging mode.."));
}

// The event mask is the first allocation after the query for devices.
TEST_F(ShortMemory, ForTheEventMaskOnlyLeavesTheDeviceEventsOut) {
  fake_x.display = FakeDisplay();
  fake_x.devices = {{2, "Virtual core pointer", XIMasterPointer}};
  fake_x.during_query = [] { FailAllocation(1); };
  lumio_kevent *kevent = lumio_kevent_init("first");
  FailAllocation(0);
  ASSERT_THAT(kevent, NotNull());
  EXPECT_THAT(LogFunctions(), ElementsAre("init_x_input_extension"));
  EXPECT_THAT(TakeLog(), ElementsAre(kNoDomain));
  EXPECT_THAT(TakeJournal(), AllOf(Contains("XIQueryDevice 0"), Not(Contains(StartsWith("XISelectEvents")))));
  ExpectKeysToWork(kevent);
}

TEST_F(ShortMemory, ForALaterDomainChangesNothing) {
  lumio_kevent *first = Open("first");
  Press();
  lumio_kevent *second = nullptr;
  int failures = 0;
  FailEachAllocation([&] { second = lumio_kevent_init("second"); },
                     [&](int) {
                       if (second) {
                         return; // only its name is missing
                       }
                       ++failures;
                       EXPECT_EQ(LogMessages().back(), kNoDomain);
                       ClearLog();
                       ExpectKeysToWork(first);
                       EXPECT_EQ(LogCount("16 init timestamp"), 0);
                     });
  EXPECT_EQ(failures, 2); // the record and its place in the list of domains
  ASSERT_THAT(second, NotNull());
  EXPECT_THAT(TakeLog(), IsEmpty());
  ExpectKeysToWork(second);
}

TEST_F(ShortMemory, InHandlerAddAddsNothing) {
  lumio_kevent *kevent = Open();
  int asked = 0;
  int failures = 0;
  for (int handlers = 1; handlers <= 2; ++handlers) { // the first handler on its lists, then a second one
    lumio_kevent_handler *handler = nullptr;
    FailEachAllocation([&] { handler = lumio_kevent_handler_add(kevent, LUMIO_KEVENT_PRESS, 3, Count, &asked); },
                       [&](int) {
                         ++failures;
                         EXPECT_THAT(handler, IsNull());
                         EXPECT_THAT(TakeLog(), ElementsAre(kNoHandler));
                         asked = 0;
                         Press();
                         EXPECT_EQ(asked, handlers - 1);
                         ClearLog();
                       });
    ASSERT_THAT(handler, NotNull());
    EXPECT_THAT(TakeLog(), IsEmpty());
  }
  // The record, its links on two lists, the lists' own records, and its entry among all handlers.
  EXPECT_GE(failures, 10);
  asked = 0;
  Press();
  EXPECT_EQ(asked, 2);
  lumio_kevent_fini(kevent);
  Press();
  EXPECT_EQ(asked, 2);
}

TEST_F(ShortMemory, InHandlerAddDuringADispatchAddsNothing) {
  lumio_kevent *kevent = Open();
  int asked = 0;
  Probe &adder = Add(kevent, "adder");
  adder.action = [&] {
    FailEachAllocation([&] { lumio_kevent_handler_add(kevent, LUMIO_KEVENT_PRESS, 3, Count, &asked); },
                       [&](int) { EXPECT_THAT(TakeLog(), Contains(kNoHandler)); });
  };
  Press();
  EXPECT_EQ(asked, 1); // only the handler that was added in the end
}

TEST_F(ShortMemory, DoesNotMatterToAnythingElse) {
  fake_x.display = FakeDisplay();
  fake_x.focus = 1234;
  lumio_kevent *kevent = Open();
  bool flag = true;
  std::vector<bool *> list = {&flag};
  int asked = 0;
  lumio_kevent_handler *handler = lumio_kevent_handler_add(kevent, LUMIO_KEVENT_PRESS, 3, Count, &asked);
  Ecore_Event_Key key{};
  key.keyname = "Return";
  XIDeviceChangedEvent changed{};
  changed.deviceid = 3;

  FailAllocation(1);
  lumio_kevent_cache_list_set(&list);
  CallBack(ECORE_EVENT_KEY_DOWN, ECORE_EVENT_KEY_DOWN, &key);
  CallBack(ECORE_EVENT_KEY_UP, ECORE_EVENT_KEY_UP, &key);
  SendGeneric(fake_x.opcode, XI_DeviceChanged, &changed);
  lumio_event_source_type_get();
  lumio_cursor_show_after_movement();
  lumio_kevent_handler_del(handler);
  lumio_kevent_fini(kevent);
  EXPECT_EQ(AllocationsMade(), 0);
  FailAllocation(0);
  EXPECT_EQ(asked, 1);
  EXPECT_FALSE(flag);
}
