// A recording of one service of the stream that is played, in a file of its own.
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
  // `on_full` is called once on the player's thread, without a lock, when the file takes no more.
  Recording(std::uint16_t service, std::function<void()> on_full);
  ~Recording() { Finish(); }
  Recording(const Recording &) = delete;
  Recording &operator=(const Recording &) = delete;

  // Creates the folder where it is missing, and a new file in it. When that fails, the log says why.
  bool Open();
  // Writes what is still to be written, and ends the recording. @return whether the file took everything
  bool Finish();

  void Push(const std::uint8_t *packet);
  void Interrupt();

  // By the service's clock.
  int Seconds();
  // On the disk of the recordings, in mebibytes.
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
  FileDescriptor file_;  // none: the recording has ended
  bool is_full_ = false; // the file has not taken everything
  std::vector<std::uint8_t> pending_;
  broadcast::Recorder recorder_;
};

// Whoever is set is passed what is played, in place of an earlier one; null for nobody.
void SetRecording(std::shared_ptr<Recording> recording);

// For the player's thread.
void RecordPacket(const std::uint8_t *packet);
// Another stream follows, or the same from its beginning.
void RecordInterruption();

} // namespace lumio
