// The control interface of the player: one stream at a time.
#include "broadcast.h"

#include <dlog.h>
#include <lumio-host/broadcast.h>

#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <mutex>

#include "player.h"
#include "tv-service.h"

namespace lumio::broadcast {

namespace {

constexpr int kError = 16;

// Every use of the player holds a reference, so another thread may close the player meanwhile.
struct Stage {
  std::mutex opening; // held while a player is replaced
  std::mutex mutex;   // guards the pointer
  std::shared_ptr<Player> player;
  PacketTap tap;
  ServiceFeed feed;
};

Stage &g_stage = *new Stage; // never destroyed: threads that still run at exit may ask

std::shared_ptr<Player> Current() {
  const std::lock_guard<std::mutex> lock(g_stage.mutex);
  return g_stage.player;
}

// Stops the previous player without the lock, because its thread may need the lock to end.
void Replace(std::shared_ptr<Player> player) {
  {
    const std::lock_guard<std::mutex> lock(g_stage.mutex);
    g_stage.player.swap(player);
  }
  if (player) {
    player->Stop();
    g_stage.feed.Close();
  }
}

void OnSubscriptionsChanged() {
  if (const std::shared_ptr<Player> player = Current()) {
    player->OnSubscriptionsChanged();
  }
}

} // namespace

bool Open(const std::string &file, const Options &options) {
  tv::Service::Get(); // ends after the player
  static const bool closes_at_exit = std::atexit(Close) == 0;
  static_cast<void>(closes_at_exit);
  const std::lock_guard<std::mutex> lock(g_stage.opening);
  Replace(nullptr);
  auto player = std::make_shared<Player>(options, g_stage.tap, g_stage.feed);
  const int error = player->Open(file);
  if (error != 0) {
    __dlog_print(0, kError, "lumio-host", "broadcast: %s: %s\n", file.c_str(),
                 error < 0 ? "not a transport stream" : std::strerror(error));
    return false;
  }
  Replace(player);
  tv::g_on_change = OnSubscriptionsChanged;
  player->Start();
  return true;
}

void Close() {
  const std::lock_guard<std::mutex> lock(g_stage.opening);
  Replace(nullptr);
}

void OpenFromEnvironment() {
  static std::once_flag once;
  std::call_once(once, [] {
    const char *file = std::getenv("LUMIO_TV");
    if (file && *file && !IsOpen()) {
      Open(file);
    }
  });
}

bool IsOpen() { return Current() != nullptr; }

bool HasEnded() {
  const std::shared_ptr<Player> player = Current();
  return player && player->HasEnded();
}

std::vector<ServiceInfo> Services() {
  const std::shared_ptr<Player> player = Current();
  return player ? player->Services() : std::vector<ServiceInfo>();
}

void Tune(int service) {
  if (const std::shared_ptr<Player> player = Current()) {
    player->Tune(service);
  }
}

int TunedService() {
  const std::shared_ptr<Player> player = Current();
  return player ? player->TunedService() : 0;
}

void SetSpeed(double speed) {
  if (const std::shared_ptr<Player> player = Current()) {
    player->SetSpeed(speed);
  }
}

void Pause(bool paused) {
  if (const std::shared_ptr<Player> player = Current()) {
    player->Pause(paused);
  }
}

void Advance(std::chrono::milliseconds time) {
  if (const std::shared_ptr<Player> player = Current()) {
    player->Advance(time);
  }
}

std::chrono::milliseconds Position() {
  const std::shared_ptr<Player> player = Current();
  return player ? player->Position() : std::chrono::milliseconds(0);
}

Counts Counted() {
  const std::shared_ptr<Player> player = Current();
  return player ? player->Counted() : Counts{};
}

void SetPacketListener(std::function<void(const unsigned char *packet)> listener) {
  g_stage.tap.Set(std::move(listener));
}

int PassOn() {
  const std::shared_ptr<Player> player = Current();
  errno = player ? errno : ENODEV;
  return player ? player->PassOn() : -1;
}

void StopPassingOn() { g_stage.feed.Close(); }

} // namespace lumio::broadcast
