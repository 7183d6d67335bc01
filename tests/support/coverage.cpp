// Records the coverage of code that aborts the process. The counters are written at exit, which an aborting process
// never reaches, so a fork exits instead.
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>

namespace {

constexpr unsigned kPatience = 10; // seconds; an exit may wait for threads that the fork lacks

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
