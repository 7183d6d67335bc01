#include "server_process.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/prctl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <deque>
#include <fstream>
#include <stdexcept>

#include "wait_readable.h"

namespace lumio {

namespace {

constexpr int kTerminations = 100;
constexpr std::chrono::milliseconds kTerminationWait{100};
constexpr size_t kLastLines = 20;                      // of the server's log, shown in an error message
constexpr char kDebianServer[] = "/usr/lib/xorg/Xorg"; // Debian's Xorg in PATH may require a console
constexpr char kNoServer[] = "It cannot be run. Install Debian's xserver-xorg-core and xserver-xorg-video-dummy.\n";

[[noreturn]] void FailWithErrno(const std::string &what) { throw std::runtime_error(what + ": " + strerror(errno)); }

std::string ServerPath(const std::string &wanted) {
  if (!wanted.empty()) {
    return wanted;
  }
  return access(kDebianServer, X_OK) == 0 ? kDebianServer : "Xorg";
}

// Returns the last lines of the file, each preceded by a line break.
std::string Tail(const std::string &file) {
  std::ifstream stream(file);
  std::deque<std::string> lines;
  for (std::string line; std::getline(stream, line);) {
    lines.push_back("\n  " + line);
    if (lines.size() > kLastLines) {
      lines.pop_front();
    }
  }
  std::string tail;
  for (const std::string &line : lines) {
    tail += line;
  }
  return tail;
}

// Returns the display number, which the server writes when it is ready; empty if the server ends instead.
std::string ReadDisplayNumber(const FileDescriptor &ready) {
  std::string number;
  for (char next; WaitReadable(ready.Get(), Clock::now() + kPatience) && read(ready.Get(), &next, 1) == 1;
       number += next) {
    if (next == '\n') {
      return number;
    }
  }
  return "";
}

// Turns the child into the server. Calls only what is allowed after a fork of a program with threads.
[[noreturn]] void Become(char *const *arguments, pid_t owner, int ready, int output) {
  prctl(PR_SET_PDEATHSIG, SIGTERM);
  if (getppid() != owner) {
    _exit(1); // the owner has ended before the child could watch it
  }
  sigset_t none;
  sigemptyset(&none);
  sigprocmask(SIG_SETMASK, &none, nullptr);
  fcntl(ready, F_SETFD, 0);
  dup2(open("/dev/null", O_RDONLY | O_CLOEXEC), STDIN_FILENO);
  dup2(output, STDOUT_FILENO);
  dup2(output, STDERR_FILENO);
  setsid(); // an interrupt from the keyboard reaches the owner only, which ends the server
  execvp(arguments[0], arguments);
  [[maybe_unused]] const ssize_t written = write(STDERR_FILENO, kNoServer, sizeof kNoServer - 1);
  _exit(1);
}

} // namespace

ServerProcess::ServerProcess(const std::string &server, const TemporaryDirectory &directory) {
  int ends[2];
  if (pipe2(ends, O_CLOEXEC) != 0) {
    FailWithErrno("Cannot create a pipe");
  }
  FileDescriptor ready(ends[0]);
  FileDescriptor server_end(ends[1]);
  // The server chooses a free display number. It runs without GLX, which is slow to start, and without key repeat,
  // which would depend on the load of the machine.
  const std::string number_to = std::to_string(server_end.Get());
  const std::string config = directory / "xorg.conf", log = directory / "log", output = directory / "output";
  const std::vector<std::string> command = {
      ServerPath(server), "-displayfd", number_to,    "-config",  config,      "-configdir",
      directory / "",     "-logfile",   log,          "-noreset", "-nolisten", "tcp",
      "-novtswitch",      "-sharevts",  "-extension", "GLX",      "-r"};
  Start(command, server_end, output);
  server_end.Close();
  const std::string number = ReadDisplayNumber(ready);
  if (number.empty()) {
    Stop();
    throw std::runtime_error("The X server " + command[0] +
                             " does not start:" + Tail(access(log.c_str(), R_OK) == 0 ? log : output));
  }
  display_name_ = ":" + number;
}

void ServerProcess::Start(const std::vector<std::string> &command, const FileDescriptor &ready,
                          const std::string &output) {
  std::vector<char *> arguments(command.size() + 1); // the last one stays null
  std::transform(command.begin(), command.end(), arguments.begin(),
                 [](const std::string &argument) { return const_cast<char *>(argument.c_str()); });
  const FileDescriptor output_file(open(output.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600));
  const pid_t owner = getpid();
  const pid_t child = fork();
  if (child == 0) {
    Become(arguments.data(), owner, ready.Get(), output_file.Get());
  }
  if (child < 0) {
    FailWithErrno("Cannot start the X server");
  }
  process_ = ChildProcess(child);
}

void ServerProcess::Stop() {
  if (IsStopped()) {
    return;
  }
  // Repeats the signal, since the server misses one that arrives just as it goes to sleep.
  int attempts = kTerminations;
  do {
    process_.Signal(SIGTERM);
  } while (!process_.Wait(Clock::now() + kTerminationWait) && --attempts > 0);
  process_.Kill();
}

} // namespace lumio
