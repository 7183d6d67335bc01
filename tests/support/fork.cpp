#include "fork.h"

#include "uncounted.h"

#include <gtest/gtest.h>

#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <list>
#include <utility>

namespace {

// Returns the number of the new process.
pid_t Run(const std::function<void()> &body) {
  fflush(nullptr);
  const pid_t pid = fork();
  if (pid == 0) {
    body();
    fflush(nullptr);
    _exit(testing::Test::HasFailure() ? 1 : 0);
  }
  return pid;
}

} // namespace

Fork::Fork(const std::function<void()> &body) : process_(Run(body)) {}

void InProcesses(int count, const std::function<void(int)> &body) {
  std::list<Fork> children;
  for (int process = 0; process < count; ++process) {
    children.emplace_back([&body, process] { body(process); });
  }
  for (Fork &child : children) {
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
