#include "recording.h"

#include <dlog.h>
#include <fcntl.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <climits>
#include <cstring>
#include <ctime>
#include <filesystem>

#include "recordings_folder.h"

namespace lumio {

namespace {

constexpr int kError = 16;
// Little enough to be on the disk soon, and enough to need few system calls.
constexpr std::size_t kMostPending = 64 * broadcast::kPacketSize;

// The recording to which the player passes its packets.
struct Slot {
  std::atomic<bool> is_set{false};
  std::mutex mutex; // guards the pointer
  std::shared_ptr<Recording> recording;
};

Slot &g_slot = *new Slot; // never destroyed: the player's thread may still run at exit

std::shared_ptr<Recording> Current() {
  if (!g_slot.is_set) {
    return nullptr;
  }
  const std::lock_guard<std::mutex> lock(g_slot.mutex);
  return g_slot.recording;
}

// Returns for example "20261121T201500Z-101": when the recording begins, and the service.
std::string NameOf(std::uint16_t service) {
  const std::time_t now = std::time(nullptr);
  std::tm parts{};
  gmtime_r(&now, &parts);
  char text[32];
  strftime(text, sizeof text, "%Y%m%dT%H%M%SZ-", &parts);
  return text + std::to_string(service);
}

void Complain(const std::string &path, int error) {
  __dlog_print(0, kError, "lumio-host", "recording: %s: %s\n", path.c_str(), std::strerror(error));
}

} // namespace

void SetRecording(std::shared_ptr<Recording> recording) {
  const std::lock_guard<std::mutex> lock(g_slot.mutex);
  g_slot.recording.swap(recording);
  g_slot.is_set = g_slot.recording != nullptr;
}

void RecordPacket(const std::uint8_t *packet) {
  if (const std::shared_ptr<Recording> recording = Current()) {
    recording->Push(packet);
  }
}

void RecordInterruption() {
  if (const std::shared_ptr<Recording> recording = Current()) {
    recording->Interrupt();
  }
}

Recording::Recording(std::uint16_t service, std::function<void()> on_full)
    : on_full_(std::move(on_full)), folder_(RecordingsFolder()), path_(folder_ + "/" + NameOf(service)),
      recorder_(service, [this](const std::uint8_t *packet) { Keep(packet); }) {}

// Never opens an existing file: appends -2, -3 and so on to the name.
int Recording::Create() {
  const std::string name = path_;
  for (int number = 2;; ++number) {
    path_ = name + (number == 2 ? "" : "-" + std::to_string(number - 1)) + ".ts";
    const int file = open(path_.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
    if (file >= 0 || errno != EEXIST) {
      return file;
    }
  }
}

bool Recording::Open() {
  const std::lock_guard<std::mutex> lock(mutex_);
  std::error_code error;
  std::filesystem::create_directories(folder_, error); // if it fails, the file cannot be created either
  file_ = FileDescriptor(Create());
  if (!IsOpen()) {
    Complain(path_, errno);
  }
  return IsOpen();
}

bool Recording::Finish() {
  const std::lock_guard<std::mutex> lock(mutex_);
  Write();
  file_.Close();
  return !is_full_;
}

void Recording::Push(const std::uint8_t *packet) {
  {
    const std::lock_guard<std::mutex> lock(mutex_);
    if (!IsOpen()) {
      return;
    }
    recorder_.Push(packet);
    if (IsOpen()) {
      return;
    }
  }
  on_full_();
}

void Recording::Interrupt() {
  const std::lock_guard<std::mutex> lock(mutex_);
  recorder_.Interrupt();
}

int Recording::Seconds() {
  const std::lock_guard<std::mutex> lock(mutex_);
  return static_cast<int>(std::chrono::duration_cast<std::chrono::seconds>(recorder_.Duration()).count());
}

int Recording::FreeSpace() const {
  struct statvfs disk {};
  if (statvfs(folder_.c_str(), &disk) != 0) {
    return 0;
  }
  return static_cast<int>(std::min<std::uint64_t>(std::uint64_t{disk.f_bavail} * disk.f_frsize >> 20, INT_MAX));
}

void Recording::Keep(const std::uint8_t *packet) {
  pending_.insert(pending_.end(), packet, packet + broadcast::kPacketSize);
  if (pending_.size() >= kMostPending) {
    Write();
  }
}

// If the disk is full, cuts the file after its last whole packet.
void Recording::Write() {
  std::size_t written = 0;
  while (IsOpen() && written < pending_.size()) {
    const ssize_t count = write(file_.Get(), &pending_[written], pending_.size() - written);
    if (count >= 0) {
      written += static_cast<std::size_t>(count);
    } else if (errno != EINTR) {
      Complain(path_, errno);
      const off_t size = lseek(file_.Get(), 0, SEEK_CUR);
      if (ftruncate(file_.Get(), size - size % static_cast<off_t>(broadcast::kPacketSize)) != 0) {
        Complain(path_, errno);
      }
      file_.Close();
      is_full_ = true;
    }
  }
  pending_.clear();
}

} // namespace lumio
