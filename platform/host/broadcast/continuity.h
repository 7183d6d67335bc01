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

class ContinuityCounter {
public:
  // Looks at a packet that is neither null nor marked as erroneous.
  Continuity Check(const Packet &packet);
  // Treats the next packet as the first one.
  void Forget() { known_ = false; }

private:
  bool known_ = false;
  bool repeated_ = false;
  std::uint8_t last_ = 0;
  std::array<std::uint8_t, kPacketSize> last_packet_;
};

} // namespace lumio::broadcast
