// Checks whether the packets of one PID follow each other.
#pragma once

#include <array>
#include <cstdint>

#include "bytes.h"
#include "packet.h"

namespace lumio::broadcast {

enum class Continuity {
  kFollows, // the next packet, or the first one
  kRepeats, // the last packet again, which a stream may send once
  kJumps,   // not the next one, and the stream announces it
  kBroken,  // not the next one: packets are missing
};

// It looks at packets that are neither null nor marked as erroneous. It refers to the last one, which stays valid until
// `Keep`: copying each packet would cost more than checking it.
class ContinuityCounter {
public:
  Continuity Check(const Packet &packet) { return Follows(packet) ? Continuity::kFollows : CheckOther(packet); }
  // Whether the packet has payload and follows another one. If not, it is still to be checked.
  bool Follows(const Packet &packet) {
    if (packet.Counter() != next_ || !packet.HasPayload()) {
      return false;
    }
    Take(packet);
    return true;
  }
  // Copies the last packet.
  void Keep();
  // Treats the next packet as the first one.
  void Forget() { next_ = kUnknown; }

private:
  Continuity CheckOther(const Packet &packet);
  bool IsRepetition(const Packet &packet) const;
  void Take(const Packet &packet) {
    next_ = (packet.Counter() + 1) & 0xf;
    repeated_ = false;
    last_ = packet.Raw();
  }

  static constexpr std::uint8_t kUnknown = 0xff;

  std::uint8_t next_ = kUnknown; // the counter that follows
  bool repeated_ = false;
  const std::uint8_t *last_ = nullptr;
  std::array<std::uint8_t, kPacketSize> kept_;
};

} // namespace lumio::broadcast
