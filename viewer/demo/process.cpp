#include "process.h"

#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <stdexcept>
#include <system_error>

namespace {

std::vector<char *> Pointers(std::vector<std::string> &strings) {
  std::vector<char *> pointers(strings.size() + 1); // the last one stays null
  std::transform(strings.begin(), strings.end(), pointers.begin(), [](std::string &string) { return string.data(); });
  return pointers;
}

std::vector<std::string> Environment(const std::map<std::string, std::string> &additions) {
  std::vector<std::string> environment;
  for (char **entry = environ; *entry != nullptr; ++entry) {
    const std::string text = *entry;
    if (additions.count(text.substr(0, text.find('='))) == 0) {
      environment.push_back(text);
    }
  }
  for (const auto &[name, value] : additions) {
    std::string entry = name;
    environment.push_back(entry.append("=").append(value));
  }
  return environment;
}

void Check(bool succeeded, int error, const char *what) {
  if (!succeeded) {
    throw std::system_error(error, std::generic_category(), what);
  }
}

// Waits until `fd` can be read or has ended. Signals interrupt the wait: the end of another child sends one.
bool WaitReadable(int fd, Clock::time_point deadline) {
  pollfd waited{fd, POLLIN, 0};
  int ready;
  do {
    const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now());
    ready = poll(&waited, 1, static_cast<int>(std::max<long>(left.count(), 0)));
  } while (ready < 0 && errno == EINTR);
  return ready > 0;
}

} // namespace

Process::Process(const std::vector<std::string> &command, const std::map<std::string, std::string> &environment) {
  int to_child[2];
  int from_child[2];
  Check(pipe2(to_child, O_CLOEXEC) == 0, errno, "pipe");
  Check(pipe2(from_child, O_CLOEXEC) == 0, errno, "pipe");
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_adddup2(&actions, to_child[0], STDIN_FILENO);
  posix_spawn_file_actions_adddup2(&actions, from_child[1], STDOUT_FILENO);
  std::vector<std::string> arguments = command;
  std::vector<std::string> variables = Environment(environment);
  const int error =
      posix_spawn(&pid_, command[0].c_str(), &actions, nullptr, Pointers(arguments).data(), Pointers(variables).data());
  posix_spawn_file_actions_destroy(&actions);
  close(to_child[0]);
  close(from_child[1]);
  input_ = to_child[1];
  output_ = from_child[0];
  Check(error == 0, error, command[0].c_str());
  pid_fd_ = static_cast<int>(syscall(SYS_pidfd_open, pid_, 0));
  Check(pid_fd_ >= 0, errno, "pidfd_open");
}

Process::~Process() {
  if (pid_ > 0) {
    Signal(SIGKILL);
    waitpid(pid_, nullptr, 0);
  }
  for (const int fd : {pid_fd_, input_, output_}) {
    close(fd);
  }
}

std::optional<std::string> Process::ReadLine(Clock::time_point deadline) {
  size_t end;
  while ((end = pending_.find('\n')) == std::string::npos) {
    if (!ReadMore(deadline)) {
      return std::nullopt;
    }
  }
  std::string line = pending_.substr(0, end);
  pending_.erase(0, end + 1);
  return line;
}

bool Process::ReadMore(Clock::time_point deadline) {
  if (!WaitReadable(output_, deadline)) {
    return false;
  }
  char buffer[4096];
  const ssize_t got = read(output_, buffer, sizeof buffer);
  if (got > 0) {
    pending_.append(buffer, static_cast<size_t>(got));
  }
  return got > 0;
}

void Process::WriteLine(const std::string &line) {
  const std::string text = line + "\n";
  Check(write(input_, text.data(), text.size()) == static_cast<ssize_t>(text.size()), errno, "write to a child");
}

void Process::Signal(int number) const { kill(pid_, number); }

std::optional<int> Process::Wait(Clock::time_point deadline) {
  if (!WaitReadable(pid_fd_, deadline)) {
    return std::nullopt;
  }
  int status = 0;
  waitpid(pid_, &status, 0);
  pid_ = -1;
  return WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
}
