// Records one service of the played stream in a file.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "file_descriptor.h"
#include "recorder.h"

namespace lumio {

// All functions may be called on any thread.
class Recording {
public:
  // If the file cannot be written any further, `on_full` is called once, on the player's thread and without a lock.
  Recording(std::uint16_t service, std::function<void()> on_full);
  ~Recording() { Finish(); }
  Recording(const Recording &) = delete;
  Recording &operator=(const Recording &) = delete;

  // Creates the folder if necessary, and a new file in it. Returns false, with a log message, if that fails.
  bool Open();
  // Writes what is still pending and ends the recording. Returns whether everything was written.
  bool Finish();

  void Push(const std::uint8_t *packet);
  void Interrupt();

  // The length of the recording by the service's clock.
  int Seconds();
  // The free space on the disk of the recordings, in mebibytes.
  int FreeSpace() const;

private:
  bool IsOpen() const { return file_.Get() >= 0; }
  int Create();
  void Keep(const std::uint8_t *packet);
  void Write();

  const std::function<void()> on_full_;
  const std::string folder_;
  std::mutex mutex_; // guards everything below
  std::string path_;
  FileDescriptor file_;  // closed once the recording has ended
  bool is_full_ = false; // something could not be written
  std::vector<std::uint8_t> pending_;
  broadcast::Recorder recorder_;
};

// Sets the recording that receives the played packets, in place of an earlier one; null for none.
void SetRecording(std::shared_ptr<Recording> recording);

// The player's thread calls these.
void RecordPacket(const std::uint8_t *packet);
// Call it when another stream follows, or the same one from its beginning.
void RecordInterruption();

} // namespace lumio
