#include "programmes.h"

#include <algorithm>
#include <functional>

namespace lumio::broadcast {

namespace {

constexpr std::size_t kMostSections = 32768;    // of a hostile stream; a week of fifty services has about 10,000
constexpr std::size_t kMostReferences = 262144; // the same

bool IsActual(std::uint8_t table_id) {
  return table_id == kEitPresentActualId || (table_id >= kEitFirstScheduleId && table_id < kEitFirstScheduleId + 0x10);
}

bool IsPresentFollowing(std::uint8_t table_id) {
  return table_id == kEitPresentActualId || table_id == kEitPresentOtherId;
}

} // namespace

std::size_t ProgrammePool::Hash::operator()(const Programme &programme) const {
  const std::hash<std::string> text;
  std::size_t hash = std::hash<std::uint64_t>()(programme.data.serviceId << 16 ^ programme.data.eventId);
  for (const std::size_t part :
       {text(programme.data.title), text(programme.data.description),
        std::hash<std::int64_t>()(programme.data.startTime), std::hash<unsigned>()(programme.data.duration)}) {
    hash = hash * 31 + part;
  }
  return hash;
}

const Programme *ProgrammePool::Keep(Programme &&programme) {
  const auto known = programmes_.find(programme);
  if (known != programmes_.end()) {
    return &*known;
  }
  constexpr std::size_t kNode = sizeof(Programme) + 4 * sizeof(void *);
  const std::size_t size = kNode + programme.data.title.capacity() + programme.data.description.capacity();
  if (size_ + size > largest_) {
    return nullptr;
  }
  size_ += size;
  return &*programmes_.insert(std::move(programme)).first;
}

std::vector<const Programme *> ServiceProgrammes::List() const {
  std::vector<const Programme *> list;
  const auto add = [&](const Programme *programme) {
    if (programme && programme->has_start) {
      list.push_back(programme);
    }
  };
  add(present_); // the present/following table has the latest data
  add(following_);
  for (const auto &[key, content] : sections_) {
    std::for_each(content.programmes.begin(), content.programmes.end(), add);
  }
  std::stable_sort(list.begin(), list.end(),
                   [](const Programme *a, const Programme *b) { return a->data.eventId < b->data.eventId; });
  list.erase(std::unique(list.begin(), list.end(),
                         [](const Programme *a, const Programme *b) { return a->data.eventId == b->data.eventId; }),
             list.end());
  std::sort(list.begin(), list.end(), [](const Programme *a, const Programme *b) {
    return std::tie(a->data.startTime, a->data.eventId) < std::tie(b->data.startTime, b->data.eventId);
  });
  return list;
}

const Programme *ServiceProgrammes::Find(std::uint16_t event_id) const {
  for (const Programme *programme : {present_, following_}) {
    if (programme && programme->data.eventId == event_id) {
      return programme;
    }
  }
  for (const auto &[key, content] : sections_) {
    for (const Programme *programme : content.programmes) {
      if (programme->data.eventId == event_id) {
        return programme;
      }
    }
  }
  return nullptr;
}

bool ServiceProgrammes::IsPresentFollowingComplete() const {
  for (const unsigned table_id : {kEitPresentActualId, kEitPresentOtherId}) {
    const auto first = sections_.find(static_cast<std::uint16_t>(table_id << 8));
    if (first != sections_.end() && (first->second.last_number == 0 || Has(table_id << 8 | 1))) {
      return true;
    }
  }
  return false;
}

// A schedule's sections come in segments of eight. The last ones of a segment may be left out.
bool ServiceProgrammes::IsTableComplete(const SectionContent &any, std::uint8_t table_id) const {
  for (unsigned number = 0; number <= any.last_number;) {
    const auto section = sections_.find(static_cast<std::uint16_t>(table_id << 8 | number));
    if (section == sections_.end()) {
      return false;
    }
    number = number < section->second.last_in_segment ? number + 1 : (number / 8 + 1) * 8;
  }
  return true;
}

bool ServiceProgrammes::IsScheduleComplete() const {
  for (const unsigned first : {+kEitFirstScheduleId, kEitFirstScheduleId + 0x10}) {
    const auto any = sections_.lower_bound(static_cast<std::uint16_t>(first << 8));
    if (any == sections_.end() || any->first >> 8 >= static_cast<int>(first) + 0x10) {
      continue;
    }
    for (unsigned table_id = first; table_id <= std::max<unsigned>(any->second.last_table_id, first); ++table_id) {
      const auto section = sections_.lower_bound(static_cast<std::uint16_t>(table_id << 8));
      if (section == sections_.end() || section->first >> 8 != static_cast<int>(table_id) ||
          !IsTableComplete(section->second, static_cast<std::uint8_t>(table_id))) {
        return false;
      }
    }
    return true;
  }
  return false;
}

bool ServiceProgrammes::Apply(const Section &section, std::vector<const Programme *> &&programmes) {
  const auto before = std::make_pair(present_, following_);
  const auto nth = [&](std::size_t i) { return i < programmes.size() ? programmes[i] : nullptr; };
  if (!IsPresentFollowing(section.TableId())) {
    std::vector<const Programme *> &kept = sections_[KeyOf(section)].programmes;
    kept.swap(programmes);
    return kept != programmes;
  }
  if (section.Number() == 0) {
    present_ = nth(0);
    following_ = section.LastNumber() > 0 ? following_ : nth(1); // some streams have both in one section
  } else if (section.Number() == 1) {
    following_ = nth(0);
  }
  return before != std::make_pair(present_, following_);
}

Programmes::Change Programmes::Push(const Section &section, std::uint64_t &service) {
  const std::uint8_t table_id = section.TableId();
  if (table_id < kEitPresentActualId || table_id > kEitLastScheduleId || !section.IsLong() || !section.IsCurrent() ||
      section.Body().size() < 6) {
    return Change::kNone;
  }
  const Bytes raw = section.Raw();
  service = std::uint64_t{raw.Get16(10)} << 32 | std::uint64_t{raw.Get16(8)} << 16 | section.Extension();
  if (!IsActual(table_id) && FindOwn(section.Extension()) && own_[section.Extension()] == service) {
    return Change::kNone; // another stream's table does not count for our own services
  }
  const auto known = services_.find(service);
  const bool is_new = known == services_.end() || !known->second.Has(section);
  if (is_new && section_count_ >= kMostSections) {
    return Change::kDropped;
  }
  section_count_ += is_new ? 1 : 0;
  return Apply(section, services_[service], service);
}

Programmes::Change Programmes::Apply(const Section &section, ServiceProgrammes &programmes, std::uint64_t service) {
  ServiceProgrammes::SectionContent &content = programmes.sections_[ServiceProgrammes::KeyOf(section)];
  if (content.version == section.Version() && content.checksum == section.Checksum()) {
    return Change::kNone;
  }
  Eit eit;
  ParseEit(section, eit);
  std::vector<const Programme *> kept;
  for (Programme &programme : eit.programmes) {
    const bool has_room = reference_count_ + kept.size() < kMostReferences;
    const Programme *same = has_room ? pool_.Keep(std::move(programme)) : nullptr;
    if (!same) {
      return Change::kDropped;
    }
    kept.push_back(same);
  }
  content.version = section.Version();
  content.checksum = section.Checksum();
  content.last_number = section.LastNumber();
  content.last_in_segment = section.Body()[4];
  content.last_table_id = section.Body()[5];
  reference_count_ = reference_count_ + kept.size() - content.programmes.size();
  if (IsActual(section.TableId())) {
    own_[section.Extension()] = service;
  }
  return programmes.Apply(section, std::move(kept)) ? Change::kChanged : Change::kNone;
}

const ServiceProgrammes *Programmes::Find(std::uint64_t service) const {
  const auto entry = services_.find(service);
  return entry == services_.end() ? nullptr : &entry->second;
}

const ServiceProgrammes *Programmes::FindOwn(std::uint16_t service_id) const {
  const auto entry = own_.find(service_id);
  return entry == own_.end() ? nullptr : Find(entry->second);
}

} // namespace lumio::broadcast
