#pragma once

#include <cerrno>
#include <csignal>
#include <ctime>

namespace lumio {

// As long as an object exists, a write of its thread to a pipe or socket that nobody reads fails with EPIPE instead of
// ending the program. A SIGPIPE that was pending before stays pending.
class WithoutSigpipe {
public:
  WithoutSigpipe() {
    sigset_t pending;
    sigpending(&pending);
    was_pending_ = sigismember(&pending, SIGPIPE) == 1;
    sigemptyset(&pipe_);
    sigaddset(&pipe_, SIGPIPE);
    pthread_sigmask(SIG_BLOCK, &pipe_, &before_);
  }
  ~WithoutSigpipe() {
    const timespec at_once = {};
    while (!was_pending_ && sigtimedwait(&pipe_, nullptr, &at_once) == -1 && errno == EINTR) {
    }
    pthread_sigmask(SIG_SETMASK, &before_, nullptr);
  }
  WithoutSigpipe(const WithoutSigpipe &) = delete;
  WithoutSigpipe &operator=(const WithoutSigpipe &) = delete;

private:
  sigset_t pipe_, before_;
  bool was_pending_;
};

} // namespace lumio
