// Runs a test: initialises EFL before it, shuts EFL down after it, and checks that no file descriptor is left open.
#include "each_test.h"

#include <gmock/gmock.h>
#include <lumio-host/testing.h>

#include <dirent.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <set>
#include <string>

namespace {

// EFL ends a program that has neither XDG_RUNTIME_DIR nor a home directory. This directory cannot be created, so
// nothing is stored there. The function runs before the fakes, one of which initialises EFL.
__attribute__((constructor(101))) void NameADirectoryOfTheSession() { setenv("XDG_RUNTIME_DIR", "/dev/null/run", 0); }

// Temporary files are kept in memory where possible, since the tests sync them often.
__attribute__((constructor)) void KeepTemporaryFilesInMemory() {
  if (access("/dev/shm", W_OK) == 0) {
    setenv("TMPDIR", "/dev/shm", 0);
  }
}

// For the programs that a test starts. The options of its own process are read before this.
__attribute__((constructor)) void SuppressLeaksOfLibraries() {
  setenv("LSAN_OPTIONS", "suppressions=" LSAN_SUPPRESSIONS ":print_suppressions=0", 0);
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

// LeakSanitizer calls this function. The dynamic linker keeps memory for libraries that EFL loads; LeakSanitizer
// recognises that memory only if no test replaces malloc. Weak, so that a suite with more suppressions can define its
// own.
extern "C" const char *__lsan_default_suppressions();
extern "C" __attribute__((weak)) const char *__lsan_default_suppressions() {
  return "leak:ld-linux\nleak:libevas.so\nleak:eina_module_new\n";
}

int main(int argc, char **argv) {
  // A death test runs in a new process, which has all its threads. An emulator that cannot start one sets the variable.
  if (!getenv("GTEST_DEATH_TEST_STYLE")) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
  }
  testing::InitGoogleMock(&argc, argv);
  if (const std::optional<int> result = ForkEachTest()) {
    return *result;
  }
  const std::set<std::string> before = OpenDescriptors();
  int result = 0;
  {
    const lumio::testing::Session session;
    result = RUN_ALL_TESTS();
  }
  if (OpenDescriptors() != before) {
    fprintf(stderr, "The test has left file descriptors open.\n");
    result = 1;
  }
  return result;
}
