#pragma once

#include <map>
#include <optional>
#include <string>
#include <vector>

#include "child_process.h"
#include "file_descriptor.h"
#include "wait_readable.h"

namespace lumio {

// A program that runs as a child process and exchanges lines with this one.
class Program {
public:
  // Starts `command` (a path and its arguments) with the variables of `environment` added to those of this process.
  // The program inherits the standard error stream. Throws std::system_error.
  Program(const std::vector<std::string> &command, const std::map<std::string, std::string> &environment);

  // Returns the next line of its standard output; nothing when the program has ended, or at the deadline.
  std::optional<std::string> ReadLine(Clock::time_point deadline);
  // Writes a line to its standard input. Throws std::system_error.
  void WriteLine(const std::string &line) const;
  void Signal(int number) const { process_.Signal(number); }
  // See ChildProcess::Wait.
  std::optional<int> Wait(Clock::time_point deadline) { return process_.Wait(deadline); }

private:
  bool ReadMore(Clock::time_point deadline);

  FileDescriptor input_;
  FileDescriptor output_;
  std::string pending_; // read, but not yet returned
  ChildProcess process_;
};

} // namespace lumio
