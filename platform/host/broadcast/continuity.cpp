#include "continuity.h"

#include <cstring>

namespace lumio::broadcast {

Continuity ContinuityCounter::Check(const Packet &packet) {
  if (!packet.HasPayload()) { // does not count
    known_ = known_ && !packet.IsDiscontinuous();
    return Continuity::kFollows;
  }
  const std::uint8_t counter = packet.Counter();
  const Bytes payload = packet.Payload();
  Continuity result = Continuity::kFollows;
  if (known_ && counter != ((last_ + 1) & 0xf)) {
    const bool same = counter == last_ && payload.size() == last_size_ &&
                      std::memcmp(payload.data(), last_payload_.data(), payload.size()) == 0;
    if (same && !repeated_ && !packet.IsDiscontinuous()) {
      repeated_ = true;
      return Continuity::kRepeats;
    }
    result = packet.IsDiscontinuous() ? Continuity::kJumps : Continuity::kBroken;
  }
  known_ = true;
  repeated_ = false;
  last_ = counter;
  last_size_ = static_cast<std::uint8_t>(payload.size());
  std::memcpy(last_payload_.data(), payload.data(), payload.size());
  return result;
}

} // namespace lumio::broadcast
