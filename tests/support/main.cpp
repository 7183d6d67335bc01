// Runs one test: brings EFL up and down around it and checks that no file descriptor is left open.
#include <Ecore.h>
#include <Ecore_Input.h>
#include <gmock/gmock.h>

#include <dirent.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <set>
#include <string>

#include "../../platform/host/src/store.h"

namespace {

// EFL ends a program that has neither a directory of the session nor a home to make one in. That it is missing does not
// matter. Before the fakes, one of which brings EFL up.
__attribute__((constructor(101))) void NameADirectoryOfTheSession() { setenv("XDG_RUNTIME_DIR", "/nonexistent", 0); }

// Temporary files are kept in memory where possible, since the tests sync them often.
__attribute__((constructor)) void KeepTemporaryFilesInMemory() {
  if (access("/dev/shm", W_OK) == 0) {
    setenv("TMPDIR", "/dev/shm", 0);
  }
}

std::set<std::string> OpenDescriptors() {
  std::set<std::string> open;
  DIR *directory = opendir("/proc/self/fd");
  while (const dirent *entry = readdir(directory)) {
    open.insert(entry->d_name);
  }
  closedir(directory);
  return open;
}

} // namespace

// LeakSanitizer's hook. What the dynamic linker keeps of a library that EFL loads is recognised as its own, unless a
// test stands in for malloc. Weak, so that a suite with more to tell gives its own.
extern "C" const char *__lsan_default_suppressions();
extern "C" __attribute__((weak)) const char *__lsan_default_suppressions() { return "leak:ld-linux\n"; }

int main(int argc, char **argv) {
  // What is expected to end the process is run by a new one, in which no thread is missing. Where an emulator cannot
  // start one, the variable says so.
  if (!getenv("GTEST_DEATH_TEST_STYLE")) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
  }
  testing::InitGoogleMock(&argc, argv);
  const std::set<std::string> before = OpenDescriptors();
  ecore_app_no_system_modules();
  ecore_init();
  ecore_event_init();
  int result = RUN_ALL_TESTS();
  ecore_event_shutdown();
  ecore_shutdown();
  lumio::store::Close(); // which the host platform keeps open for the life of a process
  if (OpenDescriptors() != before) {
    fprintf(stderr, "The test left file descriptors open.\n");
    result = 1;
  }
  return result;
}
