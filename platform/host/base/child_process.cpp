#include "child_process.h"

#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <system_error>

namespace lumio {

ChildProcess::ChildProcess(pid_t pid) : descriptor_(static_cast<int>(syscall(SYS_pidfd_open, pid, 0))) {
  if (!Exists()) {
    throw std::system_error(errno, std::generic_category(), "pidfd_open");
  }
}

void ChildProcess::Signal(int number) const { syscall(SYS_pidfd_send_signal, descriptor_.Get(), number, nullptr, 0); }

std::optional<int> ChildProcess::Wait(Clock::time_point deadline) {
  if (!WaitReadable(descriptor_.Get(), deadline)) {
    return std::nullopt;
  }
  siginfo_t end = {};
  waitid(P_PIDFD, static_cast<id_t>(descriptor_.Get()), &end, WEXITED);
  descriptor_.Close();
  return end.si_code == CLD_EXITED ? end.si_status : -end.si_status;
}

void ChildProcess::Kill() {
  if (Exists()) {
    Signal(SIGKILL);
    Wait();
  }
}

} // namespace lumio
