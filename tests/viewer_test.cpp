// Runs the sample viewer as a process, on a display and without one.
#include <gmock/gmock.h>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <fstream>
#include <functional>
#include <memory>
#include <set>
#include <sstream>
#include <string>

#include "display.h"
#include "file_descriptor.h"
#include "program.h"
#include "temporary_directory.h"
#include "viewer_tap.h"

#include <X11/XKBlib.h> // after gmock, whose names its macros would replace
#include <X11/Xutil.h>
#include <X11/extensions/XTest.h>
#include <X11/keysym.h>

using testing::AllOf;
using testing::EndsWith;
using testing::HasSubstr;

namespace {

using Environment = std::map<std::string, std::string>;

lumio::Clock::time_point Deadline() { return lumio::Clock::now() + std::chrono::seconds(60); }

struct Ended {
  int status;
  std::string output; // both streams
};

Ended RunToEnd(const std::string &options, const Environment &environment) {
  lumio::Program viewer({"/bin/sh", "-c", "exec \"$0\" " + options + " 2>&1", LUMIO_VIEWER}, environment);
  std::string output;
  while (const auto line = viewer.ReadLine(Deadline())) {
    output += *line + "\n";
  }
  return {viewer.Wait(Deadline()).value(), output};
}

TEST(ViewerWithoutDisplay, SaysThatDisplayIsNotSet) {
  const Ended viewer = RunToEnd("", {{"DISPLAY", ""}});
  EXPECT_EQ(EXIT_FAILURE, viewer.status);
  EXPECT_THAT(viewer.output, AllOf(HasSubstr("DISPLAY is not set"), HasSubstr("scripts/demo")));
}

TEST(ViewerWithoutDisplay, SaysWhichDisplayDoesNotAnswer) {
  const Ended viewer = RunToEnd("", {{"DISPLAY", "/nowhere/display:0"}});
  EXPECT_EQ(EXIT_FAILURE, viewer.status);
  EXPECT_THAT(viewer.output, HasSubstr("'/nowhere/display:0' (DISPLAY) does not answer"));
}

TEST(ViewerWithoutDisplay, PrintsItsUsage) {
  const Ended viewer = RunToEnd("--help", {});
  EXPECT_EQ(EXIT_SUCCESS, viewer.status);
  EXPECT_THAT(viewer.output, AllOf(HasSubstr("usage: lumio-viewer"), HasSubstr("--guide FILE"), HasSubstr("--studio"),
                                   HasSubstr("q ")));
}

TEST(ViewerWithoutDisplay, RefusesInvalidArguments) {
  for (const char *options : {"--guide", "--loud"}) {
    const Ended viewer = RunToEnd(options, {});
    EXPECT_EQ(EXIT_FAILURE, viewer.status);
    EXPECT_THAT(viewer.output, AllOf(HasSubstr(std::string("'") + options + "'"), HasSubstr("usage: lumio-viewer")));
  }
}

class Viewer : public testing::Test {
protected:
  Viewer() : x_(XOpenDisplay(display_.Name().c_str()), XCloseDisplay) {}

  // What the viewer's processes have in their environment.
  Environment ViewerEnvironment() const {
    Environment environment = {{"LUMIO_LOG", "none"}, {"LUMIO_VCONF_DIR", store_ / "vconf"}};
    for (const auto &[name, value] : display_.Environment()) {
      environment[name] = value;
    }
    return environment;
  }

  void Start(const std::vector<std::string> &options = {"--grab"}) {
    viewer_ = std::make_unique<lumio::Program>(Command(options), ViewerEnvironment());
  }

  void StartWithoutStudio(const std::vector<std::string> &options = {}) {
    std::vector<std::string> command = {LUMIO_VIEWER, "--grab"};
    command.insert(command.end(), options.begin(), options.end());
    viewer_ = std::make_unique<lumio::Program>(command, ViewerEnvironment());
  }

  // The memory of its own that the process with the display's only window has, swapped out or not.
  int OwnKilobytes() {
    std::ifstream status("/proc/" + std::to_string(Pid(FocusedWindow())) + "/status");
    int kilobytes = 0;
    for (std::string line; std::getline(status, line);) {
      for (const std::string field : {"RssAnon:", "VmSwap:"}) {
        if (line.rfind(field, 0) == 0) {
          kilobytes += std::stoi(line.substr(field.size()));
        }
      }
    }
    return kilobytes;
  }

  // The item of a line about the screen.
  static std::string ItemOf(const std::string &line) {
    const std::string screen = "  screen  ";
    const size_t start = line.find(screen);
    if (start == std::string::npos) {
      return "";
    }
    const size_t item = start + screen.size();
    return line.substr(item, line.find("  ", item) - item);
  }

  static bool IsAboutKey(const std::string &line) { return line.find("  key     ") == line.find("  "); }

  // Both streams of the viewer are read as one.
  static std::vector<std::string> Command(const std::vector<std::string> &options) {
    std::vector<std::string> command = {"/bin/sh",    "-c",       "exec \"$0\" \"$@\" 2>&1",
                                        LUMIO_VIEWER, "--studio", "--still"};
    command.insert(command.end(), options.begin(), options.end());
    return command;
  }

  void StartAndTakeKeyboard() {
    Start();
    ExpectLine("ready, all keys of this display come here");
  }

  // Returns the next line of the viewer that `is_wanted` accepts; empty if none comes in time.
  std::string FindLine(const std::function<bool(const std::string &line)> &is_wanted) {
    const auto deadline = Deadline();
    std::optional<std::string> line;
    do {
      line = viewer_->ReadLine(deadline);
    } while (line && !is_wanted(*line));
    return line.value_or("");
  }

  // Returns the next line of the viewer that ends with `end`.
  std::string ExpectLine(const std::string &end) {
    const std::string line = FindLine(testing::Matches(EndsWith(end)));
    EXPECT_NE(line, "") << "the viewer does not print: " << end;
    return line;
  }

  // Returns the next line about a key event.
  std::string KeyLine() {
    const std::string line = FindLine(IsAboutKey);
    EXPECT_NE(line, "") << "the viewer prints no line about a key";
    return line;
  }

  // Returns the next line about the focus or a key event.
  std::string LineOfFocusOrKey() {
    return FindLine([](const std::string &line) { return ItemOf(line) == "focus" || IsAboutKey(line); });
  }

  // Returns the next line about what the key overlay shows.
  std::string ExpectKeyOnCanvas() { return FindLine(testing::Matches(HasSubstr("  canvas  key  "))); }

  void TapOnce(const std::string &key) {
    display_.Press(lumio::device::kHardwareKeys, key);
    display_.Release(lumio::device::kHardwareKeys, key);
  }

  // Taps F6 between this program's other requests to the server. A device's keys come when the server reads them.
  void TapInOrder() {
    for (const Bool down : {True, False}) {
      XTestFakeKeyEvent(x_.get(), XKeysymToKeycode(x_.get(), XK_F6), down, CurrentTime);
    }
    XSync(x_.get(), False);
  }

  std::string TapUntilNotDropped(const std::string &key, const std::function<void()> &tap) {
    return ::TapUntilNotDropped(key, tap, [this, deadline = Deadline()] { return viewer_->ReadLine(deadline); });
  }

  // Taps a key that the viewer is to have, and returns its line about the press.
  std::string Tap(const std::string &key) {
    return TapUntilNotDropped(key, [&] { TapOnce(key); });
  }

  // Clicks with the mouse at a place in parts of the window's size.
  void Click(Window window, double x, double y) {
    XWindowAttributes attributes = {};
    XGetWindowAttributes(x_.get(), window, &attributes);
    XTestFakeMotionEvent(x_.get(), -1, static_cast<int>(x * attributes.width), static_cast<int>(y * attributes.height),
                         CurrentTime);
    for (const Bool down : {True, False}) {
      XTestFakeButtonEvent(x_.get(), 1, down, CurrentTime);
    }
    XSync(x_.get(), False);
  }

  void SetLayout(const std::string &layout) {
    const std::string command = "setxkbmap -display " + display_.Name() + " -layout " + layout;
    EXPECT_EQ(std::system(command.c_str()), 0);
    x_.reset(XOpenDisplay(display_.Name().c_str())); // which reads the new keymap
  }

  void ExpectOrderlyEnd() {
    ExpectLine("closed in order");
    EXPECT_EQ(EXIT_SUCCESS, viewer_->Wait(Deadline()));
  }

  // The bytes of a property; Xlib gives a number of 32 bits eight of them.
  std::string Property(Window window, const char *name) {
    Atom type = 0;
    int format = 0;
    unsigned long count = 0;
    unsigned long left = 0;
    unsigned char *data = nullptr;
    XGetWindowProperty(x_.get(), window, XInternAtom(x_.get(), name, False), 0, 64, False, AnyPropertyType, &type,
                       &format, &count, &left, &data);
    std::string bytes(reinterpret_cast<char *>(data), count * (format == 32 ? sizeof(long) : 1));
    XFree(data);
    return bytes;
  }

  std::string Title(Window window) { return Property(window, "_NET_WM_NAME"); }

  long Pid(Window window) {
    long pid = 0;
    std::memcpy(&pid, Property(window, "_NET_WM_PID").data(), sizeof pid);
    return pid;
  }

  Window FocusedWindow() {
    Window focused = 0;
    int revert_to = 0;
    XGetInputFocus(x_.get(), &focused, &revert_to);
    return focused;
  }

  lumio::TemporaryDirectory store_;
  lumio::PrivateDisplay display_;
  std::unique_ptr<Display, int (*)(Display *)> x_;
  std::unique_ptr<lumio::Program> viewer_;
};

TEST_F(Viewer, HasAWindowWithTitleAndFocus) {
  StartAndTakeKeyboard();
  ASSERT_GT(FocusedWindow(), static_cast<Window>(PointerRoot));
  EXPECT_EQ("Live TV", Title(FocusedWindow()));
  XSizeHints hints = {};
  long given = 0;
  ASSERT_NE(XGetWMNormalHints(x_.get(), FocusedWindow(), &hints, &given), 0);
  EXPECT_EQ(hints.min_width, 320); // below that, nothing could be read
  EXPECT_EQ(hints.min_height, 180);
}

TEST_F(Viewer, PrintsEachKey) {
  StartAndTakeKeyboard();
  EXPECT_THAT(Tap("F5"), testing::ContainsRegex("^[0-9]{2}:[0-9]{2}:[0-9]{2}\\.[0-9]{3}  key     F5 +press    other "
                                                "device    asked menu, power, volume, channel, info, guide, data, "
                                                "captions, recorder, teletext, panels, logger  "
                                                "taken by nobody  [0-9]+\\.[0-9]{3} ms$"));
  EXPECT_THAT(KeyLine(), testing::ContainsRegex("  F5 +release  other device    asked menu, logger  taken by nobody"));
}

TEST_F(Viewer, TakesTheKeyboardWhenAnotherClientLetsGoOfIt) {
  XGrabKeyboard(x_.get(), DefaultRootWindow(x_.get()), False, GrabModeAsync, GrabModeAsync, CurrentTime);
  XSync(x_.get(), False);
  Start();
  ExpectLine("ready, keys come here while the window has the focus");
  XUngrabKeyboard(x_.get(), CurrentTime);
  XSync(x_.get(), False);
  ExpectLine("ready, all keys of this display come here");
  EXPECT_NE(Tap("F5"), "");
}

TEST_F(Viewer, RefusesOrdersThatTheStudioDoesNotUnderstand) {
  StartAndTakeKeyboard();
  const std::pair<const char *, const char *> orders[] = {
      {"", "(\"help\" lists the orders)"},
      {"sing", "(\"help\" lists the orders)"},
      {"record", "(a number is missing: record PROGRAMME)"},
      {"record seven", "('seven' is not a number from 0 to 1000000: record PROGRAMME)"},
      {"record 7x", "('7x' is not a number from 0 to 1000000: record PROGRAMME)"},
      {"record 99999999999", "('99999999999' is not a number from 0 to 1000000: record PROGRAMME)"},
      {"lock 2", "('2' is not a number from 0 to 1: lock 1|0)"},
      {"speed 0", "('0' is not a number from 1 to 100: speed TIMES)"},
      {"strength 50", "(a number is missing: strength PERCENT QUALITY)"},
      {"strength -5 50", "('-5' is not a number from 0 to 100: strength PERCENT QUALITY)"},
      {"caption", "(text is missing: caption TEXT)"},
      {"present", "(text is missing: present [HH:MM-HH:MM] TITLE)"},
      {"present 20:15-20:30", "(text is missing: present [HH:MM-HH:MM] TITLE)"},
      {"services", "(text is missing: services NAME...)"},
      {"module 3", "(text is missing: module NUMBER TEXT)"}};
  for (const auto &[order, why] : orders) {
    viewer_->WriteLine(order);
    ExpectLine("not understood: " + std::string(order) + " " + why);
  }
  viewer_->WriteLine("record 7");
  ExpectLine("start of programme 7: done");
}

TEST(ViewerWithoutStream, SaysThatTheFileCannotBePlayed) {
  const lumio::PrivateDisplay display;
  Environment environment = {{"LUMIO_LOG", "none"}};
  for (const auto &[name, value] : display.Environment()) {
    environment[name] = value;
  }
  const Ended viewer = RunToEnd("--tv /nowhere.ts", environment);
  EXPECT_EQ(EXIT_FAILURE, viewer.status);
  EXPECT_THAT(viewer.output, HasSubstr("lumio-viewer: /nowhere.ts cannot be played\n"));
}

class ViewerOfAStream : public Viewer {
protected:
  ViewerOfAStream() {
    setenv("LUMIO_RECORDINGS", store_.Path().c_str(), 1);
    Start({"--grab", "--tv", LUMIO_SAMPLE});
    viewer_->WriteLine("speed 5"); // rather than wait for what comes late in the stream
  }

  // Waits until the viewer has printed a line with each of these ends, in whatever order.
  void ExpectLines(std::vector<std::string> ends) {
    const auto deadline = Deadline();
    while (!ends.empty()) {
      const auto line = viewer_->ReadLine(deadline);
      ASSERT_TRUE(line) << "the viewer does not print: " << testing::PrintToString(ends);
      ends.erase(std::remove_if(ends.begin(), ends.end(),
                                [&](const std::string &end) { return testing::Matches(EndsWith(end))(*line); }),
                 ends.end());
    }
  }
};

TEST_F(ViewerOfAStream, ShowsWhatItCarries) {
  ExpectLines({"ready, all keys of this display come here", "services              Lumio One, Lumio Two", "moving",
               "now                   Night Train", "next                  The Evening News", "Good evening."});
  Tap("g");
  ExpectLine(":15 Night Train"); // the last programme of the day
}

TEST_F(ViewerOfAStream, OpensItsDataService) {
  ExpectLine("now                   Night Train");
  Tap("r");
  ExpectLines({"attached", "module 1: Vote now: who keeps the light burning? "});
}

TEST_F(ViewerOfAStream, TunesToTheChannel) {
  ExpectLine("now                   Night Train");
  Tap("2");
  ExpectLine("now                   Gr\u00fc\u00dfe vom See");
  ExpectLine("White plays knight to f3.");
  Tap("r");
  ExpectLine("not available");
}

TEST_F(ViewerOfAStream, ShowsARecording) {
  ExpectLine("now                   Night Train");
  viewer_->WriteLine("record 101");
  ExpectLines({"start of programme 101: done", "record indicator      recording"});
  viewer_->WriteLine("stop-recording");
  ExpectLine("stop of programme 101: done");
}

TEST_F(Viewer, EndsByKey) {
  StartAndTakeKeyboard();
  Tap("q");
  ExpectOrderlyEnd();
}

TEST_F(Viewer, EndsWhenItsWindowIsClosed) {
  StartAndTakeKeyboard();
  XEvent event = {};
  event.xclient.type = ClientMessage;
  event.xclient.window = FocusedWindow();
  event.xclient.message_type = XInternAtom(x_.get(), "WM_PROTOCOLS", False);
  event.xclient.format = 32;
  event.xclient.data.l[0] = static_cast<long>(XInternAtom(x_.get(), "WM_DELETE_WINDOW", False));
  XSendEvent(x_.get(), event.xclient.window, False, NoEventMask, &event);
  XSync(x_.get(), False);
  ExpectOrderlyEnd();
}

class ViewerSignal : public Viewer, public testing::WithParamInterface<int> {};

TEST_P(ViewerSignal, EndsTheViewerInOrder) {
  sigset_t limit; // of the time for it, which a busy machine may need
  sigemptyset(&limit);
  sigaddset(&limit, SIGALRM);
  pthread_sigmask(SIG_BLOCK, &limit, nullptr); // for the viewer, too
  StartAndTakeKeyboard();
  viewer_->Signal(GetParam());
  ExpectOrderlyEnd();
}

INSTANTIATE_TEST_SUITE_P(ByAsking, ViewerSignal, testing::Values(SIGINT, SIGTERM));

// --- Keys, as users try them -----------------------------------------------------------------------------------------

TEST_F(Viewer, TakesKeysOnlyWhileItHasTheFocus) {
  Start({});
  ExpectLine("ready, keys come here while the window has the focus");
  ExpectLine("here: keys come");
  const Window window = FocusedWindow();
  EXPECT_EQ(XGrabKeyboard(x_.get(), DefaultRootWindow(x_.get()), False, GrabModeAsync, GrabModeAsync, CurrentTime),
            GrabSuccess);
  XSync(x_.get(), False);
  ExpectLine("elsewhere: no keys come");
  XUngrabKeyboard(x_.get(), CurrentTime);
  XSync(x_.get(), False);
  ExpectLine("here: keys come");
  XSetInputFocus(x_.get(), DefaultRootWindow(x_.get()), RevertToNone, CurrentTime);
  XSync(x_.get(), False);
  ExpectLine("elsewhere: no keys come");
  TapInOrder();
  XSetInputFocus(x_.get(), window, RevertToNone, CurrentTime);
  XSync(x_.get(), False);
  ExpectLine("here: keys come");
  XEvent again = {};
  again.xfocus.type = FocusIn;
  again.xfocus.window = window;
  XSendEvent(x_.get(), window, False, NoEventMask, &again);
  XSync(x_.get(), False);
  TapOnce("F7");
  EXPECT_THAT(LineOfFocusOrKey(), HasSubstr("  F7  "));
}

TEST_F(Viewer, SaysWhenAnotherViewerHasTheKeys) {
  Start({});
  ExpectLine("here: keys come");
  auto first = std::move(viewer_);
  Start({});
  ExpectLine("here: keys come");
  viewer_.swap(first);
  ExpectLine("elsewhere: no keys come");
}

TEST_F(Viewer, PutsTheLineOfAKeyAheadOfWhatTheKeyBringsAbout) {
  StartAndTakeKeyboard();
  const std::string key = Tap("XF86AudioRaiseVolume");
  EXPECT_THAT(key, HasSubstr("  key     XF86AudioRaiseVolume  press"));
  const std::string volume = *viewer_->ReadLine(Deadline());
  EXPECT_THAT(volume, EndsWith("  screen  volume                11"));
  EXPECT_LE(key.substr(0, 12), volume.substr(0, 12));
}

// The first column of the list of keys in the help.
std::set<std::string> KeysOfHelp() {
  std::istringstream help(RunToEnd("--help", {}).output);
  std::set<std::string> keys;
  bool is_in_list = false;
  for (std::string line; std::getline(help, line); is_in_list |= line.rfind("Keys", 0) == 0) {
    const size_t start = line.find_first_not_of(' ');
    if (is_in_list && start != std::string::npos) {
      keys.insert(line.substr(start, line.find("  ", start) - start));
    }
  }
  return keys;
}

TEST_F(Viewer, TakesTheKeysThatItsHelpNamesAndNoOthers) {
  const std::pair<const char *, std::vector<const char *>> named[] = {
      {"F1", {"F1"}},
      {"F2", {"F2"}},
      {"Menu or m", {"Menu", "Up", "Down", "Return", "Escape", "m", "Escape"}},
      {"+ and -, XF86Audio{Raise,Lower}Volume",
       {"KP_Add", "minus", "KP_Subtract", "XF86AudioRaiseVolume", "XF86AudioLowerVolume"}},
      {"Up, Down, Page Up, Page Down, 1 to 9,",
       {"Up", "Down", "Prior", "Next", "1", "2", "3", "4", "5", "6", "7", "8", "9"}},
      {"XF86RaiseChannel, XF86LowerChannel", {"XF86RaiseChannel", "XF86LowerChannel"}},
      {"i or XF86Info", {"i", "XF86Info"}},
      {"g or XF86Option", {"g", "Up", "Down", "g", "XF86Option", "XF86Option"}},
      {"c", {"c"}},
      {"t", {"t"}},
      {"o or XF86AudioRecord", {"o", "XF86AudioRecord"}},
      {"r or XF86Red", {"r", "XF86Red"}},
      {"s or XF86Standby", {"s"}}, // no key of the display has the other symbol
      {"q or XF86PowerOff", {}}};  // below
  std::set<std::string> columns;
  StartAndTakeKeyboard();
  for (const auto &[column, keys] : named) {
    columns.insert(column);
    for (const char *key : keys) {
      EXPECT_THAT(Tap(key), AllOf(HasSubstr("  taken by "), testing::Not(HasSubstr("taken by nobody"))));
    }
  }
  EXPECT_EQ(KeysOfHelp(), columns);
  for (const char *key : {"0", "a", "b", "d", "e", "f", "h",  "j",      "k",      "l",    "n",    "p",
                          "u", "v", "w", "x", "y", "z", "F3", "Return", "Escape", "Left", "Right"}) {
    EXPECT_THAT(Tap(key), HasSubstr("  taken by nobody  "));
  }
  Tap("XF86PowerOff");
  ExpectOrderlyEnd();
}

TEST_F(Viewer, ShowsAndHidesTheAidsByKey) {
  StartAndTakeKeyboard();
  for (const auto &[key, item] :
       {std::pair{"F1", "  canvas  keys                  "}, {"F2", "  canvas  remote                "}}) {
    Tap(key);
    EXPECT_THAT(FindLine(testing::Matches(HasSubstr(item))), testing::Not(EndsWith("(hidden)")));
    Tap(key);
    EXPECT_THAT(FindLine(testing::Matches(HasSubstr(item))), EndsWith("(hidden)"));
  }
}

TEST_F(Viewer, TakesKeysWhateverHappensToItsWindow) {
  Start({});
  ExpectLine("here: keys come");
  const Window window = FocusedWindow();
  const auto expect_key = [&](const char *when) { EXPECT_NE(Tap("F5"), "") << when; };
  XResizeWindow(x_.get(), window, 640, 360);
  XSync(x_.get(), False);
  expect_key("after a change of its size");
  XSetWindowAttributes unmanaged = {};
  unmanaged.override_redirect = True;
  const Window cover = XCreateWindow(x_.get(), DefaultRootWindow(x_.get()), 0, 0, 800, 600, 0, CopyFromParent,
                                     InputOutput, nullptr, CWOverrideRedirect, &unmanaged);
  XMapRaised(x_.get(), cover);
  XSync(x_.get(), False);
  expect_key("below another window");
  XDestroyWindow(x_.get(), cover);
  XUnmapWindow(x_.get(), window); // as a window manager makes it an icon
  XSync(x_.get(), False);
  ExpectLine("elsewhere: no keys come");
  TapInOrder();
  XMapWindow(x_.get(), window);
  XSetInputFocus(x_.get(), window, RevertToNone, CurrentTime);
  XSync(x_.get(), False);
  EXPECT_THAT(FindLine(testing::Matches(testing::ContainsRegex("ready|here: keys come"))), EndsWith("here: keys come"))
      << "it is ready once";
  TapOnce("F7");
  EXPECT_THAT(KeyLine(), HasSubstr("  F7  "));
}

TEST_F(Viewer, SaysNothingOfTheFocusWhereItMakesNoDifference) {
  StartAndTakeKeyboard();
  const Window window = FocusedWindow();
  XSetInputFocus(x_.get(), DefaultRootWindow(x_.get()), RevertToNone, CurrentTime);
  XSetInputFocus(x_.get(), window, RevertToNone, CurrentTime);
  XSync(x_.get(), False);
  TapOnce("F5"); // which comes after the changes
  EXPECT_THAT(LineOfFocusOrKey(), HasSubstr("  F5  "));
}

TEST_F(Viewer, TakesPlusOnKeyboardsOfSeveralCountries) {
  StartAndTakeKeyboard();
  int volume = 10;
  const struct {
    const char *layout;
    const char *key; // that has the plus
    bool is_shifted;
  } keyboards[] = {{"us", "equal", true}, {"de", "plus", false}, {"fr", "equal", true}, {"se", "plus", false}};
  for (const auto &[layout, key, is_shifted] : keyboards) {
    SCOPED_TRACE(layout);
    SetLayout(layout);
    const KeyCode shift = XKeysymToKeycode(x_.get(), XK_Shift_L);
    const KeyCode plus = XKeysymToKeycode(x_.get(), XK_plus);
    TapUntilNotDropped(key, [&, is_shifted = is_shifted] {
      for (const Bool down : {True, False}) {
        if (is_shifted) {
          XTestFakeKeyEvent(x_.get(), shift, down, CurrentTime);
        }
        XTestFakeKeyEvent(x_.get(), plus, down, CurrentTime);
      }
      XSync(x_.get(), False);
    });
    ExpectLine("  canvas  volume                " + std::to_string(++volume));
  }
}

TEST_F(Viewer, ShowsEachRepetitionOfAHeldKey) {
  StartAndTakeKeyboard();
  const KeyCode key = XKeysymToKeycode(x_.get(), XK_Page_Up);
  XAutoRepeatOn(x_.get());
  XTestFakeKeyEvent(x_.get(), key, True, CurrentTime);
  XSync(x_.get(), False);
  for (int channel = 2; channel <= 4; ++channel) {
    ExpectLine("  canvas  channel               " + std::to_string(channel));
    EXPECT_THAT(ExpectKeyOnCanvas(), AllOf(HasSubstr("  Prior  press  "), HasSubstr("  taken by channel  ")));
  }
  XTestFakeKeyEvent(x_.get(), key, False, CurrentTime);
  XSync(x_.get(), False);
  std::string line;
  do {
    line = ExpectKeyOnCanvas();
  } while (line.find("  Prior  press  ") != std::string::npos);
  EXPECT_THAT(line, HasSubstr("  Prior  release  "));
}

std::string ContentOf(const std::string &file) {
  std::ostringstream content;
  content << std::ifstream(file).rdbuf();
  return content.str();
}

// A caption comes by way of the TV service, a recording by way of the PVR service.
TEST_F(Viewer, TakesAPictureAfterTheOrdersBeforeIt) {
  const auto picture_after = [&](const std::string &orders, const std::string &name) {
    const std::string file = store_ / name;
    viewer_->WriteLine(orders + "picture " + file); // at once
    ExpectLine("  studio                picture written: " + file);
    return ContentOf(file);
  };
  StartAndTakeKeyboard();
  const std::string empty = picture_after("", "empty.png");
  EXPECT_NE(empty, "");
  const std::string caption = picture_after("caption Good evening.\n", "caption.png");
  EXPECT_NE(caption, empty);
  EXPECT_EQ(picture_after("", "again.png"), caption); // with all of the caption
  EXPECT_NE(picture_after("record 7\n", "recording.png"), caption);
  viewer_->WriteLine("picture " + (store_ / "none/picture.png"));
  ExpectLine("  studio                the picture cannot be written: " + (store_ / "none/picture.png"));
}

TEST_F(Viewer, ShowsNoBytesThatAreNotText) {
  StartAndTakeKeyboard();
  viewer_->WriteLine("caption \x1b[31mred\xff\xc2\x9b \xe2\x80\xaeltr \xc3\xa4");
  const std::string line = ExpectLine("\xc3\xa4");
  EXPECT_THAT(line, EndsWith("captions              \xef\xbf\xbd[31mred\xef\xbf\xbd\xef\xbf\xbd "
                             "\xef\xbf\xbdltr \xc3\xa4"));
}

TEST_F(Viewer, SaysWhatIsWrongWithAGuide) {
  const std::string binary = store_ / "binary";
  std::ofstream(binary) << "20:15 News\n\x01\x02\xff\n";
  const std::pair<std::string, std::string> guides[] = {{store_ / "none", "no programme guide in " + (store_ / "none")},
                                                        {store_ / "", "no programme guide in " + (store_ / "")},
                                                        {binary, "the programme guide in " + binary + " is not text"}};
  for (const auto &[file, message] : guides) {
    Start({"--grab", "--guide", file});
    ExpectLine("all keys of this display come here");
    Tap("g");
    ExpectLine("  guide                 " + message);
  }
}

TEST_F(Viewer, ListsTheOrdersOfTheStudio) {
  StartAndTakeKeyboard();
  viewer_->WriteLine("help");
  ExpectLine("caption TEXT: broadcast a caption");
  ExpectLine("subscriptions: print the subscriptions at the TV service and the modules that share them");
}

TEST_F(Viewer, TakesOrdersFromAFile) {
  const std::string orders = store_ / "orders";
  std::ofstream(orders) << "caption Good evening.\nsing\n";
  std::vector<std::string> command = Command({});
  command[2] = "exec \"$0\" \"$@\" 2>&1 <" + orders;
  viewer_ = std::make_unique<lumio::Program>(command, ViewerEnvironment());
  EXPECT_THAT(ExpectLine("(\"help\" lists the orders)"), HasSubstr("  not understood: sing "));
  ExpectLine("  captions              Good evening.");
}

// --- The remote control on the screen --------------------------------------------------------------------------------

std::vector<KeySym> Keymap(Display *display) {
  int first = 0, last = 0, width = 0;
  XDisplayKeycodes(display, &first, &last);
  KeySym *symbols = XGetKeyboardMapping(display, static_cast<KeyCode>(first), last - first + 1, &width);
  std::vector<KeySym> keymap(symbols, symbols + (last - first + 1) * width);
  XFree(symbols);
  return keymap;
}

TEST_F(Viewer, PressesKeysOfTheKeymapWithTheButtonsOfItsRemoteControl) {
  Start({"--remote"});
  ExpectLine("here: keys come");
  const Window window = FocusedWindow();
  Tap("F9"); // of a device with keys that the XTEST keyboard lacks
  EXPECT_THAT(ExpectKeyOnCanvas(), HasSubstr("  F9  press  HWKeys  "));
  ExpectKeyOnCanvas();
  const auto click = [&](const std::pair<double, double> &place, const std::string &key) {
    return TapUntilNotDropped(key, [&] { Click(window, place.first, place.second); });
  };
  click({0.82, 0.23}, "1"); // the core keyboard takes over the keymap of the device that sends
  ExpectKeyOnCanvas();
  ExpectKeyOnCanvas();
  const std::vector<KeySym> keymap = Keymap(x_.get());
  // In the order of its lines, of two or three buttons each, in parts of the window. The menu is open for its keys.
  constexpr double kLeft = 0.825, kMiddle = 0.886, kRight = 0.948, kHalfLeft = 0.84, kHalfRight = 0.933;
  constexpr auto line = [](int number) { return 0.13 + 0.0866 * number; };
  const struct {
    std::pair<double, double> place;
    const char *key, *taker;
  } buttons[] = {{{kHalfLeft, line(0)}, "XF86Standby", "power"},
                 {{kLeft, line(1)}, "1", "channel"},
                 {{kMiddle, line(1)}, "2", "channel"},
                 {{kRight, line(1)}, "3", "channel"},
                 {{kLeft, line(2)}, "4", "channel"},
                 {{kMiddle, line(2)}, "5", "channel"},
                 {{kRight, line(2)}, "6", "channel"},
                 {{kLeft, line(3)}, "7", "channel"},
                 {{kMiddle, line(3)}, "8", "channel"},
                 {{kRight, line(3)}, "9", "channel"},
                 {{kHalfLeft, line(4)}, "XF86AudioRaiseVolume", "volume"},
                 {{kHalfRight, line(4)}, "Prior", "channel"},
                 {{kHalfLeft, line(5)}, "XF86AudioLowerVolume", "volume"},
                 {{kHalfRight, line(5)}, "Next", "channel"},
                 {{kLeft, line(6)}, "Menu", "menu"},
                 {{kMiddle, line(6)}, "Up", "menu"},
                 {{kMiddle, line(7)}, "Return", "menu"},
                 {{kMiddle, line(8)}, "Down", "menu"},
                 {{kLeft, line(7)}, "Escape", "menu"},
                 {{kRight, line(6)}, "g", "guide"},
                 {{kRight, line(7)}, "i", "info"},
                 {{kLeft, line(8)}, "c", "captions"},
                 {{kRight, line(8)}, "t", "teletext"},
                 {{kHalfLeft, line(9)}, "r", "data"},
                 {{kHalfRight, line(9)}, "o", "recorder"},
                 {{kHalfRight, line(0)}, "F1", "panels"}}; // makes the remote control smaller
  for (const auto &[place, key, taker] : buttons) {
    SCOPED_TRACE(key);
    EXPECT_THAT(click(place, key), HasSubstr("  taken by " + std::string(taker) + "  "));
    EXPECT_THAT(ExpectKeyOnCanvas(),
                AllOf(HasSubstr("  " + std::string(key) + "  press  "), HasSubstr("  Virtual core XTEST keyboard  ")));
    EXPECT_THAT(ExpectKeyOnCanvas(), HasSubstr("  " + std::string(key) + "  release  "));
  }
  EXPECT_EQ(FocusedWindow(), window);
  EXPECT_EQ(Keymap(x_.get()), keymap);
}

// The digits of a French keyboard are typed with Shift. On a keyboard of two languages, the remote control follows the
// one that is selected.
TEST_F(Viewer, PressesShiftWhereItsRemoteControlNeedsIt) {
  Start({"--remote"});
  ExpectLine("here: keys come");
  const Window window = FocusedWindow();
  Tap("F9");
  const struct {
    const char *layouts;
    unsigned selected;
    const char *key; // its name in the first language
  } keyboards[] = {{"us", 0, "1"}, {"fr", 0, "ampersand"}, {"us,fr", 1, "1"}, {"fr,us", 1, "ampersand"}};
  for (const auto &[layouts, selected, key] : keyboards) {
    SCOPED_TRACE(std::string(layouts) + " " + std::to_string(selected));
    SetLayout(layouts);
    XkbLockGroup(x_.get(), XkbUseCoreKbd, selected);
    XSync(x_.get(), False);
    EXPECT_THAT(TapUntilNotDropped(key, [&] { Click(window, 0.825, 0.2166); }), HasSubstr("  taken by channel  "));
    ExpectLine("  screen  channel               1");
  }
}

// --- Without a studio ------------------------------------------------------------------------------------------------

TEST_F(Viewer, HasSomethingToShowOfEveryModuleByItself) {
  StartWithoutStudio();
  std::set<std::string> missing = {
      "light",        "picture",    "tuner",       "services",         "now",         "next",    "teletext", "captions",
      "stream meter", "transcript", "recorder",    "record indicator", "layout",      "channel", "volume",   "info",
      "guide",        "menu",       "unused keys", "viewer",           "data service"};
  const auto read = [&, deadline = Deadline()] {
    const auto line = viewer_->ReadLine(deadline);
    missing.erase(ItemOf(line.value_or("")));
    return line;
  };
  while (missing.count("viewer") && read()) { // until it takes keys
  }
  for (const char *key : {"Up", "XF86AudioRaiseVolume", "i", "g", "r", "F5", "m"}) {
    ::TapUntilNotDropped(display_, key, read);
  }
  while (!missing.empty() && read()) {
  }
  EXPECT_THAT(missing, testing::IsEmpty());
}

TEST_F(Viewer, HasProgrammesOfItsOwnOnEachChannel) {
  StartWithoutStudio();
  ExpectLine("all keys of this display come here");
  std::map<std::string, std::set<std::string>> titles; // by item
  std::map<std::string, std::string> last;
  const auto read_next_title = [&](const std::string &item) {
    const std::string line = FindLine([&](const std::string &candidate) { // those of a channel come more than once
      return ItemOf(candidate) == item && candidate.substr(candidate.rfind("  ")) != last[item];
    });
    ASSERT_NE(line, "") << item;
    last[item] = line.substr(line.rfind("  "));
    titles[item].insert(last[item]);
  };
  const auto half_hour = [] { return std::time(nullptr) / 1800; }; // when all programmes change
  std::time_t begun = 0;
  do {
    begun = half_hour();
    titles.clear();
    for (int channel = 1; channel <= 9; ++channel) {
      Tap(std::to_string(channel));
      read_next_title("now");
      read_next_title("next");
    }
  } while (begun != half_hour() && !HasFatalFailure());
  EXPECT_EQ(titles["now"].size(), 9U);
  EXPECT_EQ(titles["next"].size(), 9U);
  EXPECT_NE(last["now"], last["next"]);
}

#if !defined(__SANITIZE_ADDRESS__) &&                                                                                  \
    !defined(__SANITIZE_THREAD__) // which keep what is freed, and look for leaks anyway
TEST_F(Viewer, KeepsNoMemoryOfThousandsOfKeys) {
  StartWithoutStudio({"--still"});
  ExpectLine("all keys of this display come here");
  Tap("F1");
  const auto growth = [&] { // in kilobytes, over 500 keys
    const int before = OwnKilobytes();
    for (int i = 0; i < 500; ++i) {
      Tap("XF86AudioRaiseVolume");
      KeyLine(); // about the release
    }
    return OwnKilobytes() - before;
  };
  growth(); // fills the caches
  growth();
  std::vector<int> growths(8);
  std::generate(growths.begin(), growths.end(), growth);
  std::sort(growths.begin(), growths.end());
  // 32 bytes kept of each event would be at least 31 kilobytes every time. What the allocator itself takes and returns
  // falls into some of them only.
  EXPECT_LT(growths[2], 24) << testing::PrintToString(growths);
}
#endif

// --- Ends ------------------------------------------------------------------------------------------------------------

TEST_F(Viewer, SaysThatItsWindowWasDestroyed) {
  StartAndTakeKeyboard();
  XDestroyWindow(x_.get(), FocusedWindow());
  XSync(x_.get(), False);
  ExpectLine("lumio-viewer: another program has destroyed the window");
  ExpectLine("closed in order");
  EXPECT_EQ(EXIT_FAILURE, viewer_->Wait(Deadline()));
}

TEST_F(Viewer, SaysThatTheServerHasGone) {
  StartAndTakeKeyboard();
  x_.reset();
  display_.Stop();
  ExpectLine("lumio-viewer: the X server has gone, or has closed the connection");
  EXPECT_EQ(EXIT_FAILURE, viewer_->Wait(Deadline()));
}

constexpr char kHangs[] = "lumio-viewer: something hangs: ended before everything was closed";

// Something hangs: a pipe that nobody reads or writes.
class HangingViewer : public Viewer {
protected:
  HangingViewer() : pipe_(store_ / "pipe") { mkfifo(pipe_.c_str(), 0600); }

  void StartWithABusyModule() {
    Start({"--grab", "--guide", pipe_});
    ExpectLine("all keys of this display come here");
    TapOnce("g"); // its line comes when the module has the time for it
    ExpectLine("loading");
  }

  // Starts the viewer with both ends of the pipe as its standard output, and fills the pipe when the viewer is idle.
  void StartWithFullOutput(const std::string &redirection) {
    std::vector<std::string> command = Command({"--grab"});
    command[2] = "exec \"$0\" \"$@\" " + redirection;
    Environment environment = ViewerEnvironment();
    environment["OUTPUT"] = pipe_;
    output_.open(pipe_, std::ios::in | std::ios::out);
    viewer_ = std::make_unique<lumio::Program>(command, environment);
    ReadOutputUntil("all keys of this display come here");
    TapOnce("F5");
    ReadOutputUntil("  canvas  key                   ");
    ReadOutputUntil("  release  ");
    const lumio::FileDescriptor full(open(pipe_.c_str(), O_WRONLY | O_NONBLOCK | O_CLOEXEC));
    while (write(full.Get(), "x", 1) == 1) {
    }
  }

  void ExpectFailure() { EXPECT_EQ(EXIT_FAILURE, viewer_->Wait(Deadline())); }

  const std::string pipe_;
  std::fstream output_;

private:
  void ReadOutputUntil(const std::string &text) {
    std::string line;
    while (line.find(text) == std::string::npos && std::getline(output_, line)) {
    }
  }
};

#ifndef __SANITIZE_THREAD__ // it holds a signal back while a program opens a file
TEST_F(HangingViewer, EndsWhileItStarts) {
  Start({"--tv", pipe_});
  const lumio::FileDescriptor stream(open(pipe_.c_str(), O_WRONLY | O_CLOEXEC)); // returns once the viewer reads it
  viewer_->Signal(SIGTERM);
  ExpectLine(kHangs);
  ExpectFailure();
}
#endif

TEST_F(HangingViewer, EndsWhileAModuleIsBusy) {
  StartWithABusyModule();
  viewer_->Signal(SIGTERM);
  ExpectLine(kHangs);
  ExpectFailure();
}

TEST_F(HangingViewer, EndsHoweverOftenItIsAsked) {
  StartWithABusyModule();
  const auto deadline = Deadline();
  std::optional<int> status;
  do {
    viewer_->Signal(SIGTERM);
    status = viewer_->Wait(lumio::Clock::now() + std::chrono::milliseconds(100));
  } while (!status && lumio::Clock::now() < deadline);
  EXPECT_EQ(EXIT_FAILURE, status);
}

TEST_F(HangingViewer, EndsWhenAServiceDoesNotStop) {
  Environment environment = ViewerEnvironment();
  environment["LD_PRELOAD"] = HANGING_SERVICE;
  environment["ASAN_OPTIONS"] = "verify_asan_link_order=0";
  viewer_ = std::make_unique<lumio::Program>(Command({"--grab"}), environment);
  ExpectLine("all keys of this display come here");
  viewer_->Signal(SIGTERM);
  ExpectLine("the TV service hangs");
  ExpectLine(kHangs);
  ExpectFailure();
}

TEST_F(HangingViewer, EndsWhenItsEndHangs) {
  StartWithFullOutput("2>&1 >$OUTPUT");
  viewer_->Signal(SIGTERM);
  ExpectLine(kHangs);
  ExpectFailure();
}

TEST_F(HangingViewer, EndsWhenNobodyReadsWhatItSays) {
  StartWithFullOutput(">$OUTPUT 2>&1");
  viewer_->Signal(SIGTERM);
  ExpectFailure();
}

} // namespace
