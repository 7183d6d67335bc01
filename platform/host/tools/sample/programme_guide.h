// What the sample broadcast's services show, and when.
#pragma once

#include <cstdint>
#include <vector>

#include "transport_stream.h"

namespace lumio::sample {

constexpr unsigned kStreamId = 1;
constexpr unsigned kNetworkId = 1;

// The broadcast begins ten seconds before the programmes change.
constexpr std::int64_t kStart = 1795292090;    // 2026-11-21 20:14:50 UTC
constexpr std::int64_t kMidnight = 1795219200; // the beginning of that day
constexpr double kChange = 10;                 // seconds from the beginning

struct Service {
  unsigned id;
  const char *name;
  std::vector<const char *> titles; // of its programmes, in turn
  std::int64_t first;               // seconds from midnight to the first one
};

const Service &FirstService();
const Service &SecondService();

// The present and the following programme, before and after the change.
std::vector<ts::Bytes> PresentFollowing(const Service &service, bool changed);

// The programmes of the day.
std::vector<ts::Bytes> Schedule(const Service &service);

} // namespace lumio::sample
