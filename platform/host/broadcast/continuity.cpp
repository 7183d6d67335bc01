#include "continuity.h"

#include <cstring>

namespace lumio::broadcast {

Continuity ContinuityCounter::CheckOther(const Packet &packet) {
  if (!packet.HasPayload()) { // does not change the counter
    next_ = packet.IsDiscontinuous() ? kUnknown : next_;
    return Continuity::kFollows;
  }
  Continuity result = Continuity::kFollows;
  if (next_ != kUnknown) {
    if (IsRepetition(packet)) {
      repeated_ = true;
      return Continuity::kRepeats;
    }
    result = packet.IsDiscontinuous() ? Continuity::kJumps : Continuity::kBroken;
  }
  Take(packet);
  return result;
}

bool ContinuityCounter::IsRepetition(const Packet &packet) const {
  if (repeated_ || packet.IsDiscontinuous() || ((packet.Counter() + 1) & 0xf) != next_) {
    return false;
  }
  const Bytes payload = packet.Payload();
  const Bytes last = Packet(last_).Payload();
  return payload.size() == last.size() && std::memcmp(payload.data(), last.data(), payload.size()) == 0;
}

void ContinuityCounter::Keep() {
  if (next_ != kUnknown && last_ != kept_.data()) {
    std::memcpy(kept_.data(), last_, kPacketSize);
    last_ = kept_.data();
  }
}

} // namespace lumio::broadcast
