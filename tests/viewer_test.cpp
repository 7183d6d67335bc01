// Runs the sample viewer as a process, on a display and without one.
#include <gmock/gmock.h>

#include <csignal>
#include <cstdlib>
#include <memory>
#include <string>

#include "device_names.h"
#include "display.h"
#include "program.h"
#include "temporary_directory.h"

#include <X11/Xlib.h> // after gmock, whose names its macros would replace

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

  void Start(const std::vector<std::string> &options = {"--grab"}) {
    Environment environment = {{"LUMIO_LOG", "none"}, {"LUMIO_VCONF_DIR", store_ / "vconf"}};
    for (const auto &[name, value] : display_.Environment()) {
      environment[name] = value;
    }
    std::vector<std::string> command = {LUMIO_VIEWER, "--studio", "--still"};
    command.insert(command.end(), options.begin(), options.end());
    viewer_ = std::make_unique<lumio::Program>(command, environment);
  }

  void StartAndTakeKeyboard() {
    Start();
    ExpectLine("ready, all keys of this display come here");
  }

  // Returns the next line of the viewer that ends with `end`.
  std::string ExpectLine(const std::string &end) {
    std::optional<std::string> line;
    do {
      line = viewer_->ReadLine(Deadline());
    } while (line && !testing::Matches(EndsWith(end))(*line));
    EXPECT_TRUE(line) << "the viewer does not print: " << end;
    return line.value_or("");
  }

  // Returns the line about the next key event.
  std::string KeyLine() {
    std::optional<std::string> line;
    do {
      line = viewer_->ReadLine(Deadline());
    } while (line && line->find("  key     ") != line->find("  "));
    EXPECT_TRUE(line) << "the viewer prints no line about a key";
    return line.value_or("");
  }

  void Tap(const std::string &key) {
    display_.Press(lumio::device::kHardwareKeys, key);
    display_.Release(lumio::device::kHardwareKeys, key);
  }

  void ExpectOrderlyEnd() {
    ExpectLine("closed in order");
    EXPECT_EQ(EXIT_SUCCESS, viewer_->Wait(Deadline()));
  }

  std::string Title(Window window) {
    Atom type = 0;
    int format = 0;
    unsigned long count = 0;
    unsigned long left = 0;
    unsigned char *text = nullptr;
    XGetWindowProperty(x_.get(), window, XInternAtom(x_.get(), "_NET_WM_NAME", False), 0, 64, False, AnyPropertyType,
                       &type, &format, &count, &left, &text);
    std::string title(reinterpret_cast<char *>(text), count);
    XFree(text);
    return title;
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
}

TEST_F(Viewer, PrintsEachKey) {
  StartAndTakeKeyboard();
  Tap("F5");
  EXPECT_THAT(KeyLine(), testing::ContainsRegex("^[0-9]{2}:[0-9]{2}:[0-9]{2}\\.[0-9]{3}  key     F5 +press    other "
                                                "device    asked menu, power, volume, channel, info, guide, data, "
                                                "captions, panels, logger  "
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
  Tap("F5");
  EXPECT_THAT(KeyLine(), HasSubstr("  F5  "));
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
  StartAndTakeKeyboard();
  viewer_->Signal(GetParam());
  ExpectOrderlyEnd();
}

INSTANTIATE_TEST_SUITE_P(ByAsking, ViewerSignal, testing::Values(SIGINT, SIGTERM));

} // namespace
