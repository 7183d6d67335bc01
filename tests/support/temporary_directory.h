// A directory that goes with the object, and all that is in it. In memory where possible: what is tested waits for the
// disk often.
#pragma once

#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <string>

class TemporaryDirectory {
public:
  TemporaryDirectory() {
    std::string name = access("/dev/shm", W_OK) == 0 ? "/dev/shm/lumio-test-XXXXXX" : "/tmp/lumio-test-XXXXXX";
    path_ = mkdtemp(&name[0]);
  }
  ~TemporaryDirectory() { std::filesystem::remove_all(path_); }
  TemporaryDirectory(const TemporaryDirectory &) = delete;
  TemporaryDirectory &operator=(const TemporaryDirectory &) = delete;

  std::string operator/(const std::string &name) const { return path_ + "/" + name; }

private:
  std::string path_;
};
