// Extracts the packets of one service from a stream, as a complete stream of its own.
#pragma once

#include <array>
#include <cstdint>
#include <functional>
#include <vector>

#include "demultiplexer.h"
#include "stream_time.h"
#include "tables.h"

namespace lumio::broadcast {

// It writes a PAT and an SDT that list only this service, and the service's PMT, EIT, streams and clock unchanged. It
// begins when the stream's PAT and the service's PMT have been seen.
class Recorder final : private DemultiplexerListener {
public:
  // Receives packets of 188 bytes, valid during the call.
  using Sink = std::function<void(const std::uint8_t *packet)>;

  Recorder(std::uint16_t service, Sink sink);

  void Push(const std::uint8_t *packet);
  // Call it when another stream follows, or the same one from another position. The recording announces a discontinuity
  // where each of its streams continues.
  void Interrupt();

  // How much was recorded, by the service's clock.
  std::chrono::nanoseconds Duration() const { return time_.Position(); }

private:
  enum class Route : std::uint8_t { kNone, kStream, kInterrupted };

  void OnSection(std::uint16_t pid, const Section &section) override;
  void OnPes(const PesPacket &) override {}
  void OnPat(const Section &section);
  void OnPmt(const Section &section);
  void OnSdt(const Section &section);
  void ForgetStreams();
  void AddStream(std::uint16_t pid);
  void WriteSection(std::uint16_t pid, const std::uint8_t *section);
  void WriteInterruption(const Packet &packet);

  const std::uint16_t service_;
  const Sink sink_;
  Demultiplexer demultiplexer_{*this};
  std::uint16_t pmt_pid_ = kNullPid; // kNullPid: not known
  std::uint16_t clock_pid_ = kNullPid;
  std::array<Route, kPids> routes_{};
  std::array<std::uint8_t, kPids> counters_{}; // of the tables that are written
  StreamTime time_;
};

} // namespace lumio::broadcast
