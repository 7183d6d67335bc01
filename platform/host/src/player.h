// Plays a transport stream into the TV service.
#pragma once

#include <lumio-host/broadcast.h>

#include <array>
#include <atomic>
#include <condition_variable>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "byte_source.h"
#include "carousel.h"
#include "demultiplexer.h"
#include "line21.h"
#include "packet_reader.h"
#include "programmes.h"
#include "service_feed.h"
#include "service_list.h"
#include "stream_time.h"
#include "teletext.h"

namespace lumio::broadcast {

using PacketListener = std::function<void(const unsigned char *)>;

// Receives the packets. It outlives the players.
class PacketTap {
public:
  void Set(PacketListener listener);
  void Pass(const std::uint8_t *packet);

private:
  std::mutex mutex_;
  PacketListener listener_;
  std::atomic<bool> is_set_{false};
};

class Player final : private DemultiplexerListener {
public:
  Player(const Options &options, PacketTap &tap, ServiceFeed &feed);
  ~Player() override { Stop(); }
  Player(const Player &) = delete;
  Player &operator=(const Player &) = delete;

  // Returns 0, an errno value, or -1 if it is not a transport stream.
  int Open(const std::string &file);
  void Start();
  // Joins the thread. Has no effect on that thread itself.
  void Stop();

  // On any thread.
  void OnSubscriptionsChanged();
  void Tune(int service);
  int TunedService();
  int PassOn();
  void SetSpeed(double speed);
  void Pause(bool paused);
  void Advance(std::chrono::milliseconds time);
  std::chrono::milliseconds Position();
  Counts Counted();
  std::vector<ServiceInfo> Services();
  bool HasEnded();

private:
  using Nanoseconds = std::chrono::nanoseconds;
  using SteadyTime = std::chrono::steady_clock::time_point;

  // The thread's work
  void Run();
  bool WaitUntilDue();
  bool IsDue(SteadyTime &when) const;
  void PlayPortion();
  void PlayPacket(const std::uint8_t *packet);
  void PassTime(const Packet &packet);
  void EndPass();
  void Settle();
  void CountSent(std::size_t bytes);
  void Publish();
  void Rebase(Nanoseconds played, SteadyTime now);

  // What the stream contains
  void OnSection(std::uint16_t pid, const Section &section) override;
  void OnPes(const PesPacket &packet) override;
  void OnServicesChanged(std::uint16_t pid, const Section &section);
  void WantStreams();
  bool IsWantedAsSections(std::uint16_t pid) const;

  // Tuning
  void FollowTuning();
  void ForgetTuned();
  void LookAtStreams();
  void MakeDecoders();
  void TellCaption(const Caption &caption);

  // Signals
  void SetSignal(ESignalType type, TSSignalData data);
  void TellSignals();
  void MeasureStrength();
  void CountScrambling(std::uint16_t pid);
  void WatchScrambling(std::uint16_t pid);

  // Programmes
  struct Told {
    bool done = false; // subscribed once, and received
    const Programme *present = nullptr;
    const Programme *following = nullptr;
    std::map<std::uint16_t, const Programme *> programmes; // by event id
  };
  void TellProgrammes(std::uint64_t service, bool all);
  void TellOne(int handle, const ServiceProgrammes &programmes, unsigned short event, Told &told);
  void TellPresentFollowing(int handle, const ServiceProgrammes &programmes, bool once, Told &told);
  void TellList(int handle, const ServiceProgrammes &programmes, const std::pair<unsigned, unsigned> &range, bool once,
                Told &told);
  void TellProgramme(int handle, EProgramChangeType change, const Programme *programme, int position);

  // Carousels
  struct Session {
    std::string target;
    bool from_cache = false;
    int pid = -1;                               // -1 until the stream gives it
    std::map<std::uint16_t, std::uint8_t> told; // versions of modules
  };
  void FollowSessions();
  void Attach(int handle, Session &session);
  void TellModule(int handle, Session &session, const CarouselModule &module);
  int PidOfTarget(const std::string &target) const;

  const Options options_;
  PacketTap &tap_;
  ServiceFeed &feed_;
  FileSource source_;
  PacketReader reader_{source_};
  std::vector<ServiceInfo> listed_; // found before playing

  // Used by the player's thread only.
  Demultiplexer demultiplexer_{*this};
  ServiceList services_;
  Programmes programmes_;
  Budget carousel_budget_;
  std::map<std::uint16_t, std::unique_ptr<Carousel>> carousels_;
  std::map<std::uint16_t, std::unique_ptr<TeletextDecoder>> teletext_;
  std::map<std::uint16_t, std::unique_ptr<Line21Decoder>> line21_;
  StreamTime time_;
  int clock_pid_ = -1; // whose clock is followed
  int tuned_ = 0;      // 0: nothing yet
  bool is_locked_ = false;
  bool pass_was_empty_ = true;
  std::vector<ElementaryStream> tuned_streams_; // as last seen
  std::array<std::optional<TSSignalData>, SIGNAL_TYPE_STRENGTH + 1> signals_;
  std::array<std::pair<int, std::optional<TSSignalData>>, SIGNAL_TYPE_STRENGTH + 1> told_signals_; // handle, data
  Nanoseconds measured_{0};
  PacketCounts measured_counts_;
  std::array<bool, kPids> is_tuned_pid_{};
  unsigned scrambled_pids_ = 0;
  std::array<bool, kPids> is_scrambled_{};
  std::map<int, Told> told_programmes_; // by handle
  std::map<int, Session> sessions_;     // by handle
  std::array<bool, kPids> is_subscribed_{};
  bool wants_pes_ = false;
  bool wants_captions_ = false;
  std::size_t unsettled_bytes_ = 0;
  std::uint64_t dropped_programmes_ = 0;

  std::mutex mutex_; // guards everything below
  std::condition_variable changed_;
  std::condition_variable played_;
  bool closing_ = false;
  bool ended_ = false;
  bool paused_ = false;
  bool subscriptions_changed_ = true; // or the service to tune to
  bool is_busy_ = false;              // with a change, or a portion
  int wanted_service_ = 0;
  int published_service_ = 0;
  double speed_ = 1;
  Nanoseconds position_{0};    // of what is played next
  Nanoseconds base_played_{0}; // stream's time at base_time_
  SteadyTime base_time_;
  Nanoseconds advanced_{0};
  Counts counts_{};
  std::optional<std::vector<ServiceInfo>> published_services_;

  std::thread thread_;
};

} // namespace lumio::broadcast
