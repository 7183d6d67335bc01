#pragma once

#include <sys/types.h>

#include <optional>

#include "file_descriptor.h"
#include "wait_readable.h"

namespace lumio {

// Owns a child process, however it was started. The process is known by a descriptor rather than by its number: EFL
// waits for every child of the program, after which the number may be another process's.
class ChildProcess {
public:
  ChildProcess() = default;
  // `pid` is what fork() or posix_spawn() returned in the parent. Throws std::system_error.
  explicit ChildProcess(pid_t pid);
  ChildProcess(ChildProcess &&) = default;
  ChildProcess &operator=(ChildProcess &&) = default;
  // Kills the process if it is still running, and waits for its end.
  ~ChildProcess() { Kill(); }

  // False before it was started and after its end was waited for.
  bool Exists() const { return descriptor_.Get() >= 0; }
  // Does nothing when the process has ended.
  void Signal(int number) const;
  // Waits for the end of the process. Returns its exit status, or the negative number of the signal that ended it;
  // nothing at the deadline.
  std::optional<int> Wait(Clock::time_point deadline = Clock::time_point::max());
  void Kill();

private:
  FileDescriptor descriptor_;
};

} // namespace lumio
