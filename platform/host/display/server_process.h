// Xorg as a child process.
#pragma once

#include <chrono>
#include <string>
#include <vector>

#include "child_process.h"
#include "file_descriptor.h"
#include "temporary_directory.h"

namespace lumio {

constexpr std::chrono::seconds kPatience{60}; // a server on a crowded machine needs a few seconds

class ServerProcess {
public:
  // Starts `server` ("" for the default one) with the file "xorg.conf" of the directory, which also receives the log,
  // and waits until the server is ready. The server ends with the calling thread. Throws std::runtime_error.
  ServerProcess(const std::string &server, const TemporaryDirectory &directory);
  ~ServerProcess() { Stop(); }
  ServerProcess(const ServerProcess &) = delete;
  ServerProcess &operator=(const ServerProcess &) = delete;

  // After a stop, another server may have this name.
  const std::string &DisplayName() const { return display_name_; }
  bool IsStopped() const { return !process_.Exists(); }
  void Stop();

private:
  void Start(const std::vector<std::string> &command, const FileDescriptor &ready, const std::string &output);

  ChildProcess process_;
  std::string display_name_;
};

} // namespace lumio
