#include "program.h"

#include <fcntl.h>
#include <spawn.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <system_error>

namespace lumio {

namespace {

std::vector<char *> Pointers(std::vector<std::string> &strings) {
  std::vector<char *> pointers(strings.size() + 1); // the last one stays null
  std::transform(strings.begin(), strings.end(), pointers.begin(), [](std::string &string) { return string.data(); });
  return pointers;
}

std::vector<std::string> Environment(const std::map<std::string, std::string> &additions) {
  std::vector<std::string> environment;
  for (char **entry = environ; *entry; ++entry) {
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

struct Pipe {
  Pipe() {
    int ends[2];
    Check(pipe2(ends, O_CLOEXEC) == 0, errno, "pipe");
    reader = FileDescriptor(ends[0]);
    writer = FileDescriptor(ends[1]);
  }

  FileDescriptor reader;
  FileDescriptor writer;
};

} // namespace

Program::Program(const std::vector<std::string> &command, const std::map<std::string, std::string> &environment) {
  Pipe input;
  Pipe output;
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_adddup2(&actions, input.reader.Get(), STDIN_FILENO);
  posix_spawn_file_actions_adddup2(&actions, output.writer.Get(), STDOUT_FILENO);
  std::vector<std::string> arguments = command;
  std::vector<std::string> variables = Environment(environment);
  pid_t pid = -1;
  const int error =
      posix_spawn(&pid, command[0].c_str(), &actions, nullptr, Pointers(arguments).data(), Pointers(variables).data());
  posix_spawn_file_actions_destroy(&actions);
  Check(error == 0, error, command[0].c_str());
  process_ = ChildProcess(pid);
  input_ = std::move(input.writer);
  output_ = std::move(output.reader);
}

std::optional<std::string> Program::ReadLine(Clock::time_point deadline) {
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

bool Program::ReadMore(Clock::time_point deadline) {
  if (!WaitReadable(output_.Get(), deadline)) {
    return false;
  }
  char buffer[4096];
  const ssize_t got = read(output_.Get(), buffer, sizeof buffer);
  if (got > 0) {
    pending_.append(buffer, static_cast<size_t>(got));
  }
  return got > 0;
}

void Program::WriteLine(const std::string &line) const {
  const std::string text = line + "\n";
  Check(write(input_.Get(), text.data(), text.size()) == static_cast<ssize_t>(text.size()), errno,
        "Cannot write to a program");
}

} // namespace lumio
