// The private X server that other tests and the demo use.

#include <gmock/gmock.h>

#include <fcntl.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <stdexcept>
#include <string>

#include "child_process.h"
#include "device_names.h"
#include "display.h"
#include "temporary_directory.h"

using lumio::Plug;
using lumio::PrivateDisplay;
using lumio::device::kHardwareKeys;
using testing::AllOf;
using testing::HasSubstr;
using testing::ThrowsMessage;

namespace {

// A pipe that shows when every process that has inherited it has ended, such as the server of a display.
class Heirloom {
public:
  Heirloom() { EXPECT_EQ(pipe(ends_), 0); }
  ~Heirloom() { close(ends_[0]); }
  // Waits for the end of all heirs. Call it when they have started.
  void AwaitEnd() {
    char nothing;
    close(ends_[1]);
    EXPECT_EQ(read(ends_[0], &nothing, 1), 0);
  }

private:
  int ends_[2];
};

// The displays create their files in a directory of the test.
class PrivateDisplayTest : public testing::Test {
protected:
  void SetUp() override { setenv("TMPDIR", directory_.Path().c_str(), 1); }
  void TearDown() override { EXPECT_TRUE(std::filesystem::is_empty(directory_.Path())); }

  const lumio::TemporaryDirectory directory_;
};

TEST_F(PrivateDisplayTest, LeavesNoFilesWhileItRuns) {
  const PrivateDisplay display;
  EXPECT_TRUE(std::filesystem::is_empty(directory_.Path()));
}

TEST_F(PrivateDisplayTest, RefusesUnknownDevicesAndKeys) {
  PrivateDisplay display;
  EXPECT_THAT([&] { display.Press("Mouse", "Return"); },
              ThrowsMessage<std::invalid_argument>("The private display has no input device \"Mouse\""));
  EXPECT_THAT([&] { display.Release(kHardwareKeys, "Any"); },
              ThrowsMessage<std::invalid_argument>("The private display has no key \"Any\""));
  EXPECT_THROW(display.SetPlug("Mouse", Plug::kFloating), std::invalid_argument);
  EXPECT_THROW(display.DeviceId("Mouse"), std::invalid_argument);
}

TEST_F(PrivateDisplayTest, EndsWhenToldTo) {
  Heirloom heirloom;
  PrivateDisplay display;
  display.Stop();
  heirloom.AwaitEnd();
  display.Stop();
  const PrivateDisplay successor; // has the same number, unless a third server was faster
  EXPECT_THROW(display.Press(kHardwareKeys, "Return"), std::runtime_error);
  EXPECT_THROW(display.SetPlug(kHardwareKeys, Plug::kUnplugged), std::runtime_error);
}

TEST_F(PrivateDisplayTest, EndsWhenItIsDestroyed) {
  Heirloom heirloom;
  { const PrivateDisplay display; }
  heirloom.AwaitEnd();
}

TEST_F(PrivateDisplayTest, ReportsAMissingServer) {
  EXPECT_THAT(
      [] {
        PrivateDisplay({{}, "/nowhere/Xorg"});
      },
      ThrowsMessage<std::runtime_error>(AllOf(HasSubstr("The X server /nowhere/Xorg does not start:"),
                                              HasSubstr("xserver-xorg-core and xserver-xorg-video-dummy"))));
}

TEST_F(PrivateDisplayTest, LooksForAServerWithoutAPathInPath) {
  EXPECT_EQ(setenv("PATH", "/usr/lib/xorg", 1), 0);
  EXPECT_FALSE(PrivateDisplay({lumio::TelevisionDevices(), "Xorg"}).Name().empty());
}

TEST_F(PrivateDisplayTest, ReportsWhyTheServerDoesNotStart) {
  EXPECT_THAT([] { PrivateDisplay({{{"no \"valid\" name"}}}); },
              ThrowsMessage<std::runtime_error>(
                  AllOf(HasSubstr("does not start:"), HasSubstr("Error parsing the config file"))));
  EXPECT_THAT(
      [] {
        PrivateDisplay({{}, "/bin/cat"});
      },
      ThrowsMessage<std::runtime_error>(HasSubstr("/bin/cat: invalid option")));
}

TEST_F(PrivateDisplayTest, ReportsAnUnwritableDirectory) {
  setenv("TMPDIR", "/proc", 1);
  EXPECT_THAT([] { PrivateDisplay(); }, ThrowsMessage<std::runtime_error>(HasSubstr("Cannot create /proc/lumio-")));
}

TEST_F(PrivateDisplayTest, EndsWithAnOwnerThatIsKilled) {
  Heirloom heirloom;
  int report[2];
  ASSERT_EQ(pipe2(report, O_CLOEXEC), 0);
  const pid_t pid = fork();
  if (pid == 0) {
    const PrivateDisplay display;
    [[maybe_unused]] const ssize_t written = write(report[1], "r", 1);
    for (;;) {
      pause();
    }
  }
  lumio::ChildProcess owner(pid);
  close(report[1]);
  char ready;
  EXPECT_EQ(read(report[0], &ready, 1), 1);
  owner.Kill();
  heirloom.AwaitEnd();
  close(report[0]);
}

} // namespace
