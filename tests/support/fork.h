// Processes that are forked from a test, and pipes between them.
#pragma once

#include <functional>

#include "child_process.h"

// A process forked from the test, which runs `body`. The destructor kills it.
class Fork {
public:
  explicit Fork(const std::function<void()> &body);

  // Waits for its end. Returns whether `body` has returned and none of its expectations failed.
  bool Succeeds() { return process_.Wait() == 0; }

  // Kills it unless it has ended, and waits for its end.
  void Kill() { process_.Kill(); }

private:
  lumio::ChildProcess process_;
};

// Runs `body` in several processes at once, numbered from 0, and expects all of them to succeed.
void InProcesses(int count, const std::function<void(int)> &body);

// Carries integers between processes, and shows one that the other has gone.
class Pipe {
public:
  Pipe();
  ~Pipe();
  Pipe(const Pipe &) = delete;
  Pipe &operator=(const Pipe &) = delete;

  void Send(int value);
  bool Receive(int *value); // waits; false when no sender is left

  void CloseSender();

private:
  int ends_[2];
};
