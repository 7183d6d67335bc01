#include "programme_guide.h"

#include <algorithm>
#include <string>

namespace lumio::sample {
using namespace ts; // for operator+

namespace {

constexpr std::int64_t kHour = 3600; // every programme's length, in seconds
constexpr unsigned kPresentFollowing = 0x4e;
constexpr unsigned kSchedule = 0x50;
constexpr unsigned kSegmentHours = 3; // of a schedule
constexpr unsigned kSegmentSections = 8;

// Text in the default character table of EN 300 468, or in UTF-8 where that does not suffice.
ts::Bytes EncodedText(const std::string &text) {
  const bool is_ascii = std::all_of(text.begin(), text.end(), [](char c) { return c > 0; });
  return (is_ascii ? ts::Bytes{} : ts::Bytes{0x15}) + ts::Text(text);
}

// The programme that begins at `start`, in seconds from midnight.
ts::Event ProgrammeAt(const Service &service, std::int64_t start) {
  const auto number = static_cast<size_t>((start - service.first) / kHour);
  const std::string title = service.titles[number % service.titles.size()];
  return {service.id * 100 + static_cast<unsigned>(number), ts::Time(kMidnight + start),
          ts::Duration(static_cast<unsigned>(kHour)), EncodedText(title),
          EncodedText("\"" + title + "\" on " + service.name + ".")};
}

ts::EventService Identity(const Service &service) { return {kNetworkId, kStreamId, service.id}; }

} // namespace

const Service &FirstService() {
  static const Service service = {101,
                                  "Lumio One",
                                  {"The Evening News", "The Lighthouse Keeper", "Caf\u00e9 de la Gare", "Night Train"},
                                  kHour / 4};
  return service;
}

const Service &SecondService() {
  static const Service service = {
      102, "Lumio Two", {"Quiz at Eight", "Gr\u00fc\u00dfe vom See", "Chess, Live"}, kHour / 4};
  return service;
}

std::vector<ts::Bytes> PresentFollowing(const Service &service, bool changed) {
  const std::int64_t change = kStart - kMidnight + static_cast<std::int64_t>(kChange);
  const std::int64_t present = changed ? change : change - kHour;
  const unsigned version = changed ? 1 : 0;
  return {ts::Eit(kPresentFollowing, Identity(service), {ProgrammeAt(service, present)}, {version, 0, 1}),
          ts::Eit(kPresentFollowing, Identity(service), {ProgrammeAt(service, present + kHour)}, {version, 1, 1})};
}

std::vector<ts::Bytes> Schedule(const Service &service) {
  constexpr unsigned kLast = 24 / kSegmentHours * kSegmentSections - kSegmentSections;
  std::vector<ts::Bytes> sections;
  for (unsigned segment = 0; segment * kSegmentHours < 24; ++segment) {
    std::vector<ts::Event> events;
    for (unsigned hour = segment * kSegmentHours; hour < (segment + 1) * kSegmentHours; ++hour) {
      events.push_back(ProgrammeAt(service, service.first + hour * kHour));
    }
    sections.push_back(ts::Eit(kSchedule, Identity(service), events, {0, segment * kSegmentSections, kLast}));
  }
  return sections;
}

} // namespace lumio::sample
