// A child process that is talked to by lines.
#pragma once

#include <chrono>
#include <map>
#include <optional>
#include <string>
#include <vector>

using Clock = std::chrono::steady_clock;

class Process {
public:
  // Starts `command` (a path and its arguments) with `environment` on top of this process's own.
  Process(const std::vector<std::string> &command, const std::map<std::string, std::string> &environment);
  // Kills it if it is still running.
  ~Process();
  Process(const Process &) = delete;
  Process &operator=(const Process &) = delete;

  // The next line of its standard output; nothing when it has ended, or at the deadline.
  std::optional<std::string> ReadLine(Clock::time_point deadline);
  // Sends a line to its standard input.
  void WriteLine(const std::string &line);
  void Signal(int number) const;
  // Its exit status once it has ended, negative when a signal ended it; nothing at the deadline.
  std::optional<int> Wait(Clock::time_point deadline);

private:
  bool ReadMore(Clock::time_point deadline);

  int pid_ = -1;
  int pid_fd_ = -1;
  int input_ = -1;
  int output_ = -1;
  std::string pending_; // read, not yet handed out
};
