// Keys of named input devices travel through a real X server and Ecore to the handlers of an application.
#include <kevent.h>
#include <lumio-host/testing.h>

#include <gmock/gmock.h>

// After GoogleTest, since macros of Xlib have some of its names.
#include <Ecore.h>
#include <Ecore_Input.h>
#include <Ecore_X.h>
#include <X11/Xlib.h>
#include <X11/extensions/XInput2.h>
#include <dlfcn.h>
#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "child_process.h"
#include "device_names.h"
#include "display.h"
#include "fake_dlog.h"
#include "fake_vconf.h"

using lumio::Plug;
using lumio::PrivateDisplay;
using lumio::device::kFunctionOsd;
using lumio::device::kHardwareKeys;
using lumio::device::kPanelKeys;
using lumio::device::kRemoteControl;
using lumio::device::kTouchRemote;
using lumio::testing::TurnLoopUntil;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

Display *XDisplay() { return static_cast<Display *>(ecore_x_display_get()); }

// An application with a focused window on a display, and a module that consumes every key.
class Application {
public:
  explicit Application(const PrivateDisplay &display) {
    for (const auto &[name, value] : display.Environment()) {
      setenv(name.c_str(), value.c_str(), 1);
    }
    fake_vconf.values["db/FactoryApp/Aging"] = 0;
    EXPECT_EQ(ecore_x_init(nullptr), 1);
    window_ = ecore_x_window_new(0, 0, 0, 64, 64);
    ecore_x_window_show(window_);
    ecore_x_window_focus(window_);
    domain_ = lumio_kevent_init("application");
    idle_ = ecore_idle_enterer_add(NoteIdle, this);
    lumio_kevent_handler_add(domain_, LUMIO_KEVENT_PRESS, 3, Record, this);
    lumio_kevent_handler_add(domain_, LUMIO_KEVENT_RELEASE, 3, Record, this);
  }
  ~Application() {
    lumio_kevent_fini(domain_);
    ecore_idle_enterer_del(idle_);
    ecore_x_window_free(window_);
    ecore_x_shutdown();
  }
  Application(const Application &) = delete;
  Application &operator=(const Application &) = delete;

  // Returns what the module has received so far, in order, for example "press Return from 4".
  const std::vector<std::string> &Keys() const { return keys_; }
  Ecore_X_Window Window() const { return window_; }

  // Waits for the next key and until the loop is idle, so that keys never form a burst, even on a slow machine.
  void AwaitKey() {
    const size_t count = keys_.size();
    TurnLoopUntil([&] { return keys_.size() > count && is_idle_; });
  }

  // Makes the library treat the next press like the first one, however old the last one is.
  static void ForgetKeyTimes() { lumio_kevent_fini(lumio_kevent_init("another module")); }

private:
  static int Record(lumio_kevent *, lumio_kevent_type type, void *event, void *data) {
    auto *self = static_cast<Application *>(data);
    self->is_idle_ = false;
    self->keys_.push_back((type == LUMIO_KEVENT_PRESS ? "press " : "release ") +
                          std::string(static_cast<Ecore_Event_Key *>(event)->keyname) + " from " +
                          std::to_string(lumio_event_source_type_get()));
    return 0;
  }
  static Eina_Bool NoteIdle(void *data) {
    static_cast<Application *>(data)->is_idle_ = true;
    return ECORE_CALLBACK_RENEW;
  }

  Ecore_X_Window window_;
  lumio_kevent *domain_;
  Ecore_Idle_Enterer *idle_;
  std::vector<std::string> keys_;
  bool is_idle_ = true;
};

// A display and an application on it.
struct Television {
  explicit Television(std::vector<lumio::InputDevice> devices = lumio::TelevisionDevices())
      : display({std::move(devices)}), application(display) {}

  void Press(const char *device, const char *key) {
    Application::ForgetKeyTimes();
    display.Press(device, key);
    application.AwaitKey();
  }
  void Tap(const char *device, const char *key) {
    Press(device, key);
    display.Release(device, key);
    application.AwaitKey();
  }

  PrivateDisplay display;
  Application application;
};

// Chooses the device that XIQueryDevice lists first. A television's server first lists the device that was just plugged
// in. Xorg always lists its core pointer first and cannot be configured otherwise.
std::string g_listed_first;

using Devices = std::vector<lumio::InputDevice>;

constexpr char kSomeKeyboard[] = "USB keyboard";

int LinesThatBegin(const std::string &beginning) {
  const std::vector<std::string> messages = LogMessages();
  return static_cast<int>(std::count_if(messages.begin(), messages.end(), [&](const std::string &message) {
    return message.compare(0, beginning.size(), beginning) == 0;
  }));
}

} // namespace

// When Ecore exits because its server is gone, it does not shut EFL down, and EFL leaks its classes.
extern "C" const char *__lsan_default_suppressions();
extern "C" const char *__lsan_default_suppressions() { return "leak:libeo\nleak:ld-linux\n"; }

extern "C" XIDeviceInfo *XIQueryDevice(Display *display, int device_id, int *count) {
  static const auto query = reinterpret_cast<decltype(&XIQueryDevice)>(dlsym(RTLD_NEXT, "XIQueryDevice"));
  XIDeviceInfo *devices = query(display, device_id, count);
  for (int i = 0; devices && device_id == XIAllDevices && i < *count; ++i) {
    if (devices[i].name == g_listed_first) {
      std::swap(devices[0], devices[i]);
    }
  }
  return devices;
}

namespace {

// --- Keys ------------------------------------------------------------------------------------------------------------

TEST(Keys, ComeFromAttachedDevicesOnly) {
  Television television;
  television.Tap(kHardwareKeys, "Return");
  for (const char *device : {kRemoteControl, kPanelKeys, kFunctionOsd}) {
    television.display.Press(device, "Escape");
    television.display.Release(device, "Escape");
  }
  television.Tap(kTouchRemote, "XF86RaiseChannel");
  EXPECT_THAT(television.application.Keys(),
              ElementsAre("press Return from 4", "release Return from 4", "press XF86RaiseChannel from 2",
                          "release XF86RaiseChannel from 2"));
}

TEST(Keys, HaveTheNamesOfATelevisionsRemoteControl) {
  Television television;
  std::vector<std::string> expected;
  for (const char *key : {"1",
                          "0",
                          "Up",
                          "Return",
                          "Escape",
                          "Menu",
                          "XF86Back",
                          "XF86PowerOff",
                          "XF86AudioMute",
                          "XF86AudioRaiseVolume",
                          "XF86Red",
                          "XF86Green",
                          "XF86Yellow",
                          "XF86Blue",
                          "XF86AudioLowerVolume",
                          "XF86Info",
                          "XF86Subtitle",
                          "XF86ChannelUp",
                          "XF86ChannelDown",
                          "XF86RaiseChannel",
                          "XF86LowerChannel"}) {
    television.Tap(kHardwareKeys, key);
    television.Tap(kTouchRemote, key);
    for (const char *from : {" from 4", " from 2"}) {
      expected.push_back("press " + std::string(key) + from);
      expected.push_back("release " + std::string(key) + from);
    }
  }
  EXPECT_EQ(television.application.Keys(), expected);
}

TEST(Keys, GoToTheModuleThatTakesThem) {
  Television television;
  lumio_kevent *menu = lumio_kevent_init("menu");
  lumio_kevent_handler_add(
      menu, LUMIO_KEVENT_PRESS, 0,
      [](lumio_kevent *, lumio_kevent_type, void *event, void *) {
        return strcmp(static_cast<Ecore_Event_Key *>(event)->keyname, "Menu");
      },
      nullptr);
  television.display.Press(kTouchRemote, "Menu"); // not seen by the application
  television.Tap(kTouchRemote, "Return");
  EXPECT_EQ(LogCount("16 Menu key [type: 2]  press was handled by [menu], priority[0]."), 1);
  EXPECT_EQ(LogCount("2 [menu] Return key press handling...."), 1);
  EXPECT_EQ(LogCount("16 Return key [type: 2]  press was handled by [application], priority[3]."), 1);
  EXPECT_THAT(television.application.Keys(), ElementsAre("press Return from 2", "release Return from 2"));
  lumio_kevent_fini(menu);
}

// --- Which device sent them ------------------------------------------------------------------------------------------

struct Source {
  const char *what;
  Devices devices; // in addition to a keyboard; the first one sends the key
  int type;
};

void PrintTo(const Source &source, std::ostream *stream) { *stream << source.what; }

class SourceType : public testing::TestWithParam<Source> {};

TEST_P(SourceType, IsKnownFromTheDevice) {
  Devices devices = GetParam().devices;
  const std::string device = devices[0].name;
  devices.push_back({kSomeKeyboard});
  Television television(devices);
  television.Tap(kSomeKeyboard, "Return");
  television.display.SetPlug(device, Plug::kAttached);
  television.Tap(device.c_str(), "Return");
  television.Tap(kSomeKeyboard, "Return");
  const std::string source = std::to_string(GetParam().type);
  EXPECT_THAT(television.application.Keys(),
              ElementsAre("press Return from 4", "release Return from 4", "press Return from " + source,
                          "release Return from " + source, "press Return from 4", "release Return from 4"));
}

// The library learns the remote control and the panel while their devices float, and recognises them behind "HWKeys". A
// television's driver sends their keys through that keyboard. On Xorg a key class names its own device, so one device
// has to play both roles.
const Source kSources[] = {
    {"Remote", {{"HWKeys qm27x410 rc device", Plug::kFloating}}, 0},
    {"Panel", {{"HWKeys qm27x410 panel key device", Plug::kFloating}}, 1},
    {"Touch", {{kTouchRemote}}, 2},
    {"TouchInOtherLetters", {{"the ADVANCED touch Remote"}}, 2},
    {"FloatingTouch", {{kTouchRemote, Plug::kFloating}}, 2},
    {"FloatingTouchBesideTheKeyboard", {{kTouchRemote, Plug::kFloating}, {"Advanced Touch REMOTE keyboard"}}, 2},
    {"UnpluggedTouch", {{kTouchRemote, Plug::kUnplugged}}, 2},
    {"FunctionOsdThatIsNotListedFirst", {{kFunctionOsd, Plug::kUnplugged}}, 4},
    {"HwKeysItself", {{kHardwareKeys}, {kRemoteControl, Plug::kFloating}, {kPanelKeys, Plug::kFloating}}, 4},
    {"AnyOther", {{"Front USB"}}, 4},
};

INSTANTIATE_TEST_SUITE_P(Devices, SourceType, testing::ValuesIn(kSources),
                         [](const auto &source) { return source.param.what; });

TEST(FunctionOsd, IsKnownOncePluggedIn) {
  Television television;
  g_listed_first = kFunctionOsd;
  television.display.SetPlug(kFunctionOsd, Plug::kAttached);
  television.Tap(kFunctionOsd, "Return");
  television.Tap(kTouchRemote, "Return");
  television.Tap(kFunctionOsd, "Escape");
  EXPECT_EQ(LogCount("2 function-osd device found.. saving device id : " +
                     std::to_string(television.display.DeviceId(kFunctionOsd)) + ".."),
            1);
  EXPECT_THAT(television.application.Keys(),
              ElementsAre("press Return from 3", "release Return from 3", "press Return from 2",
                          "release Return from 2", "press Escape from 3", "release Escape from 3"));
}

// --- Plugging --------------------------------------------------------------------------------------------------------

TEST(Plugging, GoesOnWhileKeysFlow) {
  Television television;
  std::vector<std::string> expected;
  for (int round = 0; round < 5; ++round) {
    for (const Plug plug : {Plug::kUnplugged, Plug::kFloating, Plug::kUnplugged}) {
      television.display.SetPlug(kTouchRemote, plug);
      television.display.Press(kTouchRemote, "Menu");
      television.display.Release(kTouchRemote, "Menu");
      television.Tap(kHardwareKeys, "Up");
      expected.insert(expected.end(), {"press Up from 4", "release Up from 4"});
    }
    television.display.SetPlug(kTouchRemote, Plug::kAttached);
    television.Tap(kTouchRemote, "Down");
    expected.insert(expected.end(), {"press Down from 2", "release Down from 2"});
  }
  EXPECT_EQ(television.application.Keys(), expected);
}

TEST(Plugging, ReleasesTheKeysOfADeviceThatIsUnplugged) {
  Television television;
  television.Press(kTouchRemote, "Up");
  television.display.SetPlug(kTouchRemote, Plug::kUnplugged);
  television.application.AwaitKey();
  television.Tap(kHardwareKeys, "Down");
  EXPECT_THAT(television.application.Keys(),
              ElementsAre("press Up from 2", "release Up from 2", "press Down from 4", "release Down from 4"));
}

// --- What the library asks of the server -----------------------------------------------------------------------------

// The library logs the time of a press whose age it checks.
TEST(DeviceEvents, ExemptTheNextPressFromTheStalenessFilter) {
  Television television;
  const auto looked_at = [&](const char *device) {
    ClearLog();
    television.Tap(device, "Return");
    return LinesThatBegin("2 key timestamp = ") == 1;
  };
  EXPECT_FALSE(looked_at(kHardwareKeys)); // the first device
  EXPECT_TRUE(looked_at(kHardwareKeys));
  EXPECT_FALSE(looked_at(kTouchRemote)); // another device
  EXPECT_TRUE(looked_at(kTouchRemote));
  television.display.SetPlug(kFunctionOsd, Plug::kAttached);
  EXPECT_FALSE(looked_at(kTouchRemote));
  EXPECT_TRUE(looked_at(kTouchRemote));
}

// Makes the device the only one of another core keyboard.
void AttachToAnotherCoreKeyboard(int device_id) {
  char name[] = "another";
  XIAnyHierarchyChangeInfo change = {};
  change.add = {XIAddMaster, name, 0, 1};
  XIChangeHierarchy(XDisplay(), &change, 1);
  int count = 0;
  XIDeviceInfo *devices = XIQueryDevice(XDisplay(), XIAllMasterDevices, &count);
  for (int i = 0; i < count; ++i) {
    if (strcmp(devices[i].name, "another keyboard") == 0) {
      change.attach = {XIAttachSlave, device_id, devices[i].deviceid};
      XIChangeHierarchy(XDisplay(), &change, 1);
    }
  }
  XIFreeDeviceInfo(devices);
  XSync(XDisplay(), 0);
}

TEST(DeviceEvents, OfAnotherCoreKeyboardDoNotChangeTheSource) {
  Television television;
  television.Tap(kHardwareKeys, "Return");
  AttachToAnotherCoreKeyboard(television.display.DeviceId(kTouchRemote));
  television.display.Press(kTouchRemote, "Up"); // goes to another focus
  television.display.Release(kTouchRemote, "Up");
  television.Tap(kHardwareKeys, "Down");
  EXPECT_THAT(television.application.Keys(),
              ElementsAre("press Return from 4", "release Return from 4", "press Down from 4", "release Down from 4"));
}

TEST(DeviceEvents, AreSelectedOnTheRootWindow) {
  Television television;
  int count = 0;
  XIEventMask *masks = XIGetSelectedEvents(XDisplay(), DefaultRootWindow(XDisplay()), &count);
  std::vector<int> selected;
  for (int i = 0; i < count; ++i) {
    for (int event = 0; event < masks[i].mask_len * 8; ++event) {
      if (masks[i].deviceid == XIAllDevices && XIMaskIsSet(masks[i].mask, event)) {
        selected.push_back(event);
      }
    }
  }
  XFree(masks);
  EXPECT_THAT(selected, ElementsAre(XI_DeviceChanged, XI_HierarchyChanged));
}

// --- The cursor ------------------------------------------------------------------------------------------------------

// Returns the values of the window's property as Xlib reads them.
std::vector<long> CursorProperty(Window window) {
  Atom type = 0;
  int format = 0;
  unsigned long count = 0, left = 0;
  unsigned char *data = nullptr;
  XGetWindowProperty(XDisplay(), window, XInternAtom(XDisplay(), "E_SHOW_CURSOR_AFTER_MOVEMENT", 0), 0, 16, 0,
                     AnyPropertyType, &type, &format, &count, &left, &data);
  const auto *values = reinterpret_cast<const long *>(data);
  std::vector<long> result(values, values + count);
  XFree(data);
  if (!result.empty()) {
    EXPECT_EQ(type, XInternAtom(XDisplay(), "CARDINAL", 0));
    EXPECT_EQ(format, 32);
  }
  return result;
}

TEST(Cursor, IsAskedForOnTheFocusedWindow) {
  Television television;
  const Ecore_X_Window other = ecore_x_window_new(0, 0, 0, 8, 8);
  lumio_cursor_show_after_movement();
  EXPECT_THAT(CursorProperty(television.application.Window()), ElementsAre(1));
  EXPECT_THAT(CursorProperty(other), IsEmpty());
  EXPECT_THAT(CursorProperty(DefaultRootWindow(XDisplay())), IsEmpty());
  EXPECT_EQ(LogCount("16 failed to get display"), 0);
  ecore_x_window_free(other);
}

TEST(Cursor, IsLeftAloneWhenNoWindowHasTheFocus) {
  Television television;
  XSetInputFocus(XDisplay(), 0, RevertToNone, CurrentTime);
  lumio_cursor_show_after_movement();
  EXPECT_EQ(LogCount("16 failed to get display"), 1);
  EXPECT_THAT(CursorProperty(television.application.Window()), IsEmpty());
  EXPECT_THAT(CursorProperty(DefaultRootWindow(XDisplay())), IsEmpty());
}

// --- Several servers, and none ---------------------------------------------------------------------------------------

// An application in its own process, which prints each key that it receives.
class ApplicationProcess {
public:
  explicit ApplicationProcess(const PrivateDisplay &display) {
    int ends[2];
    EXPECT_EQ(pipe2(ends, O_CLOEXEC), 0);
    const pid_t pid = fork();
    if (pid == 0) {
      Run(display, fdopen(ends[1], "w"));
    }
    process_ = lumio::ChildProcess(pid);
    close(ends[1]);
    keys_ = fdopen(ends[0], "r");
    EXPECT_EQ(NextLine(), "ready");
  }
  ~ApplicationProcess() { fclose(keys_); }
  ApplicationProcess(const ApplicationProcess &) = delete;
  ApplicationProcess &operator=(const ApplicationProcess &) = delete;

  std::string NextLine() {
    char line[128] = "";
    EXPECT_NE(fgets(line, sizeof line, keys_), nullptr);
    return std::string(line, strcspn(line, "\n"));
  }

private:
  [[noreturn]] static void Run(const PrivateDisplay &display, FILE *output) {
    ecore_fork_reset();
    Application application(display);
    setlinebuf(output);
    fputs("ready\n", output);
    for (;;) {
      Application::ForgetKeyTimes();
      application.AwaitKey();
      fprintf(output, "%s\n", application.Keys().back().c_str());
    }
  }

  lumio::ChildProcess process_;
  FILE *keys_;
};

TEST(TwoServers, HaveTheirOwnKeys) {
  PrivateDisplay first, second;
  EXPECT_NE(first.Name(), second.Name());
  ApplicationProcess first_application(first), second_application(second);
  for (int round = 0; round < 3; ++round) {
    first.Press(kHardwareKeys, "Up");
    second.Press(kTouchRemote, "Down");
    EXPECT_EQ(second_application.NextLine(), "press Down from 2");
    EXPECT_EQ(first_application.NextLine(), "press Up from 4");
    second.Release(kTouchRemote, "Down");
    first.Release(kHardwareKeys, "Up");
    EXPECT_EQ(second_application.NextLine(), "release Down from 2");
    EXPECT_EQ(first_application.NextLine(), "release Up from 4");
  }
}

// Each test starts a new process, since Ecore cannot be shut down without its server.
class ServerGone : public testing::Test {};

// Does what every application of Ecore does by default.
void OutliveTheServer() {
  Television television;
  television.Tap(kHardwareKeys, "Return");
  television.display.Stop();
  TurnLoopUntil([] { return false; });
}

TEST_F(ServerGone, EndsTheApplication) { EXPECT_EXIT(OutliveTheServer(), testing::ExitedWithCode(255), ""); }

// Does what an application does that asks Xlib not to exit: the library must not use the display any more.
void GoOnWithoutTheServer() {
  static bool gone;
  Television television;
  television.Tap(kHardwareKeys, "Return");
  ecore_x_io_error_handler_set([](void *) { gone = true; }, nullptr);
  XSetIOErrorExitHandler(
      XDisplay(), [](Display *, void *) {}, nullptr);
  television.display.Stop();
  TurnLoopUntil([] { return gone; });
  lumio_kevent *domain = lumio_kevent_init("late");
  lumio_kevent_handler_del(lumio_kevent_handler_add(
      domain, LUMIO_KEVENT_PRESS, 0, [](lumio_kevent *, lumio_kevent_type, void *, void *) { return 0; }, nullptr));
  lumio_kevent_fini(domain);
  lumio_cursor_show_after_movement();
  fprintf(stderr, "source %d, logged %d", lumio_event_source_type_get(), LogCount("16 failed to get display"));
  _exit(0);
}

TEST_F(ServerGone, DoesNotTakeTheLibraryWithIt) {
  EXPECT_EXIT(GoOnWithoutTheServer(), testing::ExitedWithCode(0), "source 4, logged 1");
}

} // namespace
