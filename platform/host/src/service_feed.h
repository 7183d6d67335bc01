// Passes on the tuned service through a pipe, for a media player.
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>
#include <vector>

#include "file_descriptor.h"
#include "recorder.h"

namespace lumio {

// The player calls Push, Flush and Interrupt on its thread; the others may be called on any thread. It outlives the
// players.
class ServiceFeed {
public:
  // Starts again with a new pipe. `service` is the one to wait for; 0 takes the first that is pushed. Returns the
  // pipe's reading end, which belongs to the caller, or -1 with errno set.
  int Open(int service);
  // The reader finds the end of the pipe.
  void Close();

  // Another service than the one that was begun with ends the pipe.
  void Push(int service, const std::uint8_t *packet);
  void Flush();
  void Interrupt();

private:
  void Keep(const std::uint8_t *packet);
  void Write();
  void End();

  std::atomic<bool> is_open_{false};
  std::mutex mutex_; // guards everything below
  FileDescriptor pipe_;
  int service_ = 0;
  std::unique_ptr<broadcast::Recorder> recorder_; // null: the service has not come yet
  std::vector<std::uint8_t> pending_;
};

} // namespace lumio
