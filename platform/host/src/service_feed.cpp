#include "service_feed.h"

#include <fcntl.h>

#include <cerrno>
#include <climits>

#include "without_sigpipe.h"

namespace lumio {

namespace {

constexpr int kRoom = 1 << 20; // bytes in the pipe, if the system allows that many
// The most that a pipe takes in one piece.
constexpr std::size_t kMostPending = PIPE_BUF / broadcast::kPacketSize * broadcast::kPacketSize;

// Returns false if the reading end is closed.
bool WriteUnlessClosed(int pipe, const std::vector<std::uint8_t> &data) {
  const WithoutSigpipe quietly;
  ssize_t written = 0;
  do {
    written = write(pipe, data.data(), data.size());
  } while (written < 0 && errno == EINTR);
  return written >= 0 || errno != EPIPE;
}

} // namespace

int ServiceFeed::Open(int service) {
  int ends[2];
  if (pipe2(ends, O_CLOEXEC) != 0) {
    return -1;
  }
  fcntl(ends[1], F_SETFL, O_NONBLOCK);
  fcntl(ends[1], F_SETPIPE_SZ, kRoom); // if it fails, the pipe keeps its usual room
  const std::lock_guard<std::mutex> lock(mutex_);
  End();
  pipe_ = FileDescriptor(ends[1]);
  service_ = service;
  is_open_ = true;
  return ends[0];
}

void ServiceFeed::Close() {
  const std::lock_guard<std::mutex> lock(mutex_);
  Write();
  End();
}

void ServiceFeed::Push(int service, const std::uint8_t *packet) {
  if (!is_open_ || service == 0) {
    return;
  }
  const std::lock_guard<std::mutex> lock(mutex_);
  if (pipe_.Get() < 0) {
    return;
  }
  if (!recorder_ && (service_ == 0 || service_ == service)) {
    service_ = service;
    recorder_ = std::make_unique<broadcast::Recorder>(static_cast<std::uint16_t>(service),
                                                      [this](const std::uint8_t *one) { Keep(one); });
  } else if (recorder_ && service_ != service) {
    End();
  }
  if (recorder_) {
    recorder_->Push(packet);
  }
}

void ServiceFeed::Flush() {
  if (is_open_) {
    const std::lock_guard<std::mutex> lock(mutex_);
    Write();
  }
}

void ServiceFeed::Interrupt() {
  const std::lock_guard<std::mutex> lock(mutex_);
  if (recorder_) {
    recorder_->Interrupt();
  }
}

void ServiceFeed::Keep(const std::uint8_t *packet) {
  if (pending_.size() + broadcast::kPacketSize > kMostPending) {
    Write();
  }
  pending_.insert(pending_.end(), packet, packet + broadcast::kPacketSize);
}

// Drops what does not fit, because the player does not wait for the reader. If the reading end is closed, closes the
// pipe only: the recorder may be calling this function, so the owner's next call destroys it.
void ServiceFeed::Write() {
  if (pipe_.Get() >= 0 && !pending_.empty() && !WriteUnlessClosed(pipe_.Get(), pending_)) {
    pipe_.Close();
    is_open_ = false;
  }
  pending_.clear();
}

void ServiceFeed::End() {
  pipe_.Close();
  is_open_ = false;
  recorder_.reset();
  pending_.clear();
}

} // namespace lumio
