// Processes that a test starts, and pipes between them.
#pragma once

#include <sys/types.h>

#include <functional>

// A process forked from the test that runs `body`. It is killed when the object goes.
class Child {
public:
  explicit Child(const std::function<void()> &body);
  ~Child();
  Child(const Child &) = delete;
  Child &operator=(const Child &) = delete;

  pid_t Pid() const { return pid_; }

  // Waits for its end; true when `body` returned and none of its expectations failed.
  bool Succeeds();

  // Kills it with SIGKILL, unless it has ended, and waits until it is gone.
  void Kill();

private:
  int Wait();

  pid_t pid_;
};

// Runs `body` in several processes at once, each with its number from 0 on, and expects all to succeed.
void InProcesses(int count, const std::function<void(int)> &body);

// Carries integers between processes, and tells one that the other has gone.
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
