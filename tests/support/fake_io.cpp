#include "fake_io.h"

#include "uncounted.h"

#include <dlfcn.h>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/uio.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdarg>
#include <cstdio>

namespace {

struct Plan {
  int nth;
  int error; // 0: die
  bool for_good;
};

thread_local Plan g_plan;
thread_local int g_made;

bool Fails() {
  if (Uncounted::Active()) {
    return false;
  }
  ++g_made;
  if (g_plan.nth == 0 || g_made < g_plan.nth || (g_made > g_plan.nth && !g_plan.for_good)) {
    return false;
  }
  if (g_plan.error == 0) {
    raise(SIGKILL);
  }
  errno = g_plan.error;
  return true;
}

void Arm(const Plan &plan) {
  g_plan = plan;
  g_made = 0;
}

} // namespace

// The next definition of the function: the C library's, or a sanitizer's.
#define REAL(name) reinterpret_cast<decltype(&(name))>(dlsym(RTLD_NEXT, #name))

void FailIo(int nth, int error, bool for_good) { Arm({nth, error, for_good}); }
void DieAtIo(int nth) { Arm({nth, 0, false}); }
int IoMade() { return g_made; }

extern "C" {

int open(const char *path, int flags, ...) {
  va_list arguments;
  va_start(arguments, flags);
  // NOLINTNEXTLINE(clang-analyzer-valist.Uninitialized): it is initialized
  const mode_t mode = (flags & O_CREAT) != 0 ? va_arg(arguments, mode_t) : 0;
  va_end(arguments);
  return Fails() ? -1 : REAL(open)(path, flags, mode);
}

ssize_t write(int file, const void *data, size_t size) { return Fails() ? -1 : REAL(write)(file, data, size); }

ssize_t writev(int file, const iovec *parts, int count) { return Fails() ? -1 : REAL(writev)(file, parts, count); }

ssize_t pwrite(int file, const void *data, size_t size, off_t offset) {
  return Fails() ? -1 : REAL(pwrite)(file, data, size, offset);
}

void *mmap(void *address, size_t size, int protection, int flags, int file, off_t offset) noexcept {
  return Fails() ? MAP_FAILED : REAL(mmap)(address, size, protection, flags, file, offset);
}

int mkdir(const char *path, mode_t mode) noexcept { return Fails() ? -1 : REAL(mkdir)(path, mode); }
int ftruncate(int file, off_t size) noexcept { return Fails() ? -1 : REAL(ftruncate)(file, size); }
int rename(const char *from, const char *to) noexcept { return Fails() ? -1 : REAL(rename)(from, to); }
int flock(int file, int operation) noexcept { return Fails() ? -1 : REAL(flock)(file, operation); }
int fsync(int file) { return Fails() ? -1 : REAL(fsync)(file); }
int fdatasync(int file) { return Fails() ? -1 : REAL(fdatasync)(file); }

} // extern "C"
