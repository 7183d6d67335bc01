#include "channels.h"

#include <lumio-host/broadcast.h>

#include <algorithm>
#include <cinttypes>
#include <cstdio>
#include <optional>
#include <stdexcept>

namespace broadcast = lumio::broadcast;

namespace {

constexpr TCServiceId kScriptedService = 0x000100010001;
constexpr char kScriptedTarget[] = "dvb://1.1.1/weather";

std::optional<broadcast::ServiceInfo> FindService(int id) {
  for (broadcast::ServiceInfo &service : broadcast::Services()) {
    if (service.id == id) {
      return std::move(service);
    }
  }
  return std::nullopt;
}

} // namespace

Channels::Channels(const std::string &file) : played_(!file.empty()) {
  if (!played_) {
    return;
  }
  if (!broadcast::Open(file)) {
    throw std::runtime_error(file + " cannot be played");
  }
  Tune(1);
}

bool Channels::PlayByHand(const std::string &file) {
  broadcast::Options options;
  options.clock = broadcast::Clock::Virtual;
  played_ = broadcast::Open(file, options);
  service_ = 0;
  Tune(1);
  return played_;
}

Channels::~Channels() { Close(); }

void Channels::Close() {
  if (played_) {
    broadcast::Close();
  }
}

void Channels::Tune(int channel) {
  for (const std::function<void(int)> &chosen : choices_) {
    chosen(channel);
  }
  const std::vector<broadcast::ServiceInfo> services = broadcast::Services();
  if (channel < 1 || static_cast<std::size_t>(channel) > services.size()) {
    return;
  }
  const int service = services[static_cast<std::size_t>(channel) - 1].id;
  if (service != service_) {
    service_ = service;
    broadcast::Tune(service);
    for (const std::function<void()> &tuned : listeners_) {
      tuned();
    }
  }
}

TCServiceId Channels::Service() const {
  if (!played_) {
    return kScriptedService;
  }
  const auto service = FindService(service_);
  return service ? service->serviceId : 0;
}

std::string Channels::DataTarget() const {
  if (!played_) {
    return kScriptedTarget;
  }
  const auto service = FindService(service_);
  for (const broadcast::StreamInfo &stream : service ? service->streams : std::vector<broadcast::StreamInfo>()) {
    if (stream.kind == "carousel" && stream.componentTag >= 0) {
      const auto id = static_cast<std::uint64_t>(service->serviceId);
      char target[64];
      std::snprintf(target, sizeof target, "dvb://%" PRIx64 ".%" PRIx64 ".%" PRIx64 "/%x", id >> 32, id >> 16 & 0xffff,
                    id & 0xffff, static_cast<unsigned>(stream.componentTag));
      return target;
    }
  }
  return "";
}
