// Splits a stream by PID: counts its errors and assembles the sections and PES packets that are wanted.
#pragma once

#include <array>
#include <cstdint>
#include <memory>
#include <vector>

#include "continuity.h"
#include "packet.h"
#include "pes_assembler.h"
#include "section_assembler.h"

namespace lumio::broadcast {

// Receives what the packets carry. Bytes are valid during the call. The call may change what is wanted.
class DemultiplexerListener {
public:
  virtual ~DemultiplexerListener() = default;
  virtual void OnSection(std::uint16_t pid, const Section &section) = 0;
  virtual void OnPes(const PesPacket &packet) = 0;
};

struct PacketCounts {
  std::uint64_t packets = 0;
  std::uint64_t transport_errors = 0;
  std::uint64_t continuity_errors = 0;
};

class Demultiplexer {
public:
  explicit Demultiplexer(DemultiplexerListener &listener) : listener_(listener) {}
  ~Demultiplexer();
  Demultiplexer(const Demultiplexer &) = delete;
  Demultiplexer &operator=(const Demultiplexer &) = delete;

  void Push(const Packet &packet) { PushRun({packet.Raw(), 1, kPacketSize}); }
  // Takes packets that lie one after the other.
  void PushRun(const PacketRun &run);
  // Call it when the stream ends: packets of unknown length are then complete.
  void End();
  // Call it when another stream follows, or the same one from another position. Forgets counters and unfinished data.
  void Interrupt();

  // What is assembled from a PID; at first nothing.
  void WantSections(std::uint16_t pid, bool wanted);
  void WantPes(std::uint16_t pid, bool wanted);

  const PacketCounts &Counts() const { return counts_; }
  std::uint64_t DroppedPes() const { return dropped_pes_; }

  // Whether any packet of the PID so far was scrambled, and whether the last one was.
  bool WasScrambled(std::uint16_t pid) const { return pids_[pid] && pids_[pid]->was_scrambled; }
  bool IsScrambled(std::uint16_t pid) const { return pids_[pid] && pids_[pid]->is_scrambled; }
  // Whether a packet of the PID was seen.
  bool WasSeen(std::uint16_t pid) const { return pids_[pid] && pids_[pid]->was_seen; }

private:
  struct Pid {
    ContinuityCounter continuity;
    bool wants_sections = false;
    bool wants_pes = false;
    bool was_seen = false;
    bool was_scrambled = false; // any packet
    bool is_scrambled = false;  // the last one
    bool is_in_run = false;
    std::unique_ptr<SectionAssembler> sections; // created with the first packet
    std::unique_ptr<PesAssembler> pes;          // the same
  };

  Pid &Of(std::uint16_t pid);
  void PushOther(const Packet &packet);
  void PushPayload(std::uint16_t number, Pid &pid, const Packet &packet);
  void DropBegun(Pid &pid);
  void Retire(Pid &pid);

  DemultiplexerListener &listener_;
  Budget budget_{kAssemblyBudget};
  PacketCounts counts_;
  std::uint64_t dropped_pes_ = 0;
  std::array<std::unique_ptr<Pid>, kPids> pids_;
  std::vector<Pid *> in_run_;                                       // whose last packet lies in the run
  std::vector<std::unique_ptr<SectionAssembler>> retired_sections_; // a listener may retire its own caller
  std::vector<std::unique_ptr<PesAssembler>> retired_pes_;

  static constexpr std::size_t kAssemblyBudget = std::size_t{8} << 20; // for all unfinished data
};

} // namespace lumio::broadcast
