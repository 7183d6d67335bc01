// Passes the tuned service on through a pipe, for a media player.
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>
#include <vector>

#include "file_descriptor.h"
#include "recorder.h"

namespace lumio {

// The player calls Push, Flush and Interrupt on its thread. The other functions may be called on any thread. The feed
// outlives the players.
class ServiceFeed {
public:
  // Starts again with a new pipe, which carries `service`, or if that is 0 the first service that is pushed. Returns
  // the reading end of the pipe, which belongs to the caller, or -1 with errno set.
  int Open(int service);
  // Ends the pipe, so that its reader reaches the end of the data.
  void Close();

  // Ends the pipe if the service has changed since the first packet.
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
  std::unique_ptr<broadcast::Recorder> recorder_; // null until the service's first packet
  std::vector<std::uint8_t> pending_;
};

} // namespace lumio
