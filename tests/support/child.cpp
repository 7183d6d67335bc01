#include "child.h"

#include "uncounted.h"

#include <gtest/gtest.h>

#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <list>
#include <utility>

Child::Child(const std::function<void()> &body) {
  fflush(nullptr);
  pid_ = fork();
  if (pid_ == 0) {
    body();
    fflush(nullptr);
    _exit(testing::Test::HasFailure() ? 1 : 0);
  }
}

Child::~Child() { Kill(); }

bool Child::Succeeds() { return Wait() == 0; }

void Child::Kill() {
  if (pid_ > 0) {
    kill(pid_, SIGKILL);
    Wait();
  }
}

int Child::Wait() {
  int status = -1;
  while (waitpid(pid_, &status, 0) < 0 && errno == EINTR) {
  }
  pid_ = -1;
  return status;
}

void InProcesses(int count, const std::function<void(int)> &body) {
  std::list<Child> children;
  for (int process = 0; process < count; ++process) {
    children.emplace_back([&body, process] { body(process); });
  }
  for (Child &child : children) {
    EXPECT_TRUE(child.Succeeds());
  }
}

Pipe::Pipe() {
  if (pipe(ends_) != 0) {
    ends_[0] = ends_[1] = -1;
  }
}

Pipe::~Pipe() {
  close(ends_[0]);
  CloseSender();
}

void Pipe::Send(int value) {
  const Uncounted uncounted;
  EXPECT_EQ(write(ends_[1], &value, sizeof value), static_cast<ssize_t>(sizeof value));
}

bool Pipe::Receive(int *value) {
  ssize_t size;
  while ((size = read(ends_[0], value, sizeof *value)) < 0 && errno == EINTR) {
  }
  return size == sizeof *value;
}

void Pipe::CloseSender() {
  if (ends_[1] >= 0) {
    close(std::exchange(ends_[1], -1));
  }
}
