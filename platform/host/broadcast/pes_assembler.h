// Assembles the PES packets of one PID.
#pragma once

#include <cstdint>
#include <vector>

#include "budget.h"
#include "bytes.h"

namespace lumio::broadcast {

constexpr std::size_t kLongestPes = std::size_t{2} << 20;
constexpr std::uint64_t kNoTime = ~std::uint64_t{0};

struct PesPacket {
  std::uint16_t pid;
  std::uint8_t stream_id;
  std::uint64_t pts; // 33 bits in units of 90 kHz; kNoTime if there is none
  std::uint64_t dts; // the same; equal to the PTS if the packet has only that
  Bytes payload;     // the bytes after the header
};

class PesAssembler {
public:
  // `dropped` counts the packets that were begun but not delivered: too long, broken off or malformed.
  PesAssembler(std::uint16_t pid, Budget &budget, std::uint64_t &dropped)
      : pid_(pid), budget_(budget), dropped_(dropped) {}
  ~PesAssembler() { Release(); }
  PesAssembler(const PesAssembler &) = delete;
  PesAssembler &operator=(const PesAssembler &) = delete;

  // Takes the payload of the next packet. Calls tell(const PesPacket &) for each PES packet that it completes. A packet
  // of unknown length is complete when the next one starts.
  template <class Tell> void Push(Bytes payload, bool unit_start, Tell &&tell) {
    if (unit_start) {
      End(tell);
      state_ = State::kBegun;
    }
    if (state_ != State::kBegun) {
      return;
    }
    Keep(payload);
    if (state_ == State::kBegun && size_ != 0 && begun_.size() >= size_) {
      TellBegun(tell);
    }
  }

  // Call it when the stream ends.
  template <class Tell> void End(Tell &&tell) {
    if (state_ == State::kBegun && size_ == 0) {
      TellBegun(tell);
    } else {
      Lose();
    }
  }

  // Drops the unfinished packet, because its continuation is missing.
  void Lose();

private:
  enum class State { kIdle, kBegun };

  void Keep(Bytes payload);
  void Drop();
  void Release();
  bool Parse(PesPacket &packet) const;

  template <class Tell> void TellBegun(Tell &&tell) {
    PesPacket packet{};
    if (Parse(packet)) {
      tell(packet);
    } else {
      ++dropped_;
    }
    Drop();
  }

  const std::uint16_t pid_;
  Budget &budget_;
  std::uint64_t &dropped_;
  State state_ = State::kIdle;
  std::vector<std::uint8_t> begun_;
  std::size_t size_ = 0;  // of the whole packet; 0 if unknown or not yet read
  std::size_t taken_ = 0; // from the budget
};

} // namespace lumio::broadcast
