// Lets the coverage count what ends the process: counters are written when a process exits, which one that aborts does
// not. A fork of it exits in its place.
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>

namespace {

constexpr unsigned kPatience = 10; // seconds; a fork lacks the threads that an exit may wait for

void ExitInAFork(int) {
  signal(SIGABRT, SIG_DFL);
  const pid_t fork_of_it = fork();
  if (fork_of_it == 0) {
    alarm(kPatience);
    exit(EXIT_FAILURE);
  }
  waitpid(fork_of_it, nullptr, 0);
  raise(SIGABRT);
}

__attribute__((constructor)) void Install() { signal(SIGABRT, ExitInAFork); }

} // namespace
