#include "fake_io.h"

#include "uncounted.h"

#include <dlfcn.h>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/uio.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <csignal>
#include <cstdarg>
#include <cstddef>
#include <cstdio>
#include <cstring>

namespace {

struct Plan {
  int nth;
  int error; // 0: kill the process
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

// The last files and directories that this thread has changed but not synced.
struct Changed {
  dev_t device;
  ino_t inode;
};

constexpr size_t kMostChanged = 16;
thread_local Changed g_changed[kMostChanged];
thread_local size_t g_changed_count;

Changed *Find(const struct stat &status) {
  return std::find_if(g_changed, g_changed + g_changed_count, [&](const Changed &changed) {
    return changed.device == status.st_dev && changed.inode == status.st_ino;
  });
}

bool IsStored(const struct stat &status) { return S_ISREG(status.st_mode) || S_ISDIR(status.st_mode); }

void NoteChange(const struct stat &status) {
  if (!IsStored(status) || Find(status) != g_changed + g_changed_count) {
    return;
  }
  if (g_changed_count == kMostChanged) {
    std::copy(g_changed + 1, g_changed + kMostChanged, g_changed);
    --g_changed_count;
  }
  g_changed[g_changed_count++] = {status.st_dev, status.st_ino};
}

template <class Result> Result Changing(Result result, int file) {
  struct stat status;
  if (result > 0 && fstat(file, &status) == 0) {
    NoteChange(status);
  }
  return result;
}

int ChangingDirectoryOf(const char *path, int result) {
  char directory[PATH_MAX] = ".";
  const char *slash = strrchr(path, '/');
  if (slash) {
    snprintf(directory, sizeof directory, "%.*s", static_cast<int>(std::max<ptrdiff_t>(slash - path, 1)), path);
  }
  struct stat status;
  if (result >= 0 && stat(directory, &status) == 0) {
    NoteChange(status);
  }
  return result;
}

int Syncing(int file, int result) {
  struct stat status;
  if (result == 0 && fstat(file, &status) == 0) {
    Changed *changed = Find(status);
    if (changed != g_changed + g_changed_count) {
      std::copy(changed + 1, g_changed + g_changed_count, changed);
      --g_changed_count;
    }
  }
  return result;
}

} // namespace

// Returns the next definition of a function: the C library's, or a sanitizer's.
#define REAL(name) reinterpret_cast<decltype(&(name))>(dlsym(RTLD_NEXT, #name))

void FailIo(int nth, int error, bool for_good) { Arm({nth, error, for_good}); }
void DieAtIo(int nth) { Arm({nth, 0, false}); }
int IoMade() { return g_made; }

bool IsSynced(const std::string &path) {
  struct stat status;
  return stat(path.c_str(), &status) == 0 && Find(status) == g_changed + g_changed_count;
}

extern "C" {

int open(const char *path, int flags, ...) {
  va_list arguments;
  va_start(arguments, flags);
  // NOLINTNEXTLINE(clang-analyzer-valist.Uninitialized): it is initialized
  const mode_t mode = (flags & O_CREAT) != 0 ? va_arg(arguments, mode_t) : 0;
  va_end(arguments);
  const int file = Fails() ? -1 : REAL(open)(path, flags, mode);
  return (flags & O_CREAT) != 0 ? ChangingDirectoryOf(path, file) : file;
}

ssize_t write(int file, const void *data, size_t size) {
  return Fails() ? -1 : Changing(REAL(write)(file, data, size), file);
}

ssize_t writev(int file, const iovec *parts, int count) {
  return Fails() ? -1 : Changing(REAL(writev)(file, parts, count), file);
}

ssize_t pwrite(int file, const void *data, size_t size, off_t offset) {
  return Fails() ? -1 : Changing(REAL(pwrite)(file, data, size, offset), file);
}

void *mmap(void *address, size_t size, int protection, int flags, int file, off_t offset) noexcept {
  return Fails() ? MAP_FAILED : REAL(mmap)(address, size, protection, flags, file, offset);
}

int mkdir(const char *path, mode_t mode) noexcept {
  return Fails() ? -1 : ChangingDirectoryOf(path, REAL(mkdir)(path, mode));
}

int rename(const char *from, const char *to) noexcept {
  return Fails() ? -1 : ChangingDirectoryOf(to, REAL(rename)(from, to));
}

int ftruncate(int file, off_t size) noexcept { return Fails() ? -1 : REAL(ftruncate)(file, size); }
int flock(int file, int operation) noexcept { return Fails() ? -1 : REAL(flock)(file, operation); }
int fsync(int file) { return Fails() ? -1 : Syncing(file, REAL(fsync)(file)); }
int fdatasync(int file) { return Fails() ? -1 : Syncing(file, REAL(fdatasync)(file)); }

} // extern "C"
