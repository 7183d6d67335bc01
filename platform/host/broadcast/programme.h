// One event of the service information.
#pragma once

#include <TVServiceTypes.h>

namespace lumio::broadcast {

struct Programme {
  TCProgramData data;
  bool has_start = false;    // otherwise data.startTime is 0
  bool has_duration = false; // otherwise data.duration is 0

  bool operator==(const Programme &other) const {
    return data.serviceId == other.data.serviceId && data.eventId == other.data.eventId &&
           data.startTime == other.data.startTime && data.duration == other.data.duration &&
           data.title == other.data.title && data.description == other.data.description &&
           has_start == other.has_start && has_duration == other.has_duration;
  }
};

} // namespace lumio::broadcast
