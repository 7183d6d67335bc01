#include "player.h"

#include <dlog.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>

#include "recording.h"
#include "tv-service.h"

namespace lumio::broadcast {

namespace {

constexpr std::size_t kPortion = 2048;                         // packets, at most
constexpr std::size_t kCarouselBudget = std::size_t{12} << 20; // bytes
constexpr std::size_t kMostUnsettled = std::size_t{4} << 20;   // bytes that are sent and perhaps not delivered
constexpr std::size_t kLongestLook = std::size_t{16} << 20;    // bytes searched for services when a stream is opened
constexpr std::size_t kMostDecoders = 8;
constexpr std::size_t kMostCarousels = 64;
constexpr std::size_t kCostOfEvent = 256; // bytes, of a small notification
constexpr int kError = 16;

// The records of all streams: modules keep pointers to them.
ProgrammePool &g_programmes = *new ProgrammePool; // never destroyed: see above

bool operator==(const TSSignalData &a, const TSSignalData &b) { return a.value == b.value && a.extra == b.extra; }

template <class Number> bool ParseHex(const std::string &text, std::size_t &position, Number &number) {
  const std::size_t end = text.find_first_not_of("0123456789abcdefABCDEF", position);
  const std::string digits = text.substr(position, end == std::string::npos ? end : end - position);
  if (digits.empty() || digits.size() > 8) {
    return false;
  }
  number = static_cast<Number>(std::strtoul(digits.c_str(), nullptr, 16));
  position += digits.size();
  return true;
}

// Finds the services at the beginning of a stream.
class Look final : public DemultiplexerListener {
public:
  Look() {
    demultiplexer_.WantSections(kPatPid, true);
    demultiplexer_.WantSections(kSdtPid, true);
  }
  void OnSection(std::uint16_t pid, const Section &section) override {
    if (section.IsChecksumRight() && services.Push(pid, section) && pid == kPatPid) {
      for (const auto &entry : services.Services()) {
        demultiplexer_.WantSections(entry.second.pmt_pid, true);
      }
    }
  }
  void OnPes(const PesPacket &) override {}
  bool Push(const std::uint8_t *packet) {
    demultiplexer_.Push(Packet(packet));
    return !services.IsComplete() && demultiplexer_.Counts().packets < kLongestLook / kPacketSize;
  }

  ServiceList services;

private:
  Demultiplexer demultiplexer_{*this};
};

std::vector<ServiceInfo> InfoOf(const ServiceList &services, const Demultiplexer *demultiplexer) {
  std::vector<ServiceInfo> list;
  for (const auto &[id, service] : services.Services()) {
    ServiceInfo info{id, services.IdOf(id), service.name, service.provider, service.pmt_pid, false, {}};
    for (const ElementaryStream &stream : service.pmt.streams) {
      info.streams.push_back({stream.pid, stream.type, NameOf(stream.kind), stream.component_tag});
      info.scrambled = info.scrambled || (demultiplexer && demultiplexer->WasScrambled(stream.pid));
    }
    list.push_back(std::move(info));
  }
  return list;
}

// The first stream of a kind, as a signal reports it.
TSSignalData FirstOf(const std::vector<ElementaryStream> &streams, StreamKind kind) {
  const auto stream =
      std::find_if(streams.begin(), streams.end(), [&](const ElementaryStream &one) { return one.kind == kind; });
  return stream == streams.end() ? TSSignalData{0, 0} : TSSignalData{stream->pid, stream->type};
}

} // namespace

void PacketTap::Set(PacketListener listener) {
  const std::lock_guard<std::mutex> lock(mutex_);
  listener_ = std::move(listener);
  is_set_ = listener_ != nullptr;
}

void PacketTap::Pass(const std::uint8_t *packet) {
  if (is_set_) {
    const std::lock_guard<std::mutex> lock(mutex_);
    if (listener_) {
      listener_(packet);
    }
  }
}

Player::Player(const Options &options, PacketTap &tap, ServiceFeed &feed)
    : options_(options), tap_(tap), feed_(feed), programmes_(g_programmes), carousel_budget_(kCarouselBudget),
      paused_(options.paused), wanted_service_(options.service), speed_(options.speed > 0 ? options.speed : 1) {
  for (std::uint16_t pid = 0; pid <= kSitPid; ++pid) {
    demultiplexer_.WantSections(pid, IsTablePid(pid));
  }
}

void Player::Stop() {
  {
    const std::lock_guard<std::mutex> lock(mutex_);
    closing_ = true;
    changed_.notify_all();
    played_.notify_all();
  }
  tv::Service::Get().ForEachKind([](auto &subscriptions) { subscriptions.thread.Wake(); });
  if (thread_.joinable() && thread_.get_id() != std::this_thread::get_id()) {
    thread_.join();
  }
}

int Player::Open(const std::string &file) {
  const int error = source_.Open(file);
  if (error != 0) {
    return error;
  }
  Look look;
  const std::uint8_t *packet = reader_.Next();
  if (!packet) {
    return -1;
  }
  while (packet && look.Push(packet)) {
    packet = reader_.Next();
  }
  listed_ = InfoOf(look.services, nullptr);
  return reader_.Rewind() ? 0 : ESPIPE;
}

void Player::Start() {
  base_time_ = std::chrono::steady_clock::now();
  thread_ = std::thread(&Player::Run, this);
}

// On any thread

void Player::OnSubscriptionsChanged() {
  const std::lock_guard<std::mutex> lock(mutex_);
  subscriptions_changed_ = true;
  changed_.notify_all();
}

void Player::Tune(int service) {
  const std::lock_guard<std::mutex> lock(mutex_);
  wanted_service_ = service;
  subscriptions_changed_ = true;
  changed_.notify_all();
}

int Player::TunedService() {
  const std::lock_guard<std::mutex> lock(mutex_);
  return published_service_;
}

int Player::PassOn() {
  const std::lock_guard<std::mutex> lock(mutex_);
  return feed_.Open(wanted_service_ != 0 ? wanted_service_ : published_service_);
}

// From now on the stream's time counts from `played`.
void Player::Rebase(Nanoseconds played, SteadyTime now) {
  base_played_ = played;
  base_time_ = now;
}

void Player::SetSpeed(double speed) {
  const std::lock_guard<std::mutex> lock(mutex_);
  if (speed > 0) {
    Rebase(position_, std::chrono::steady_clock::now());
    speed_ = speed;
    changed_.notify_all();
  }
}

void Player::Pause(bool paused) {
  const std::lock_guard<std::mutex> lock(mutex_);
  if (paused_ && !paused) {
    Rebase(position_, std::chrono::steady_clock::now());
  }
  paused_ = paused;
  changed_.notify_all();
  played_.notify_all();
}

void Player::Advance(std::chrono::milliseconds time) {
  std::unique_lock<std::mutex> lock(mutex_);
  if (options_.clock != Clock::Virtual || paused_ || time.count() < 0) {
    return;
  }
  advanced_ += time;
  const Nanoseconds until = advanced_;
  changed_.notify_all();
  if (DeliveryThread::IsThisOne()) {
    return; // the player may be waiting for the delivery
  }
  played_.wait(lock, [&] {
    return closing_ || paused_ || ((ended_ || position_ >= until) && !subscriptions_changed_ && !is_busy_);
  });
}

std::chrono::milliseconds Player::Position() {
  const std::lock_guard<std::mutex> lock(mutex_);
  return std::chrono::duration_cast<std::chrono::milliseconds>(position_);
}

Counts Player::Counted() {
  const std::lock_guard<std::mutex> lock(mutex_);
  return counts_;
}

bool Player::HasEnded() {
  const std::lock_guard<std::mutex> lock(mutex_);
  return ended_;
}

std::vector<ServiceInfo> Player::Services() {
  const std::lock_guard<std::mutex> lock(mutex_);
  return published_services_ ? *published_services_ : listed_;
}

// The thread's work

void Player::Run() {
  RecordInterruption();
  while (WaitUntilDue()) {
    PlayPortion();
    feed_.Flush();
    Settle();
    Publish();
  }
}

// Returns whether the next portion is due; if not, when it may be.
bool Player::IsDue(SteadyTime &when) const {
  if (paused_ || ended_) {
    return false;
  }
  switch (options_.clock) {
  case Clock::None:
    return true;
  case Clock::Virtual:
    return position_ < advanced_;
  case Clock::RealTime:
    break;
  }
  const std::chrono::duration<double, std::nano> ahead(static_cast<double>((position_ - base_played_).count()) /
                                                       speed_);
  when = base_time_ + std::chrono::duration_cast<std::chrono::steady_clock::duration>(ahead);
  return when <= std::chrono::steady_clock::now();
}

bool Player::WaitUntilDue() {
  std::unique_lock<std::mutex> lock(mutex_);
  is_busy_ = false;
  for (;;) {
    if (closing_) {
      return false;
    }
    if (subscriptions_changed_) {
      subscriptions_changed_ = false;
      is_busy_ = true;
      const int service = wanted_service_;
      lock.unlock();
      if (service != 0 && service != tuned_) {
        ForgetTuned();
        tuned_ = service;
      }
      FollowTuning();
      lock.lock();
      is_busy_ = false;
      published_service_ = tuned_;
      played_.notify_all();
      continue;
    }
    SteadyTime when = SteadyTime::max();
    if (IsDue(when)) {
      is_busy_ = true;
      return true;
    }
    played_.notify_all();
    if (when == SteadyTime::max()) {
      changed_.wait(lock);
    } else {
      changed_.wait_until(lock, when);
    }
  }
}

// Plays until the stream's time has advanced, so that all notifications belong to about the same moment.
void Player::PlayPortion() {
  const Nanoseconds start = time_.Position();
  for (std::size_t i = 0; i < kPortion && time_.Position() == start; ++i) {
    const std::uint8_t *packet = reader_.Next();
    if (!packet) {
      EndPass();
      return;
    }
    pass_was_empty_ = false;
    PlayPacket(packet);
  }
}

void Player::PlayPacket(const std::uint8_t *raw) {
  const Packet packet(raw);
  if (!is_locked_) {
    is_locked_ = true;
    SetSignal(SIGNAL_TYPE_LOCK, {1, 0});
  }
  tap_.Pass(raw);
  RecordPacket(raw);
  feed_.Push(tuned_, raw);
  demultiplexer_.Push(packet);
  if (!packet.IsErroneous()) {
    WatchScrambling(packet.Pid());
  }
  PassTime(packet);
}

// Follows the tuned service's clock, or the first clock that comes if it has none.
void Player::PassTime(const Packet &packet) {
  time_.Packet();
  if (packet.IsErroneous() || !packet.HasPcr()) {
    return;
  }
  const Service *service = services_.Find(static_cast<std::uint16_t>(tuned_));
  const int wanted = service && service->has_pmt && demultiplexer_.WasSeen(service->pmt.pcr_pid & kNullPid)
                         ? service->pmt.pcr_pid
                         : -1;
  if (packet.Pid() == wanted && clock_pid_ != wanted) {
    clock_pid_ = wanted;
    time_.Interrupt();
  } else if (clock_pid_ < 0) {
    clock_pid_ = packet.Pid();
  }
  if (packet.Pid() == clock_pid_) {
    time_.Clock(packet.Pcr(), packet.IsDiscontinuous());
    MeasureStrength();
  }
}

// Called when the stream has been read to its end.
void Player::EndPass() {
  demultiplexer_.End();
  for (auto &entry : teletext_) {
    entry.second->End();
  }
  for (auto &entry : line21_) {
    entry.second->End();
  }
  const bool goes_on = options_.atEnd == AtEnd::Loop && !pass_was_empty_ && source_.Error() == 0 && reader_.Rewind();
  pass_was_empty_ = true;
  if (goes_on) {
    demultiplexer_.Interrupt();
    RecordInterruption();
    feed_.Interrupt();
    time_.Interrupt();
    MakeDecoders();
    return;
  }
  Publish();
  {
    const std::lock_guard<std::mutex> lock(mutex_);
    ended_ = true; // a callback for the lost signal may ask
  }
  is_locked_ = false;
  feed_.Close();
  SetSignal(SIGNAL_TYPE_LOCK, {0, 0});
}

// Some sections make many notifications, and some notifications are large.
void Player::CountSent(std::size_t bytes) {
  unsettled_bytes_ += bytes;
  if (unsettled_bytes_ >= kMostUnsettled) {
    Settle();
  }
}

// Waits until the notifications have been delivered, if nothing else limits how many are waiting.
void Player::Settle() {
  const bool is_paced = options_.clock == Clock::RealTime;
  if (is_paced && unsettled_bytes_ < kMostUnsettled) {
    return;
  }
  if (unsettled_bytes_ == 0) {
    return;
  }
  unsettled_bytes_ = 0;
  const auto is_closing = [this] {
    const std::lock_guard<std::mutex> lock(mutex_);
    return closing_;
  };
  tv::Service::Get().ForEachKind([&](auto &subscriptions) { subscriptions.thread.FlushUnless(is_closing); });
  if (options_.clock != Clock::None || !options_.settle) {
    return;
  }
  // The function may be called after this player has been destroyed.
  struct Gate {
    std::mutex mutex;
    std::condition_variable opened;
    bool open = false;
  };
  const auto gate = std::make_shared<Gate>();
  options_.settle([gate] {
    const std::lock_guard<std::mutex> lock(gate->mutex);
    gate->open = true;
    gate->opened.notify_all();
  });
  std::unique_lock<std::mutex> lock(gate->mutex);
  while (!gate->open && !is_closing()) {
    gate->opened.wait_for(lock, std::chrono::milliseconds(50)); // closing does not open the gate
  }
}

// Publishes the changes to other threads.
void Player::Publish() {
  const PacketCounts &counts = demultiplexer_.Counts();
  const std::uint64_t dropped_pes = demultiplexer_.DroppedPes();
  const std::lock_guard<std::mutex> lock(mutex_);
  position_ = time_.Position();
  counts_ = {counts.packets,           reader_.SyncLosses(), counts.transport_errors,
             counts.continuity_errors, dropped_pes,          dropped_programmes_};
  published_service_ = tuned_;
}

// What the stream contains

bool Player::IsWantedAsSections(std::uint16_t pid) const {
  return IsTablePid(pid) || pid == services_.NetworkPid() || is_subscribed_[pid] || carousels_.count(pid) != 0;
}

void Player::OnSection(std::uint16_t pid, const Section &section) {
  const bool right = section.IsChecksumRight();
  if (is_subscribed_[pid]) {
    CountSent(tv::EmitSection(pid, section.Raw().Copy(), right) > 0 ? kCostOfEvent + section.Raw().size() : 0);
  }
  if (!right) {
    return;
  }
  if (pid == kEitPid) {
    std::uint64_t service = 0;
    switch (programmes_.Push(section, service)) {
    case Programmes::Change::kChanged:
      TellProgrammes(service, false);
      break;
    case Programmes::Change::kDropped:
      if (dropped_programmes_++ == 0) {
        __dlog_print(0, kError, "lumio-host", "broadcast: no room for more programmes, changes are dropped\n");
      }
      break;
    case Programmes::Change::kNone:
      break;
    }
    return;
  }
  const auto carousel = carousels_.find(pid);
  if (carousel != carousels_.end()) {
    carousel->second->Push(section, [&](const CarouselModule &module) {
      for (auto &[handle, session] : sessions_) {
        if (session.pid == pid) {
          TellModule(handle, session, module);
        }
      }
    });
  }
  if (services_.Push(pid, section)) {
    OnServicesChanged(pid, section);
  }
}

void Player::OnServicesChanged(std::uint16_t pid, const Section &section) {
  if (pid == kPatPid) {
    for (const auto &entry : services_.Services()) {
      demultiplexer_.WantSections(entry.second.pmt_pid, true);
    }
    demultiplexer_.WantSections(services_.NetworkPid(), true);
  }
  if (pid != kSdtPid && (tuned_ == 0 || section.TableId() == kPatId || section.Extension() == tuned_)) {
    FollowTuning();
  } else if (section.TableId() == kPmtId || pid == kSdtPid) {
    FollowSessions();
  }
  const bool is_complete = services_.IsComplete();
  std::vector<ServiceInfo> list = is_complete ? InfoOf(services_, &demultiplexer_) : std::vector<ServiceInfo>();
  const std::lock_guard<std::mutex> lock(mutex_);
  if (is_complete) {
    published_services_ = std::move(list);
  }
}

void Player::OnPes(const PesPacket &packet) {
  if (wants_pes_) {
    TSPESData data;
    data.pid = packet.pid;
    data.streamId = packet.stream_id;
    data.pts = packet.pts;
    data.payload = packet.payload.Copy();
    const int count = tv::EmitPes(data);
    CountSent(static_cast<std::size_t>(count) * (kCostOfEvent + packet.payload.size()));
  }
  const auto teletext = teletext_.find(packet.pid);
  if (teletext != teletext_.end()) {
    teletext->second->Push(packet);
  }
  const auto line21 = line21_.find(packet.pid);
  if (line21 != line21_.end()) {
    line21->second->Push(packet);
  }
}

// Tuning

// Updates everything to the services, the subscriptions and the tuned service.
void Player::FollowTuning() {
  if (tuned_ == 0) {
    for (const auto &entry : services_.Services()) {
      if (entry.second.has_pmt) {
        tuned_ = entry.first;
        break;
      }
    }
  }
  bool wants_pes = false;
  bool wants_captions = false;
  tv::Service &service = tv::Service::Get();
  service.pes.subscriptions.ForEach([&](int, int, const auto &) { wants_pes = true; });
  service.caption.subscriptions.ForEach([&](int, int, const auto &) { wants_captions = true; });
  std::array<bool, kPids> subscribed{};
  service.section.subscriptions.ForEach([&](int, int, const tv::SectionService::Details &details) {
    if (details.filter.pid < kPids) {
      subscribed[details.filter.pid] = true;
    }
  });
  const std::array<bool, kPids> before = is_subscribed_;
  is_subscribed_ = subscribed;
  const bool decoders_change = wants_captions != wants_captions_;
  wants_pes_ = wants_pes;
  wants_captions_ = wants_captions;
  LookAtStreams();
  if (decoders_change) {
    MakeDecoders();
  }
  for (std::uint16_t pid = 0; pid < kPids; ++pid) {
    if (before[pid] != subscribed[pid]) {
      bool is_pmt = false;
      for (const auto &entry : services_.Services()) {
        is_pmt = is_pmt || entry.second.pmt_pid == pid;
      }
      demultiplexer_.WantSections(pid, is_pmt || IsWantedAsSections(pid));
    }
  }
  WantStreams();
  FollowSessions();
  TellSignals();
  TellProgrammes(0, true);
}

void Player::ForgetTuned() {
  for (const ElementaryStream &stream : tuned_streams_) {
    demultiplexer_.WantPes(stream.pid, false);
  }
  tuned_streams_.clear();
  teletext_.clear();
  line21_.clear();
  is_tuned_pid_.fill(false);
  for (const ESignalType type :
       {SIGNAL_TYPE_SERVICE_CHANGED, SIGNAL_TYPE_AUDIO_CHANGED, SIGNAL_TYPE_VIDEO_CHANGED, SIGNAL_TYPE_SCRAMBLED}) {
    signals_[type].reset();
  }
}

// Detects a new version of the tuned service's streams.
void Player::LookAtStreams() {
  const Service *service = services_.Find(static_cast<std::uint16_t>(tuned_));
  if (!service || !service->has_pmt || tuned_ == 0) {
    return;
  }
  SetSignal(SIGNAL_TYPE_SERVICE_CHANGED, {tuned_, 0});
  if (service->pmt.streams == tuned_streams_) {
    return;
  }
  for (const ElementaryStream &stream : tuned_streams_) {
    demultiplexer_.WantPes(stream.pid, false);
  }
  is_tuned_pid_.fill(false);
  is_scrambled_.fill(false);
  scrambled_pids_ = 0;
  tuned_streams_ = service->pmt.streams;
  for (const ElementaryStream &stream : tuned_streams_) {
    is_tuned_pid_[stream.pid] = !CarriesSections(stream.type);
    CountScrambling(stream.pid);
  }
  SetSignal(SIGNAL_TYPE_VIDEO_CHANGED, FirstOf(tuned_streams_, StreamKind::kVideo));
  SetSignal(SIGNAL_TYPE_AUDIO_CHANGED, FirstOf(tuned_streams_, StreamKind::kAudio));
  MakeDecoders();
}

void Player::WantStreams() {
  for (const ElementaryStream &stream : tuned_streams_) {
    if (stream.kind == StreamKind::kCarousel && carousels_.size() < kMostCarousels &&
        carousels_.count(stream.pid) == 0) {
      carousels_[stream.pid] = std::make_unique<Carousel>(carousel_budget_, /*keeps=*/true);
      demultiplexer_.WantSections(stream.pid, true);
    }
    const bool decodes = teletext_.count(stream.pid) != 0 || line21_.count(stream.pid) != 0;
    demultiplexer_.WantPes(stream.pid, is_tuned_pid_[stream.pid] && (wants_pes_ || decodes));
  }
}

void Player::MakeDecoders() {
  teletext_.clear();
  line21_.clear();
  if (!wants_captions_) {
    return;
  }
  const broadcast::TellCaption tell = [this](const Caption &caption) { TellCaption(caption); };
  for (const ElementaryStream &stream : tuned_streams_) {
    if (teletext_.size() + line21_.size() >= kMostDecoders) {
      return;
    }
    if (Line21Pictures::Understands(stream.type)) {
      line21_[stream.pid] =
          std::make_unique<Line21Decoder>(stream.pid, stream.type == kH264Type, stream.line21_language, tell);
    } else if (!stream.subtitle_pages.empty()) {
      teletext_[stream.pid] = std::make_unique<TeletextDecoder>(stream.pid, stream.subtitle_pages, tell);
    }
  }
}

void Player::TellCaption(const Caption &caption) {
  TSCaption data;
  data.language = caption.language;
  data.pts = caption.pts;
  data.payload.assign(caption.text.begin(), caption.text.end());
  CountSent(tv::EmitCaption(data) > 0 ? kCostOfEvent : 0);
}

// Signals

void Player::SetSignal(ESignalType type, TSSignalData data) {
  signals_[type] = data;
  TellSignals();
}

// Sends each subscription what it has not received yet.
void Player::TellSignals() {
  std::array<int, SIGNAL_TYPE_STRENGTH + 1> handles{};
  tv::Service::Get().signal.subscriptions.ForEach([&](int handle, const tv::SignalService::Key &key, const auto &) {
    const auto [type, profile, screen] = key;
    if (type >= 0 && type <= SIGNAL_TYPE_STRENGTH && profile == PROFILE_MAIN && screen == 0) {
      handles[type] = handle;
    }
  });
  for (int type = 0; type <= SIGNAL_TYPE_STRENGTH; ++type) {
    auto &[told_handle, told] = told_signals_[type];
    if (told_handle != handles[type]) {
      told.reset();
      told_handle = handles[type];
    }
    if (told_handle != 0 && signals_[type] && (!told || !(*told == *signals_[type]))) {
      told = signals_[type];
      tv::EmitSignal(static_cast<ESignalType>(type), PROFILE_MAIN, 0, *told);
      CountSent(kCostOfEvent);
    }
  }
}

void Player::MeasureStrength() {
  if (time_.Position() - measured_ < std::chrono::seconds(1)) {
    return;
  }
  const PacketCounts &now = demultiplexer_.Counts();
  const std::uint64_t packets = now.packets - measured_counts_.packets;
  const auto percent_without = [&](std::uint64_t errors) {
    return packets == 0 ? 100 : static_cast<std::int32_t>((packets - std::min(errors, packets)) * 100 / packets);
  };
  SetSignal(SIGNAL_TYPE_STRENGTH, {percent_without(now.transport_errors - measured_counts_.transport_errors),
                                   percent_without(now.continuity_errors - measured_counts_.continuity_errors)});
  measured_ = time_.Position();
  measured_counts_ = now;
}

void Player::CountScrambling(std::uint16_t pid) {
  const bool is_scrambled = is_tuned_pid_[pid] && demultiplexer_.IsScrambled(pid);
  if (is_scrambled != is_scrambled_[pid]) {
    is_scrambled_[pid] = is_scrambled;
    scrambled_pids_ += is_scrambled ? 1U : -1U;
  }
}

// The service is scrambled as long as the last packet of any of its streams is.
void Player::WatchScrambling(std::uint16_t pid) {
  if (!is_tuned_pid_[pid]) {
    return;
  }
  CountScrambling(pid);
  const TSSignalData data{scrambled_pids_ > 0 ? 1 : 0, 0};
  if (!signals_[SIGNAL_TYPE_SCRAMBLED] || !(*signals_[SIGNAL_TYPE_SCRAMBLED] == data)) {
    SetSignal(SIGNAL_TYPE_SCRAMBLED, data);
  }
}

// Programmes

// Sends the subscriptions of one service, or of all, what they have not received yet.
void Player::TellProgrammes(std::uint64_t service, bool all) {
  std::vector<std::pair<int, tv::ProgramService::Details>> subscriptions;
  tv::Service::Get().program.subscriptions.ForEach([&](int handle, int, const tv::ProgramService::Details &details) {
    subscriptions.emplace_back(handle, details);
  });
  for (auto told = told_programmes_.begin(); all && told != told_programmes_.end();) {
    const bool is_there = std::any_of(subscriptions.begin(), subscriptions.end(),
                                      [&](const auto &subscription) { return subscription.first == told->first; });
    told = is_there ? std::next(told) : told_programmes_.erase(told);
  }
  for (const auto &[handle, details] : subscriptions) {
    const ServiceProgrammes *programmes = programmes_.Find(details.service);
    Told &told = told_programmes_[handle];
    if (!programmes || told.done || (!all && details.service != service)) {
      continue;
    }
    const bool once = details.type == SUBSCRIBE_TYPE_ONCE;
    switch (details.form) {
    case tv::ProgramService::Form::Program:
      TellOne(handle, *programmes, details.event, told);
      break;
    case tv::ProgramService::Form::PresentFollowing:
      TellPresentFollowing(handle, *programmes, once, told);
      break;
    case tv::ProgramService::Form::List:
      TellList(handle, *programmes, {details.first, details.second}, once, told);
      break;
    }
  }
}

void Player::TellProgramme(int handle, EProgramChangeType change, const Programme *programme, int position) {
  // The interface takes a pointer to non-const data, but documents that no callback changes it.
  tv::TellProgram(handle, change, const_cast<TCProgramData *>(&programme->data), position);
  CountSent(kCostOfEvent);
}

void Player::TellOne(int handle, const ServiceProgrammes &programmes, unsigned short event, Told &told) {
  const Programme *programme = programmes.Find(event);
  if (!programme || told.present == programme) {
    return;
  }
  told.present = programme;
  const EProgramChangeType change = programme == programmes.Present()     ? PROGRAM_CHANGE_PRESENT
                                    : programme == programmes.Following() ? PROGRAM_CHANGE_FOLLOWING
                                                                          : PROGRAM_CHANGE_LIST;
  TellProgramme(handle, change, programme, change == PROGRAM_CHANGE_FOLLOWING ? 1 : 0);
}

void Player::TellPresentFollowing(int handle, const ServiceProgrammes &programmes, bool once, Told &told) {
  if (once && !programmes.IsPresentFollowingComplete()) {
    return;
  }
  if (programmes.Present() && programmes.Present() != told.present) {
    TellProgramme(handle, PROGRAM_CHANGE_PRESENT, programmes.Present(), 0);
  }
  if (programmes.Following() && programmes.Following() != told.following) {
    TellProgramme(handle, PROGRAM_CHANGE_FOLLOWING, programmes.Following(), 1);
  }
  told.present = programmes.Present();
  told.following = programmes.Following();
  told.done = once;
}

void Player::TellList(int handle, const ServiceProgrammes &programmes, const std::pair<unsigned, unsigned> &range,
                      bool once, Told &told) {
  if (once && !programmes.IsScheduleComplete()) {
    return;
  }
  std::map<std::uint16_t, const Programme *> now;
  int position = 0;
  for (const Programme *programme : programmes.List()) {
    const std::int64_t start = programme->data.startTime;
    const std::int64_t end = start + std::max(programme->data.duration, 1U);
    if (end <= range.first || start >= range.second) {
      continue;
    }
    const auto before = told.programmes.find(programme->data.eventId);
    if (before == told.programmes.end() || before->second != programme) {
      TellProgramme(handle, PROGRAM_CHANGE_LIST, programme, position);
    }
    now[programme->data.eventId] = programme;
    ++position;
  }
  told.programmes = std::move(now);
  told.done = once;
}

// Carousels

void Player::FollowSessions() {
  std::map<int, Session> now;
  tv::Service::Get().dsm.subscriptions.ForEach([&](int handle, int, const tv::DsmService::Details &details) {
    const auto before = sessions_.find(handle);
    now[handle] = before != sessions_.end() ? std::move(before->second)
                                            : Session{details.target, details.attach_type == DSM_ATTACH_CACHED, -1, {}};
  });
  sessions_ = std::move(now);
  for (auto &[handle, session] : sessions_) {
    if (session.pid < 0) {
      Attach(handle, session);
    }
  }
}

void Player::Attach(int handle, Session &session) {
  session.pid = PidOfTarget(session.target);
  if (session.pid < 0) {
    return;
  }
  const auto pid = static_cast<std::uint16_t>(session.pid);
  std::unique_ptr<Carousel> &carousel = carousels_[pid];
  if (!carousel) {
    carousel = std::make_unique<Carousel>(carousel_budget_, /*keeps=*/true);
    demultiplexer_.WantSections(pid, true);
  } else if (session.from_cache) {
    carousel->ForEachComplete([&](const CarouselModule &module) { TellModule(handle, session, module); });
  } else {
    carousel->Restart();
  }
}

void Player::TellModule(int handle, Session &session, const CarouselModule &module) {
  const auto told = session.told.find(module.id);
  if (told != session.told.end() && told->second == module.version) {
    return;
  }
  session.told[module.id] = module.version;
  TSDsmMessage message{};
  message.version = module.version;
  message.sessionHandle = handle;
  message.moduleId = module.id;
  message.size = static_cast<std::uint32_t>(module.data.size());
  message.data = module.data.data();
  tv::EmitDsm(message);
  CountSent(kCostOfEvent + module.data.size());
}

// Returns the PID of "dvb://ONID.TSID.SID/TAG"; -1 if there is none.
int Player::PidOfTarget(const std::string &target) const {
  static const std::string kScheme = "dvb://";
  std::size_t position = kScheme.size();
  std::uint64_t parts[4];
  for (std::size_t i = 0; i < 4; ++i) {
    if (target.compare(0, kScheme.size(), kScheme) != 0 || !ParseHex(target, position, parts[i]) ||
        (i < 3 && target[position] != (i < 2 ? '.' : '/'))) {
      return -1;
    }
    position += i < 3 ? 1 : 0;
  }
  if (position != target.size() || parts[2] > 0xffff) {
    return -1;
  }
  const auto id = static_cast<std::uint16_t>(parts[2]);
  const Service *service = services_.Find(id);
  if (!service || services_.IdOf(id) != (parts[0] << 32 | parts[1] << 16 | parts[2])) {
    return -1;
  }
  for (const ElementaryStream &stream : service->pmt.streams) {
    if (stream.component_tag >= 0 && static_cast<std::uint64_t>(stream.component_tag) == parts[3] &&
        CarriesSections(stream.type)) {
      return stream.pid;
    }
  }
  return -1;
}

} // namespace lumio::broadcast
