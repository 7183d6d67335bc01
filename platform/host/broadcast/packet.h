// The fields of a transport stream packet, read within its 188 bytes, whatever lengths it contains.
#pragma once

#include <bitstream/mpeg/ts.h>

#include <cstdint>

#include "bytes.h"
#include "packet_reader.h"

namespace lumio::broadcast {

constexpr std::uint16_t kNullPid = 0x1fff;
constexpr unsigned kPids = 0x2000;

class Packet {
public:
  explicit Packet(const std::uint8_t *packet) : packet_(packet) {}

  std::uint16_t Pid() const { return ts_get_pid(packet_); }
  bool IsErroneous() const { return ts_get_transporterror(packet_); }
  // Neither erroneous nor scrambled.
  bool IsPlain() const { return !IsErroneous() && !IsScrambled(); }
  bool IsUnitStart() const { return ts_get_unitstart(packet_); }
  bool IsScrambled() const { return ts_get_scrambling(packet_) != 0; }
  std::uint8_t Counter() const { return ts_get_cc(packet_); }
  bool HasPayload() const { return ts_has_payload(packet_); }
  bool IsDiscontinuous() const { return HasAdaptationFlags() && tsaf_has_discontinuity(packet_); }

  // Empty if the adaptation field leaves no room for it.
  Bytes Payload() const {
    if (!HasPayload()) {
      return {packet_, 0};
    }
    const std::size_t header = TS_HEADER_SIZE + (ts_has_adaptation(packet_) ? 1U + ts_get_adaptation(packet_) : 0U);
    return Bytes(packet_, kPacketSize).From(header);
  }

  // The programme clock in units of 27 MHz.
  bool HasPcr() const {
    return HasAdaptationFlags() && ts_get_adaptation(packet_) >= kPcrRoom && tsaf_has_pcr(packet_);
  }
  std::uint64_t Pcr() const { return tsaf_get_pcr(packet_) * 300 + tsaf_get_pcrext(packet_); }

  const std::uint8_t *Raw() const { return packet_; }

private:
  static constexpr unsigned kPcrRoom = 7; // one byte of flags and six of the clock

  bool HasAdaptationFlags() const { return ts_has_adaptation(packet_) && ts_get_adaptation(packet_) > 0; }

  const std::uint8_t *packet_;
};

} // namespace lumio::broadcast
