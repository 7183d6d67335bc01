// Domains and handlers: opening, adding, deleting and closing, outside a dispatch and during one.
#include "kevent_fixture.h"

#include <climits>
#include <utility>

using testing::AllOf;
using testing::Contains;
using testing::Each;
using testing::ElementsAre;
using testing::Field;
using testing::IsEmpty;
using testing::IsNull;
using testing::Not;
using testing::NotNull;
using testing::SizeIs;

namespace {

constexpr char kInvalidArgument[] = "16 Invalid argument";
constexpr char kInvalidKevent[] = "16 Invalid kevent";
constexpr char kNotInitialised[] = "16 manager is not initialized";
constexpr char kNoSuchHandle[] = "16 Cannot find give handle";

int Decline(lumio_kevent *, lumio_kevent_type, void *, void *) { return 1; }

} // namespace

// The names of the called handlers, without the trace marks around them.
class Registry : public KeventTest {
protected:
  static std::vector<std::string> Asked() {
    std::vector<std::string> asked;
    for (const std::string &line : TakeJournal()) {
      if (line.rfind("mark ", 0) != 0) {
        asked.push_back(line);
      }
    }
    return asked;
  }
};

class KeventInit : public Registry {};
class KeventFini : public Registry {};
class KeventHandlerAdd : public Registry {};
class KeventHandlerDel : public Registry {};

// --- lumio_kevent_init -----------------------------------------------------------------------------------------------

TEST_F(KeventInit, RefusesANullDomainAndInstallsNothing) {
  EXPECT_THAT(lumio_kevent_init(nullptr), IsNull());
  EXPECT_THAT(TakeLog(), ElementsAre("16 Domain is not exist"));
  EXPECT_THAT(journal, IsEmpty());
  lumio_kevent_fini(Forbidden<lumio_kevent>());
  EXPECT_THAT(TakeLog(), ElementsAre(kNotInitialised));
}

TEST_F(KeventInit, RefusesANullDomainAndKeepsTheKeyTimes) {
  Open();
  Press();
  lumio_kevent_init(nullptr);
  ClearLog();
  Press();
  EXPECT_EQ(LogCount("16 init timestamp"), 0);
}

TEST_F(KeventInit, FirstInstallsInTheMainLoopThenAsksTheDisplay) {
  fake_x.display = FakeDisplay();
  fake_x.devices = {{2, "Virtual core pointer", XIMasterPointer}};
  EXPECT_THAT(lumio_kevent_init("first"), NotNull());
  EXPECT_THAT(journal, ElementsAre("handler add " + std::to_string(ECORE_X_EVENT_GENERIC),
                                   "handler add " + std::to_string(ECORE_EVENT_KEY_DOWN),
                                   "handler add " + std::to_string(ECORE_EVENT_KEY_UP), "enterer add",
                                   "XQueryExtension XInputExtension", "XIQueryVersion 2.0", "XIQueryDevice 0",
                                   "XISelectEvents window 77 device 0 mask 2 8 0"));
  EXPECT_THAT(fake_ecore.handlers, Each(Field(&FakeEcore::Handler::data, IsNull())));
  EXPECT_EQ(fake_ecore.handlers[1].callback, fake_ecore.handlers[2].callback);
  EXPECT_THAT(LogMessages(), IsEmpty());
}

TEST_F(KeventInit, LaterOnesInstallNothing) {
  fake_x.display = FakeDisplay();
  Open("first");
  EXPECT_THAT(lumio_kevent_init("second"), NotNull());
  EXPECT_THAT(journal, IsEmpty());
  EXPECT_THAT(LogMessages(), IsEmpty());
}

// An application that never initialises a part of Ecore receives no events of that part, and everything else.
TEST_F(KeventInit, WorksWithoutEcoreX) {
  HushEfl({"eina_safety"}); // complains about the missing event type
  ECORE_X_EVENT_GENERIC = ECORE_EVENT_NONE;
  Add(Open(), "handler");
  Press();
  EXPECT_THAT(Asked(), ElementsAre("handler"));
}

TEST_F(KeventInit, WorksWithoutEcoresInputEvents) {
  HushEfl({"eina_safety"});
  ECORE_EVENT_KEY_DOWN = ECORE_EVENT_KEY_UP = ECORE_EVENT_NONE;
  EXPECT_THAT(lumio_kevent_init("first"), NotNull());
}

// The application may initialise Ecore_X and Ecore_Input after the library is installed.
TEST_F(KeventInit, LaterOnesDoNotAddWhatWasMissing) {
  HushEfl({"eina_safety"});
  const int generic = std::exchange(ECORE_X_EVENT_GENERIC, ECORE_EVENT_NONE);
  const int key_down = std::exchange(ECORE_EVENT_KEY_DOWN, ECORE_EVENT_NONE);
  const int key_up = std::exchange(ECORE_EVENT_KEY_UP, ECORE_EVENT_NONE);
  EXPECT_THAT(lumio_kevent_init("first"), NotNull());
  ECORE_X_EVENT_GENERIC = generic;
  ECORE_EVENT_KEY_DOWN = key_down;
  ECORE_EVENT_KEY_UP = key_up;
  journal.clear();
  ClearLog();
  EXPECT_THAT(lumio_kevent_init("second"), NotNull());
  EXPECT_THAT(TakeLog(), IsEmpty());
  EXPECT_THAT(journal, IsEmpty());
}

TEST_F(KeventInit, WorksWithoutEcore) {
  fake_ecore.absent = true;
  EXPECT_THAT(lumio_kevent_init("first"), NotNull());
  EXPECT_THAT(TakeLog(), ElementsAre("2 XInput Extension isn't supported."));
}

// The nth of the three handlers and the idle enterer that the first domain asks Ecore for.
class EcoreRefuses : public KeventInit, public testing::WithParamInterface<int> {};

TEST_P(EcoreRefuses, AndTheDomainOpensWithoutIt) {
  fake_ecore.refuse_nth = GetParam();
  lumio_kevent *kevent = lumio_kevent_init("first");
  EXPECT_THAT(kevent, NotNull());
  EXPECT_THAT(TakeJournal(), AllOf(SizeIs(4), Not(Contains(testing::EndsWith(" del")))));
  EXPECT_THAT(TakeLog(), ElementsAre("2 XInput Extension isn't supported."));
  Add(kevent, "press");
  Add(kevent, "release", 3, LUMIO_KEVENT_RELEASE);
  Press();
  Release();
  std::vector<std::string> expected = {"press", "release"};
  if (GetParam() == 2 || GetParam() == 3) {
    expected.erase(expected.begin() + (GetParam() - 2));
  }
  EXPECT_EQ(Asked(), expected);
  EXPECT_THAT(lumio_kevent_init("second"), NotNull());
  EXPECT_THAT(TakeJournal(), IsEmpty()); // not asked again
}

INSTANTIATE_TEST_SUITE_P(Requests, EcoreRefuses, testing::Values(1, 2, 3, 4));

// Without the idle enterer, nothing ends a burst.
TEST_F(KeventInit, WithoutAnIdleEntererTheBurstLimitStays) {
  fake_ecore.refuse_nth = 4;
  lumio_kevent_init("first");
  Press();
  Press();
  EXPECT_EQ(LogCount("16 skip _key_cb .."), 0);
  Press();
  EXPECT_EQ(LogCount("16 skip _key_cb .."), 1);
}

TEST_F(KeventInit, CopiesTheName) {
  char name[] = "volume";
  lumio_kevent *kevent = Open(name);
  name[0] = 'V';
  Add(kevent, "handler");
  Press();
  EXPECT_EQ(LogCount("2 [volume] Return key press handling...."), 1);
}

TEST_F(KeventInit, AllowsDomainsOfTheSameName) {
  lumio_kevent *first = Open("same");
  lumio_kevent *second = Open("same");
  EXPECT_NE(first, second);
  Add(first, "of the first");
  Add(second, "of the second");
  Press();
  EXPECT_THAT(Asked(), ElementsAre("of the first", "of the second"));
}

TEST_F(KeventInit, WorksDuringADispatch) {
  Probe &opener = Add(Open(), "opener");
  opener.action = [&] {
    opener.action = nullptr;
    Add(lumio_kevent_init("inner"), "inner");
  };
  Press();
  EXPECT_THAT(Asked(), ElementsAre("opener", "inner"));
}

// --- lumio_kevent_fini -----------------------------------------------------------------------------------------------

TEST_F(KeventFini, RefusesWhenNothingWasOpened) {
  lumio_kevent_fini(nullptr);
  EXPECT_THAT(TakeLog(), ElementsAre(kNotInitialised));
  lumio_kevent_fini(Forbidden<lumio_kevent>());
  EXPECT_THAT(TakeLog(), ElementsAre(kNotInitialised));
}

TEST_F(KeventFini, RefusesNull) {
  Open();
  lumio_kevent_fini(nullptr);
  EXPECT_THAT(TakeLog(), ElementsAre(kInvalidArgument));
}

TEST_F(KeventFini, RefusesAForeignPointer) {
  Open();
  lumio_kevent_fini(Forbidden<lumio_kevent>());
  EXPECT_THAT(TakeLog(), ElementsAre(kNoSuchHandle));
}

TEST_F(KeventFini, RefusesAClosedDomain) {
  lumio_kevent *kevent = Open();
  lumio_kevent_fini(kevent);
  EXPECT_THAT(TakeLog(), IsEmpty());
  lumio_kevent_fini(kevent);
  EXPECT_THAT(TakeLog(), ElementsAre(kNoSuchHandle));
}

TEST_F(KeventFini, IgnoresWhatIsNotOpenDuringADispatch) {
  Probe &probe = Add(Open(), "probe");
  lumio_kevent *closed = Open("closed");
  lumio_kevent_fini(closed);
  probe.action = [&] {
    ClearLog();
    lumio_kevent_fini(closed);
    lumio_kevent_fini(Forbidden<lumio_kevent>());
    lumio_kevent_fini(nullptr);
    EXPECT_THAT(TakeLog(), ElementsAre(kInvalidArgument));
  };
  Press();
  EXPECT_THAT(Asked(), ElementsAre("probe"));
}

TEST_F(KeventFini, DeletesTheHandlersOfThisDomainOnly) {
  lumio_kevent *closed = Open("closed");
  lumio_kevent *kept = Open("kept");
  std::vector<lumio_kevent_handler *> handlers;
  for (int priority = 0; priority <= 6; ++priority) {
    handlers.push_back(Add(closed, "closed", priority).handle);
    Add(kept, "kept", priority);
    handlers.push_back(Add(closed, "closed", priority, LUMIO_KEVENT_RELEASE).handle);
  }
  lumio_kevent_fini(closed);
  EXPECT_THAT(TakeLog(), IsEmpty());
  Press();
  EXPECT_THAT(Asked(), AllOf(SizeIs(7), Each("kept")));
  Release();
  EXPECT_THAT(Asked(), IsEmpty());
  ClearLog();
  for (lumio_kevent_handler *handler : handlers) {
    lumio_kevent_handler_del(handler);
  }
  EXPECT_THAT(TakeLog(), AllOf(SizeIs(14), Each(kInvalidKevent)));
}

TEST_F(KeventFini, LeavesTheManagerInstalledAfterTheLastDomain) {
  lumio_kevent *last = Open("last");
  lumio_kevent_fini(last);
  lumio_kevent_fini(last);
  EXPECT_THAT(TakeLog(), ElementsAre(kNoSuchHandle));
  EXPECT_THAT(TakeJournal(), IsEmpty());
  Press();
  EXPECT_THAT(TakeJournal(), ElementsAre("mark [lumio] begin _key_cb", "mark [lumio] end _key_cb"));
  Add(Open("new"), "of the new");
  EXPECT_THAT(TakeJournal(), IsEmpty());
  Press();
  EXPECT_THAT(Asked(), ElementsAre("of the new"));
}

// A marked domain stays open until the dispatch ends: its handlers are called, and it can be given more of them and be
// closed again.
TEST_F(KeventFini, OnlyMarksDuringADispatch) {
  lumio_kevent *marked = Open("marked");
  Probe &closer = Add(marked, "closer", 1);
  Add(marked, "later", 2);
  closer.action = [&] {
    lumio_kevent_fini(marked);
    lumio_kevent_fini(marked);
    Add(marked, "added", 3);
  };
  Press();
  EXPECT_THAT(Asked(), ElementsAre("closer", "later", "added"));
  EXPECT_EQ(LogCount(kNoSuchHandle), 0);
  EXPECT_EQ(LogCount(kInvalidKevent), 0);
  ClearLog();
  lumio_kevent_fini(marked);
  EXPECT_THAT(TakeLog(), ElementsAre(kNoSuchHandle));
  Press();
  EXPECT_THAT(Asked(), IsEmpty());
}

TEST_F(KeventFini, ReleasesSeveralMarkedDomainsAndTheirMarkedHandlers) {
  lumio_kevent *empty = Open("empty");
  lumio_kevent *kept = Open("kept");
  lumio_kevent *first = Open("first");
  lumio_kevent *second = Open("second");
  Probe &deleter = Add(kept, "deleter");
  lumio_kevent_handler *of_kept = Add(kept, "deleted").handle;
  lumio_kevent_handler *of_first = Add(first, "deleted").handle;
  Add(kept, "kept");
  deleter.action = [&] {
    deleter.action = nullptr;
    lumio_kevent_handler_del(of_kept);
    lumio_kevent_handler_del(of_first);
    lumio_kevent_fini(second);
    lumio_kevent_fini(first);
  };
  Press();
  EXPECT_THAT(Asked(), ElementsAre("deleter", "kept"));
  ClearLog();
  lumio_kevent_fini(empty); // still open
  EXPECT_THAT(TakeLog(), IsEmpty());
  lumio_kevent_fini(first);
  lumio_kevent_fini(second);
  lumio_kevent_handler_del(of_kept);
  lumio_kevent_handler_del(of_first);
  EXPECT_THAT(TakeLog(), ElementsAre(kNoSuchHandle, kNoSuchHandle, kInvalidKevent, kInvalidKevent));
  Press();
  EXPECT_THAT(Asked(), ElementsAre("deleter", "kept"));
}

// --- lumio_kevent_handler_add ----------------------------------------------------------------------------------------

struct BadArgument {
  const char *name;
  lumio_kevent_type type;
  int priority;
  bool with_kevent = true;
  bool with_callback = true;

  friend void PrintTo(const BadArgument &bad, std::ostream *out) { *out << bad.name; }
};

class KeventHandlerAddRefuses : public KeventHandlerAdd, public testing::WithParamInterface<BadArgument> {
protected:
  static lumio_kevent_handler *AddBadly(lumio_kevent *kevent) {
    const BadArgument &bad = GetParam();
    return lumio_kevent_handler_add(bad.with_kevent ? kevent : nullptr, bad.type, bad.priority,
                                    bad.with_callback ? Decline : nullptr, nullptr);
  }
};

TEST_P(KeventHandlerAddRefuses, WithAnOpenDomain) {
  EXPECT_THAT(AddBadly(Open()), IsNull());
  EXPECT_THAT(TakeLog(), ElementsAre(kInvalidArgument));
}

TEST_P(KeventHandlerAddRefuses, BeforeItLooksWhetherAnythingIsOpen) {
  EXPECT_THAT(AddBadly(Forbidden<lumio_kevent>()), IsNull());
  EXPECT_THAT(TakeLog(), ElementsAre(kInvalidArgument));
}

INSTANTIATE_TEST_SUITE_P(BadArguments, KeventHandlerAddRefuses,
                         testing::Values(BadArgument{"TypeAboveRelease", 2, 0}, BadArgument{"TypeNegative", -1, 0},
                                         BadArgument{"TypeLowest", INT_MIN, 0}, BadArgument{"PriorityAboveLast", 0, 7},
                                         BadArgument{"PriorityNegative", 0, -1},
                                         BadArgument{"PriorityHighest", 0, INT_MAX},
                                         BadArgument{"NoDomain", 0, 0, false},
                                         BadArgument{"NoCallback", 0, 0, true, false}),
                         [](const auto &test) { return test.param.name; });

TEST_F(KeventHandlerAdd, RefusesWhenNothingWasOpened) {
  EXPECT_THAT(lumio_kevent_handler_add(Forbidden<lumio_kevent>(), 0, 0, Decline, nullptr), IsNull());
  EXPECT_THAT(TakeLog(), ElementsAre(kNotInitialised));
}

TEST_F(KeventHandlerAdd, RefusesAForeignPointer) {
  Open();
  EXPECT_THAT(lumio_kevent_handler_add(Forbidden<lumio_kevent>(), 0, 0, Decline, nullptr), IsNull());
  EXPECT_THAT(TakeLog(), ElementsAre(kInvalidKevent));
}

TEST_F(KeventHandlerAdd, RefusesAClosedDomainAlsoDuringADispatch) {
  Probe &probe = Add(Open(), "probe");
  lumio_kevent *closed = Open("closed");
  lumio_kevent_fini(closed);
  probe.action = [&] {
    ClearLog();
    EXPECT_THAT(lumio_kevent_handler_add(closed, 0, 0, Decline, nullptr), IsNull());
    EXPECT_THAT(TakeLog(), ElementsAre(kInvalidKevent));
  };
  probe.action();
  Press();
  EXPECT_THAT(Asked(), ElementsAre("probe"));
}

TEST_F(KeventHandlerAdd, AcceptsEveryTypeAtEveryPriority) {
  lumio_kevent *kevent = Open();
  for (int priority = 6; priority >= 0; --priority) {
    const std::string name = std::to_string(priority);
    EXPECT_THAT(Add(kevent, ("press " + name).c_str(), priority, LUMIO_KEVENT_PRESS).handle, NotNull());
    EXPECT_THAT(Add(kevent, ("release " + name).c_str(), priority, LUMIO_KEVENT_RELEASE).handle, NotNull());
  }
  EXPECT_THAT(TakeLog(), IsEmpty());
  Press();
  EXPECT_THAT(Asked(), ElementsAre("press 0", "press 1", "press 2", "press 3", "press 4", "press 5", "press 6"));
  Release();
  EXPECT_THAT(Asked(),
              ElementsAre("release 0", "release 1", "release 2", "release 3", "release 4", "release 5", "release 6"));
}

TEST_F(KeventHandlerAdd, KeepsTheOrderOfRegistrationAcrossDomains) {
  lumio_kevent *one = Open("one");
  lumio_kevent *two = Open("two");
  Add(two, "first");
  Add(one, "second");
  Add(two, "third");
  Add(one, "fourth");
  Press();
  EXPECT_THAT(Asked(), ElementsAre("first", "second", "third", "fourth"));
}

TEST_F(KeventHandlerAdd, MayRegisterTheSameCallbackAndDataTwice) {
  lumio_kevent *kevent = Open();
  int calls = 0;
  const lumio_kevent_cb count = [](lumio_kevent *, lumio_kevent_type, void *, void *data) {
    return ++*static_cast<int *>(data);
  };
  lumio_kevent_handler *first = lumio_kevent_handler_add(kevent, 0, 0, count, &calls);
  lumio_kevent_handler *second = lumio_kevent_handler_add(kevent, 0, 0, count, &calls);
  EXPECT_NE(first, second);
  Press();
  EXPECT_EQ(calls, 2);
  lumio_kevent_handler_del(first);
  Press();
  EXPECT_EQ(calls, 3);
}

// The dispatch reaches handlers that are added to a list it has not finished.
TEST_F(KeventHandlerAdd, ReachesTheCurrentKeyUnlessItsListIsFinished) {
  lumio_kevent *kevent = Open();
  Probe &adder = Add(kevent, "adder", 3);
  adder.action = [&] {
    adder.action = nullptr;
    Add(kevent, "finished list", 2);
    Add(kevent, "same list", 3);
    Add(kevent, "later list", 4);
    Add(kevent, "other type", 4, LUMIO_KEVENT_RELEASE);
  };
  Press();
  EXPECT_THAT(Asked(), ElementsAre("adder", "same list", "later list"));
  Press();
  EXPECT_THAT(Asked(), ElementsAre("finished list", "adder", "same list", "later list"));
}

TEST_F(KeventHandlerAdd, AddedByTheLastOfItsListIsStillReachedEachTime) {
  lumio_kevent *kevent = Open();
  int left = 3;
  std::function<void()> add_one;
  add_one = [&] {
    if (left-- > 0) {
      Add(kevent, "added").action = add_one;
    }
  };
  Add(kevent, "adder").action = add_one;
  Press();
  EXPECT_THAT(Asked(), ElementsAre("adder", "added", "added", "added"));
}

TEST_F(KeventHandlerAdd, IsNotReachedOnceTheKeyIsConsumed) {
  lumio_kevent *kevent = Open();
  Probe &adder = Add(kevent, "adder");
  adder.result = 0;
  adder.action = [&] { Add(kevent, "added"); };
  Press();
  EXPECT_THAT(Asked(), ElementsAre("adder"));
}

// --- lumio_kevent_handler_del ----------------------------------------------------------------------------------------

TEST_F(KeventHandlerDel, RefusesNullWhetherOrNotAnythingIsOpen) {
  lumio_kevent_handler_del(nullptr);
  EXPECT_THAT(TakeLog(), ElementsAre(kInvalidArgument));
  Open();
  lumio_kevent_handler_del(nullptr);
  EXPECT_THAT(TakeLog(), ElementsAre(kInvalidArgument));
}

TEST_F(KeventHandlerDel, RefusesWhenNothingWasOpened) {
  lumio_kevent_handler_del(Forbidden<lumio_kevent_handler>());
  EXPECT_THAT(TakeLog(), ElementsAre(kNotInitialised));
}

TEST_F(KeventHandlerDel, RefusesAForeignPointer) {
  Open();
  lumio_kevent_handler_del(Forbidden<lumio_kevent_handler>());
  EXPECT_THAT(TakeLog(), ElementsAre(kInvalidKevent));
}

TEST_F(KeventHandlerDel, RefusesADeletedHandler) {
  lumio_kevent_handler *handler = Add(Open(), "deleted").handle;
  lumio_kevent_handler_del(handler);
  EXPECT_THAT(TakeLog(), IsEmpty());
  lumio_kevent_handler_del(handler);
  EXPECT_THAT(TakeLog(), ElementsAre(kInvalidKevent));
}

TEST_F(KeventHandlerDel, RefusesWhatIsGoneDuringADispatchToo) {
  lumio_kevent *kevent = Open();
  Probe &probe = Add(kevent, "probe");
  lumio_kevent_handler *gone = Add(kevent, "gone").handle;
  lumio_kevent_handler_del(gone);
  probe.action = [&] {
    ClearLog();
    lumio_kevent_handler_del(gone);
    lumio_kevent_handler_del(Forbidden<lumio_kevent_handler>());
    lumio_kevent_handler_del(nullptr);
    EXPECT_THAT(TakeLog(), ElementsAre(kInvalidKevent, kInvalidKevent, kInvalidArgument));
  };
  Press();
  EXPECT_THAT(Asked(), ElementsAre("probe"));
}

// Deletes the first, the middle or the last handler: the others keep their order.
class KeventHandlerDelAt : public KeventHandlerDel, public testing::WithParamInterface<int> {};

TEST_P(KeventHandlerDelAt, RemovesThisHandlerOnly) {
  lumio_kevent *kevent = Open();
  std::vector<std::string> expected;
  std::vector<lumio_kevent_handler *> handlers;
  for (const char *name : {"a", "b", "c"}) {
    handlers.push_back(Add(kevent, name).handle);
    expected.emplace_back(name);
  }
  expected.erase(expected.begin() + GetParam());
  lumio_kevent_handler_del(handlers[GetParam()]);
  Add(kevent, "d");
  expected.emplace_back("d");
  Press();
  EXPECT_EQ(Asked(), expected);
  ClearLog();
  lumio_kevent_fini(kevent); // walks the domain's own list, which holds no deleted handler
  EXPECT_THAT(TakeLog(), IsEmpty());
  Press();
  EXPECT_THAT(Asked(), IsEmpty());
}

INSTANTIATE_TEST_SUITE_P(Positions, KeventHandlerDelAt, testing::Values(0, 1, 2));

TEST_F(KeventHandlerDel, OnlyMarksDuringADispatch) {
  lumio_kevent *kevent = Open();
  Probe &deleter = Add(kevent, "deleter");
  Probe &deleted = Add(kevent, "deleted");
  deleter.action = [&] {
    ClearLog();
    lumio_kevent_handler_del(deleted.handle);
    lumio_kevent_handler_del(deleted.handle);
    EXPECT_THAT(TakeLog(), IsEmpty());
  };
  Press();
  EXPECT_THAT(Asked(), ElementsAre("deleter"));
  ClearLog();
  lumio_kevent_handler_del(deleted.handle); // already released
  EXPECT_THAT(TakeLog(), ElementsAre(kInvalidKevent));
}

TEST_F(KeventHandlerDel, LetsAHandlerDeleteItselfTheNextThePreviousOrAll) {
  lumio_kevent *kevent = Open();
  Probe &previous = Add(kevent, "previous", 2);
  Probe &itself = Add(kevent, "itself");
  Probe &next = Add(kevent, "next");
  Probe &all = Add(kevent, "all", 4);
  Probe &last = Add(kevent, "last", 4);
  itself.action = [&] {
    lumio_kevent_handler_del(itself.handle);
    lumio_kevent_handler_del(next.handle);
  };
  Press();
  EXPECT_THAT(Asked(), ElementsAre("previous", "itself", "all", "last"));
  all.action = [&] {
    lumio_kevent_handler_del(previous.handle);
    lumio_kevent_handler_del(all.handle);
    lumio_kevent_handler_del(last.handle);
  };
  Press();
  EXPECT_THAT(Asked(), ElementsAre("previous", "all"));
  Press();
  EXPECT_THAT(Asked(), IsEmpty());
}
