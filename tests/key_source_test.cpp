// The source of a key: the requests to the X server, and the effect of its device events.
#include "kevent_fixture.h"

using testing::AllOf;
using testing::Contains;
using testing::Each;
using testing::ElementsAre;
using testing::Field;
using testing::IsEmpty;
using testing::Not;

namespace {

constexpr char kNoExtension[] = "2 XInput Extension isn't supported.";
constexpr char kNoDevice[] = "16 There is no queried XI device.";
constexpr char kNoData[] =
    "2 Generic event data is not available or the event was sent via XSendEvent (and will be ignored) !";
constexpr char kSelected[] = "XISelectEvents window 77 device 0 mask 2 8 0";

constexpr int kRemote = 0;
constexpr int kPanel = 1;
constexpr int kTouch = 2;
constexpr int kFunctionOsd = 3;
constexpr int kOther = 4;

constexpr int kCoreKeyboard = 3;

// Device ids of the television's server.
constexpr int kHwKeysId = 7;
constexpr int kTouchKeyboardId = 8;
constexpr int kFloatingTouchId = 9;
constexpr int kRcId = 10;
constexpr int kPanelId = 11;
constexpr int kFunctionOsdId = 12;

const FakeDevice kCorePointer = {2, "Virtual core pointer", XIMasterPointer};
const FakeDevice kFunctionOsdKeyboard = {kFunctionOsdId, "function-osd", XISlaveKeyboard};

std::vector<FakeDevice> Television() {
  return {kCorePointer,
          {kCoreKeyboard, "Virtual core keyboard", XIMasterKeyboard},
          {kHwKeysId, "HWKeys", XISlaveKeyboard, {kRcId}},
          {kTouchKeyboardId, "Advanced Touch REMOTE", XISlaveKeyboard},
          {kFloatingTouchId, "Advanced Touch REMOTE", XIFloatingSlave},
          {kRcId, "qm27x410 rc device", XIFloatingSlave},
          {kPanelId, "qm27x410 panel key device", XIFloatingSlave}};
}

// Matches a line that names the function, and the key events' front door as its file.
auto IsFrom(const char *function) {
  return AllOf(Field(&LogLine::file, "kevent.cpp"), Field(&LogLine::function, function));
}

std::string Learnt(const char *what, int id) {
  return std::string("2 ") + what + ".. saving device id : " + std::to_string(id) + "..";
}

} // namespace

class Devices : public KeventTest {
protected:
  void SetUp() override {
    KeventTest::SetUp();
    fake_x.display = FakeDisplay();
    fake_x.devices = Television();
  }

  // Announces that the keys of the keyboard `device` now come from `source`.
  static void ChangeSource(int source, int device = kCoreKeyboard) {
    XIDeviceChangedEvent event{};
    event.deviceid = device;
    event.sourceid = source;
    EXPECT_EQ(SendGeneric(fake_x.opcode, XI_DeviceChanged, &event), ECORE_CALLBACK_PASS_ON);
  }

  static int TypeOfSource(int source) {
    ChangeSource(source);
    return lumio_event_source_type_get();
  }

  // Announces that devices have come or gone: one entry for each of `flags`.
  static void ChangeHierarchy(const std::vector<int> &flags = {XIDeviceEnabled}) {
    std::vector<XIHierarchyInfo> entries;
    for (const int flag : flags) {
      entries.push_back({kFunctionOsdId, kCoreKeyboard, XISlaveKeyboard, True, flag});
    }
    XIHierarchyEvent event{};
    event.num_info = static_cast<int>(entries.size());
    event.info = entries.data();
    EXPECT_EQ(SendGeneric(fake_x.opcode, XI_HierarchyChanged, &event), ECORE_CALLBACK_PASS_ON);
  }

  // Presses a key and returns whether the staleness filter left it alone, as it does after a device event.
  static bool NextPressIsExempt() {
    ClearLog();
    Press();
    return testing::Matches(Not(Contains("2 cur = 1000.000000")))(TakeLog());
  }
};

// --- At the first domain ---------------------------------------------------------------------------------------------

class DeviceSetup : public Devices {
protected:
  // The requests to the X server.
  static std::vector<std::string> Requests() {
    std::vector<std::string> requests;
    for (const std::string &line : TakeJournal()) {
      if (line[0] == 'X') {
        requests.push_back(line);
      }
    }
    return requests;
  }

  void ExpectKeysToWork() {
    ClearLog();
    journal.clear();
    Add(Open(), "handler").result = 0;
    Press();
    EXPECT_THAT(TakeJournal(), Contains("handler"));
    EXPECT_EQ(LogMessages().back(), "16 Return key [type: 0]  press was handled by [domain], priority[3].");
  }
};

TEST_F(DeviceSetup, WithoutADisplayDoesNotAskForDevices) {
  fake_x.display = nullptr;
  lumio_kevent_init("first");
  EXPECT_THAT(Requests(), IsEmpty());
  EXPECT_THAT(TakeLog(), ElementsAre(kNoExtension));
  EXPECT_EQ(lumio_event_source_type_get(), 0);
  ExpectKeysToWork();
}

TEST_F(DeviceSetup, WithoutADisplayNoEventMakesItAsk) {
  fake_x.display = nullptr;
  Open();
  XIDeviceChangedEvent event{};
  event.deviceid = kCoreKeyboard;
  event.sourceid = 99;
  SendGeneric(-1, XI_DeviceChanged, &event);
  EXPECT_THAT(Requests(), IsEmpty());
  EXPECT_EQ(LogCount(kNoDevice), 1);
}

TEST_F(DeviceSetup, WithoutTheExtensionDoesNotAskForDevices) {
  fake_x.has_extension = false;
  lumio_kevent_init("first");
  EXPECT_THAT(Requests(), ElementsAre("XQueryExtension XInputExtension"));
  EXPECT_THAT(TakeLog(), ElementsAre(kNoExtension));
  ChangeSource(kTouchKeyboardId);
  EXPECT_THAT(TakeLog(), ElementsAre("2 Invalid event !(extension:131, evtype:1)"));
  EXPECT_EQ(lumio_event_source_type_get(), 0);
  ExpectKeysToWork();
}

TEST_F(DeviceSetup, WithoutTheVersionDoesNotAskForDevices) {
  fake_x.version_result = BadRequest;
  lumio_kevent_init("first");
  EXPECT_THAT(Requests(), ElementsAre("XQueryExtension XInputExtension", "XIQueryVersion 2.0"));
  EXPECT_THAT(TakeLog(), ElementsAre("2 Failed to query XI version."));
  ChangeSource(kTouchKeyboardId);
  EXPECT_THAT(TakeLog(), ElementsAre("2 Invalid event !(extension:131, evtype:1)"));
  ExpectKeysToWork();
}

class OtherVersionError : public DeviceSetup, public testing::WithParamInterface<int> {};

TEST_P(OtherVersionError, DoesNoHarm) {
  fake_x.version_result = GetParam();
  Open();
  EXPECT_EQ(TypeOfSource(kTouchKeyboardId), kTouch);
}

INSTANTIATE_TEST_SUITE_P(Errors, OtherVersionError, testing::Values(Success, BadValue, BadAccess, BadImplementation));

TEST_F(DeviceSetup, SelectsEventsAlsoWhenTheServerNamesNoDevice) {
  fake_x.query_fails = true;
  lumio_kevent_init("first");
  EXPECT_THAT(TakeLog(), ElementsAre(kNoDevice));
  EXPECT_THAT(Requests(), Contains(kSelected));
}

TEST_F(DeviceSetup, TakesAnEmptyListForNone) {
  fake_x.devices.clear();
  lumio_kevent_init("first");
  EXPECT_THAT(TakeLog(), ElementsAre(kNoDevice));
  EXPECT_THAT(Requests(), Contains(kSelected));
}

TEST_F(DeviceSetup, LearnsTheDevicesOfTheTelevision) {
  lumio_kevent_init("first");
  EXPECT_THAT(TakeLog(), ElementsAre(Learnt("XISlaveKeyboard : HWKeys slave device found", kHwKeysId),
                                     Learnt("Advanced : HWKeys slave device found", kTouchKeyboardId),
                                     Learnt("Advanced Touch REMOTE found", kFloatingTouchId),
                                     Learnt("XIFloatingSlave : Remocon device found", kRcId),
                                     Learnt("XIFloatingSlave : PANEL_KEY device found", kPanelId)));
}

TEST_F(DeviceSetup, FindsNamesWithinNamesWhateverTheirCase) {
  fake_x.devices = {{5, "acme hwKEYS (2)", XISlaveKeyboard},
                    {6, "The QM27X410 RC Device 1", XISlavePointer},
                    {7, "HWKey", XISlaveKeyboard}};
  lumio_kevent_init("first");
  EXPECT_THAT(TakeLog(), ElementsAre(Learnt("XISlaveKeyboard : HWKeys slave device found", 5),
                                     Learnt("XIFloatingSlave : Remocon device found", 6)));
}

TEST_F(DeviceSetup, TakesTheFirstNameThatFits) {
  fake_x.devices = {{5, "Advanced Touch REMOTE HWKeys", XISlaveKeyboard},
                    {6, "qm27x410 rc device Advanced Touch REMOTE", XIFloatingSlave},
                    {7, "qm27x410 panel key device qm27x410 rc device", XIFloatingSlave}};
  lumio_kevent_init("first");
  EXPECT_THAT(TakeLog(), ElementsAre(Learnt("XISlaveKeyboard : HWKeys slave device found", 5),
                                     Learnt("Advanced Touch REMOTE found", 6),
                                     Learnt("XIFloatingSlave : Remocon device found", 7)));
}

TEST_F(DeviceSetup, LearnsNothingFromADeviceOfAnotherUse) {
  fake_x.devices = {{5, "HWKeys", XIFloatingSlave},
                    {6, "HWKeys", XIMasterKeyboard},
                    {7, "qm27x410 rc device", XISlaveKeyboard},
                    {8, "qm27x410 panel key device", XISlaveKeyboard},
                    {9, "function-osd", XIFloatingSlave},
                    kFunctionOsdKeyboard};
  lumio_kevent_init("first");
  EXPECT_THAT(TakeLog(), IsEmpty());
}

TEST_F(DeviceSetup, LogsInTheNameOfTheSearch) {
  lumio_kevent_init("first");
  EXPECT_THAT(LogLines(), AllOf(Not(IsEmpty()), Each(IsFrom("get_id_for_known_devices"))));
}

TEST_F(DeviceSetup, LogsAMissingExtensionInItsOwnName) {
  fake_x.has_extension = false;
  lumio_kevent_init("first");
  EXPECT_THAT(LogLines(), ElementsAre(IsFrom("init_x_input_extension")));
}

TEST_F(DeviceSetup, LearnsADeviceThatIsDisabled) {
  fake_x.devices = {{5, "Advanced Touch REMOTE", XISlaveKeyboard, {}, false}};
  lumio_kevent_init("first");
  EXPECT_THAT(TakeLog(), ElementsAre(Learnt("Advanced : HWKeys slave device found", 5)));
}

class OtherUse : public DeviceSetup, public testing::WithParamInterface<int> {};

TEST_P(OtherUse, CountsAsFloating) {
  fake_x.devices = {{5, "Advanced Touch REMOTE", GetParam()}};
  lumio_kevent_init("first");
  EXPECT_THAT(TakeLog(), ElementsAre(Learnt("Advanced Touch REMOTE found", 5)));
}

INSTANTIATE_TEST_SUITE_P(Uses, OtherUse,
                         testing::Values(XIMasterPointer, XIMasterKeyboard, XISlavePointer, XIFloatingSlave));

TEST_F(DeviceSetup, KeepsTheLastOfSeveralDevices) {
  fake_x.devices.push_back({21, "Advanced Touch REMOTE", XISlaveKeyboard});
  Open();
  EXPECT_EQ(TypeOfSource(21), kTouch);
  EXPECT_EQ(TypeOfSource(kTouchKeyboardId), kOther);
}

// --- When the source of the core keyboard changes --------------------------------------------------------------------

class SourceChange : public Devices {
protected:
  static constexpr char kPanelSourceLogged[] = "2 sourceid:11,advanceed_touch_dev_id:8,hwkeys_dev_id:7,";
};

TEST_F(SourceChange, TellsEitherTouchRemote) {
  Open();
  EXPECT_EQ(TypeOfSource(kTouchKeyboardId), kTouch);
  EXPECT_EQ(TypeOfSource(99), kOther);
  EXPECT_EQ(TypeOfSource(kFloatingTouchId), kTouch);
}

TEST_F(SourceChange, TellsTheFunctionKeys) {
  fake_x.devices.insert(fake_x.devices.begin(), kFunctionOsdKeyboard);
  Open();
  EXPECT_EQ(TypeOfSource(kFunctionOsdId), kOther); // not known yet
  ChangeHierarchy();
  EXPECT_EQ(TypeOfSource(kFunctionOsdId), kFunctionOsd);
}

TEST_F(SourceChange, TellsAnUnknownDevice) {
  Open();
  EXPECT_EQ(TypeOfSource(99), kOther);
  EXPECT_EQ(TypeOfSource(kRcId), kOther); // not behind "HWKeys"
  EXPECT_EQ(TypeOfSource(kPanelId), kOther);
}

TEST_F(SourceChange, IsLoggedWithTheIdsItIsComparedWith) {
  Open();
  ChangeSource(kPanelId);
  EXPECT_THAT(TakeLog(), ElementsAre(kPanelSourceLogged));
  EXPECT_THAT(TakeJournal(), IsEmpty());
}

TEST_F(SourceChange, IsLoggedInTheNameOfTheDeviceCallback) {
  Open();
  ChangeSource(kPanelId);
  fake_x.devices.insert(fake_x.devices.begin(), kFunctionOsdKeyboard);
  ChangeHierarchy();
  ASSERT_EQ(LogLines().size(), 2U);
  EXPECT_THAT(LogLines(), Each(IsFrom("_cb_event_generic")));
}

TEST_F(SourceChange, ShowsInTheLineOfAHandledKey) {
  Add(Open(), "handler").result = 0;
  ChangeSource(kFloatingTouchId);
  Press();
  EXPECT_EQ(LogMessages().back(), "16 Return key [type: 2]  press was handled by [domain], priority[3].");
}

TEST_F(SourceChange, ShowsAtOnceWhenItComesWhileAHandlerIsAsked) {
  Probe &handler = Add(Open(), "handler");
  handler.result = 0;
  handler.action = [] { ChangeSource(kFloatingTouchId); };
  Press();
  EXPECT_EQ(LogMessages().back(), "16 Return key [type: 2]  press was handled by [domain], priority[3].");
}

TEST_F(SourceChange, IsNotForgottenWhenADomainOpens) {
  Open();
  ChangeSource(kFloatingTouchId);
  Open("another");
  EXPECT_EQ(lumio_event_source_type_get(), kTouch);
  EXPECT_TRUE(NextPressIsExempt());
}

struct KeySources {
  const char *name;
  std::vector<int> sources; // the sources of the key classes of "HWKeys"
  int type;

  friend void PrintTo(const KeySources &keys, std::ostream *out) { *out << keys.name; }
};

class BehindHwKeys : public SourceChange, public testing::WithParamInterface<KeySources> {};

TEST_P(BehindHwKeys, TheLastKeyClassTells) {
  fake_x.devices[2].key_sources = GetParam().sources;
  Open();
  EXPECT_EQ(TypeOfSource(kHwKeysId), GetParam().type);
  EXPECT_THAT(TakeJournal(), ElementsAre("XIQueryDevice 7"));
}

INSTANTIATE_TEST_SUITE_P(KeyClasses, BehindHwKeys,
                         testing::Values(KeySources{"Remote", {kRcId}, kRemote},
                                         KeySources{"Panel", {kPanelId}, kPanel},
                                         KeySources{"LastOfTwo", {kRcId, kPanelId}, kPanel},
                                         KeySources{"LastOfThree", {kPanelId, 99, kRcId}, kRemote},
                                         KeySources{"Unknown", {99}, kOther}, KeySources{"None", {}, kOther}),
                         [](const auto &test) { return test.param.name; });

TEST_F(SourceChange, TakesSilentHwKeysForTheRemoteWhileNoRemoteIsKnown) {
  fake_x.devices = {kCorePointer, {kHwKeysId, "HWKeys", XISlaveKeyboard}};
  Open();
  EXPECT_EQ(TypeOfSource(99), kOther);
  EXPECT_EQ(TypeOfSource(kHwKeysId), kRemote); // both ids are 0
}

TEST_F(SourceChange, SurvivesThatHwKeysIsGone) {
  Open();
  fake_x.devices.erase(fake_x.devices.begin() + 2);
  EXPECT_EQ(TypeOfSource(kHwKeysId), kOther);
  fake_x.query_fails = true;
  EXPECT_EQ(TypeOfSource(kHwKeysId), kOther);
}

TEST_F(SourceChange, TakesSourceZeroForTouchWhileATouchRemoteIsUnknown) {
  fake_x.devices = {kCorePointer};
  Open();
  EXPECT_EQ(TypeOfSource(0), kTouch);
}

// One device may be known in two roles, from before and after it was attached.
TEST_F(SourceChange, LooksForTouchThenFunctionKeysThenHwKeys) {
  fake_x.devices = {{5, "HWKeys", XISlaveKeyboard, {5}}, {5, "qm27x410 rc device", XIFloatingSlave}};
  Open();
  EXPECT_EQ(TypeOfSource(5), kRemote);
  fake_x.devices.insert(fake_x.devices.begin(), {5, "function-osd", XISlaveKeyboard});
  ChangeHierarchy();
  EXPECT_EQ(TypeOfSource(5), kFunctionOsd);
  fake_x.devices.push_back({5, "Advanced Touch REMOTE", XIFloatingSlave});
  EXPECT_EQ(TypeOfSource(5), kTouch);
}

TEST_F(SourceChange, TellsTheRemoteIfOneDeviceIsRemoteAndPanel) {
  fake_x.devices = {{5, "HWKeys", XISlaveKeyboard, {6}},
                    {6, "qm27x410 rc device", XIFloatingSlave},
                    {6, "qm27x410 panel key device", XIFloatingSlave}};
  Open();
  EXPECT_EQ(TypeOfSource(5), kRemote);
}

TEST_F(SourceChange, AsksForTheDevicesUntilATouchKeyboardIsKnown) {
  fake_x.devices = {kCorePointer};
  Open();
  fake_x.devices = Television();
  ChangeSource(99, kHwKeysId); // the event may be about any keyboard
  EXPECT_THAT(TakeJournal(), ElementsAre("XIQueryDevice 0"));
  EXPECT_EQ(LogCount(Learnt("Advanced : HWKeys slave device found", kTouchKeyboardId)), 1);
  ChangeSource(99);
  EXPECT_THAT(TakeJournal(), IsEmpty());
}

TEST_F(SourceChange, UsesWhatItHasJustLearnt) {
  fake_x.devices = {kCorePointer};
  Open();
  fake_x.devices = Television();
  EXPECT_EQ(TypeOfSource(kTouchKeyboardId), kTouch);
  EXPECT_EQ(LogMessages().back(), "2 sourceid:8,advanceed_touch_dev_id:8,hwkeys_dev_id:7,");
}

TEST_F(SourceChange, OfAnotherDeviceChangesNothingButExemptsTheNextPress) {
  Open();
  ChangeSource(kTouchKeyboardId);
  NextPressIsExempt();
  ClearLog();
  ChangeSource(99, kHwKeysId);
  EXPECT_THAT(TakeLog(), IsEmpty());
  EXPECT_EQ(lumio_event_source_type_get(), kTouch);
  EXPECT_TRUE(NextPressIsExempt());
}

TEST_F(SourceChange, ExemptsTheNextPressOnly) {
  Open();
  ChangeSource(99);
  EXPECT_TRUE(NextPressIsExempt());
  EXPECT_FALSE(NextPressIsExempt());
}

// --- When devices come and go ----------------------------------------------------------------------------------------

struct FirstDevice {
  const char *name;
  FakeDevice device;
  const char *learnt;

  friend void PrintTo(const FirstDevice &first, std::ostream *out) { *out << first.name; }
};

class HierarchyChange : public Devices {};
class HierarchyChangeLearns : public HierarchyChange, public testing::WithParamInterface<FirstDevice> {};

TEST_P(HierarchyChangeLearns, FromTheFirstDeviceOfTheServer) {
  Open();
  fake_x.devices.insert(fake_x.devices.begin(), GetParam().device);
  ChangeHierarchy();
  EXPECT_THAT(TakeLog(), ElementsAre(Learnt(GetParam().learnt, GetParam().device.id)));
  EXPECT_THAT(TakeJournal(), ElementsAre("XIQueryDevice 0"));
}

INSTANTIATE_TEST_SUITE_P(
    Devices, HierarchyChangeLearns,
    testing::Values(
        FirstDevice{"HwKeys", {31, "My hwkeys", XISlaveKeyboard}, "HWKeys found"},
        FirstDevice{
            "TouchKeyboard", {32, "Advanced Touch REMOTE", XISlaveKeyboard}, "Advanced : HWKeys slave device found"},
        FirstDevice{"FunctionOsd", {33, "function-osd", XISlaveKeyboard}, "function-osd device found"},
        FirstDevice{"FloatingTouch", {34, "Advanced Touch REMOTE", XIFloatingSlave}, "Advanced Touch REMOTE found"},
        FirstDevice{"Remote", {35, "qm27x410 rc device", XIFloatingSlave}, "XIFloatingSlave : Remocon device found"},
        FirstDevice{
            "Panel", {36, "qm27x410 panel key device", XISlavePointer}, "XIFloatingSlave : PANEL_KEY device found"},
        FirstDevice{
            "FirstNameThatFits", {37, "function-osd Advanced Touch REMOTE HWKeys", XISlaveKeyboard}, "HWKeys found"},
        FirstDevice{"SecondNameThatFits",
                    {38, "function-osd Advanced Touch REMOTE", XISlaveKeyboard},
                    "Advanced : HWKeys slave device found"}),
    [](const auto &test) { return test.param.name; });

TEST_F(HierarchyChange, ReplacesWhatWasKnown) {
  Open();
  fake_x.devices.insert(fake_x.devices.begin(), {41, "HWKeys", XISlaveKeyboard, {42}});
  ChangeHierarchy();
  fake_x.devices.insert(fake_x.devices.begin(), {42, "qm27x410 panel key device", XIFloatingSlave});
  ChangeHierarchy();
  EXPECT_EQ(TypeOfSource(41), kPanel);
  fake_x.devices.insert(fake_x.devices.begin(), {42, "qm27x410 rc device", XIFloatingSlave});
  ChangeHierarchy();
  EXPECT_EQ(TypeOfSource(41), kRemote);
  EXPECT_EQ(TypeOfSource(kHwKeysId), kOther);
}

// A stock server lists the core pointer first, so nothing is learnt from a new device.
TEST_F(HierarchyChange, IgnoresTheDeviceThatCame) {
  Open();
  fake_x.devices.push_back(kFunctionOsdKeyboard);
  ChangeHierarchy();
  EXPECT_THAT(TakeLog(), IsEmpty());
  EXPECT_EQ(TypeOfSource(kFunctionOsdId), kOther);
}

TEST_F(HierarchyChange, LooksOncePerDeviceThatWasEnabled) {
  Open();
  ChangeHierarchy({XIDeviceEnabled, XIDeviceDisabled, XISlaveAdded | XIDeviceEnabled, 0, XISlaveAttached});
  EXPECT_THAT(TakeJournal(), ElementsAre("XIQueryDevice 0", "XIQueryDevice 0"));
}

TEST_F(HierarchyChange, WithoutAnEnabledDeviceOnlyExemptsTheNextPress) {
  Open();
  ChangeHierarchy({0xff & ~XIDeviceEnabled}); // every other flag
  ChangeHierarchy({});
  EXPECT_THAT(TakeJournal(), IsEmpty());
  EXPECT_TRUE(NextPressIsExempt());
}

TEST_F(HierarchyChange, SurvivesThatTheServerNamesNoDevice) {
  Open();
  fake_x.query_fails = true;
  ChangeHierarchy();
  fake_x.query_fails = false;
  fake_x.devices.clear();
  ChangeHierarchy();
  EXPECT_THAT(TakeLog(), IsEmpty());
  EXPECT_TRUE(NextPressIsExempt());
}

// --- Events that are none of these -----------------------------------------------------------------------------------

class OtherEvent : public Devices {
protected:
  void SetUp() override {
    Devices::SetUp();
    Open();
    changed.deviceid = kCoreKeyboard;
    changed.sourceid = kTouchKeyboardId;
  }

  void ExpectNothingChanged() {
    EXPECT_EQ(lumio_event_source_type_get(), 0);
    EXPECT_THAT(TakeJournal(), IsEmpty());
    EXPECT_FALSE(NextPressIsExempt());
  }

  XIDeviceChangedEvent changed{};
};

TEST_F(OtherEvent, OfAnotherExtensionIsPassedOn) {
  EXPECT_EQ(SendGeneric(99, XI_DeviceChanged, &changed), ECORE_CALLBACK_PASS_ON);
  EXPECT_THAT(TakeLog(), ElementsAre("2 Invalid event !(extension:99, evtype:1)"));
  ExpectNothingChanged();
}

TEST_F(OtherEvent, OfAnotherExtensionWithoutDataIsKnownByItsExtension) {
  EXPECT_EQ(SendGeneric(99, XI_DeviceChanged, nullptr), ECORE_CALLBACK_PASS_ON);
  EXPECT_THAT(TakeLog(), ElementsAre("2 Invalid event !(extension:99, evtype:1)"));
}

TEST_F(OtherEvent, WithoutDataIsPassedOn) {
  EXPECT_EQ(SendGeneric(fake_x.opcode, XI_DeviceChanged, nullptr), ECORE_CALLBACK_PASS_ON);
  EXPECT_THAT(TakeLog(), ElementsAre(kNoData));
  ExpectNothingChanged();
}

TEST_F(OtherEvent, ThatAClientSentIsPassedOn) {
  changed.send_event = True;
  EXPECT_EQ(SendGeneric(fake_x.opcode, XI_DeviceChanged, &changed), ECORE_CALLBACK_PASS_ON);
  EXPECT_THAT(TakeLog(), ElementsAre(kNoData));
  ExpectNothingChanged();
}

TEST_F(OtherEvent, WithoutInformationIsPassedOn) {
  EXPECT_EQ(CallBack(ECORE_X_EVENT_GENERIC, ECORE_X_EVENT_GENERIC, nullptr), ECORE_CALLBACK_PASS_ON);
  EXPECT_THAT(TakeLog(), ElementsAre(kNoData));
  ExpectNothingChanged();
}

TEST_F(OtherEvent, OfAnotherKindOnlyExemptsTheNextPress) {
  EXPECT_EQ(SendGeneric(fake_x.opcode, XI_KeyPress, &changed), ECORE_CALLBACK_PASS_ON);
  EXPECT_THAT(TakeLog(), IsEmpty());
  EXPECT_THAT(TakeJournal(), IsEmpty());
  EXPECT_EQ(lumio_event_source_type_get(), 0);
  EXPECT_TRUE(NextPressIsExempt());
}
