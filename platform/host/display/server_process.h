// Xorg as a child process.
#pragma once

#include <sys/types.h>

#include <string>
#include <vector>

#include "file_descriptor.h"

namespace lumio {

constexpr int kPatience = 60'000; // milliseconds; a server on a crowded machine needs a few seconds

// Waits until there is something to read, the end of the file included; false when that takes longer.
bool WaitReadable(const FileDescriptor &descriptor, int milliseconds = kPatience);

// A directory of its own below the directory for temporary files, removed with everything in it.
class TemporaryDirectory {
public:
  TemporaryDirectory(); // throws std::runtime_error
  ~TemporaryDirectory();
  TemporaryDirectory(const TemporaryDirectory &) = delete;
  TemporaryDirectory &operator=(const TemporaryDirectory &) = delete;

  std::string File(const std::string &name) const { return path_ + "/" + name; }

private:
  std::string path_;
};

class ServerProcess {
public:
  // Starts `server` ("" looks for it) with the file "xorg.conf" of the directory, which also receives its log, and
  // waits until it is ready. It ends with the calling thread. Throws std::runtime_error.
  ServerProcess(const std::string &server, const TemporaryDirectory &directory);
  ~ServerProcess() { Stop(); }
  ServerProcess(const ServerProcess &) = delete;
  ServerProcess &operator=(const ServerProcess &) = delete;

  // Once stopped, the name may be another server's.
  const std::string &DisplayName() const { return display_name_; }
  bool IsStopped() const { return process_.Get() < 0; }
  void Stop();

private:
  void Start(const std::vector<std::string> &command, const FileDescriptor &ready, const std::string &output);
  FileDescriptor process_;
  std::string display_name_;
};

} // namespace lumio
