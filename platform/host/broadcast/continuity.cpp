#include "continuity.h"

#include <cstring>

namespace lumio::broadcast {

Continuity ContinuityCounter::Check(const Packet &packet) {
  if (!packet.HasPayload()) { // does not change the counter
    known_ = known_ && !packet.IsDiscontinuous();
    return Continuity::kFollows;
  }
  const std::uint8_t counter = packet.Counter();
  Continuity result = Continuity::kFollows;
  if (known_ && counter != ((last_ + 1) & 0xf)) {
    const Bytes payload = packet.Payload();
    const Bytes last = Packet(last_packet_.data()).Payload();
    const bool same = counter == last_ && payload.size() == last.size() &&
                      std::memcmp(payload.data(), last.data(), payload.size()) == 0;
    if (same && !repeated_ && !packet.IsDiscontinuous()) {
      repeated_ = true;
      return Continuity::kRepeats;
    }
    result = packet.IsDiscontinuous() ? Continuity::kJumps : Continuity::kBroken;
  }
  known_ = true;
  repeated_ = false;
  last_ = counter;
  std::memcpy(last_packet_.data(), packet.Raw(), kPacketSize);
  return result;
}

} // namespace lumio::broadcast
