#include "service_list.h"

#include <algorithm>

namespace lumio::broadcast {

namespace {

// Limits for hostile streams; a real one has dozens of services with a dozen streams each.
constexpr std::size_t kMostServices = 4096;
constexpr std::size_t kMostParts = 32768; // streams and teletext pages of all services

std::size_t PartsOf(const Pmt &pmt) {
  std::size_t parts = 0;
  for (const ElementaryStream &stream : pmt.streams) {
    parts += 1 + stream.subtitle_pages.size();
  }
  return parts;
}

} // namespace

bool ServiceList::Progress::Take(const Section &section, bool &completes) {
  if (section.Version() != version) {
    version = section.Version();
    seen.reset();
  }
  const std::uint8_t number = section.Number();
  if (seen[number] && checksums[number] == section.Checksum()) {
    return false;
  }
  if (seen[number]) { // the same version with other content, which the standard forbids
    seen.reset();
  }
  seen.set(number);
  checksums[number] = section.Checksum();
  completes = seen.count() == section.LastNumber() + std::size_t{1};
  complete = complete || completes;
  return true;
}

bool ServiceList::Push(std::uint16_t pid, const Section &section) {
  if (!section.IsLong() || !section.IsCurrent()) {
    return false;
  }
  switch (section.TableId()) {
  case kPatId:
    return pid == kPatPid && PushPat(section);
  case kPmtId:
    return PushPmt(pid, section);
  case kSdtActualId:
    return pid == kSdtPid && PushSdt(section);
  default:
    return false;
  }
}

bool ServiceList::PushPat(const Section &section) {
  const int version = pat_progress_.version;
  const bool was_complete = pat_progress_.complete;
  bool completes = false;
  if (!pat_progress_.Take(section, completes)) {
    return false;
  }
  if (version != pat_progress_.version || pat_progress_.seen.count() == 1) {
    pat_.clear();
  }
  stream_id_ = section.Extension();
  const std::vector<PatEntry> entries = ParsePat(section);
  pat_.insert(pat_.end(), entries.begin(), entries.end());
  // The first version counts even while it is incomplete. Later ones replace it once they are complete.
  if (completes) {
    RemoveUnlisted();
    AddServices(pat_);
  } else if (!was_complete) {
    AddServices(entries);
  }
  return true;
}

void ServiceList::RemoveUnlisted() {
  std::map<std::uint16_t, std::uint16_t> listed;
  for (const PatEntry &entry : pat_) {
    listed[entry.program] = entry.pid;
  }
  for (auto service = services_.begin(); service != services_.end();) {
    const auto entry = listed.find(service->first);
    const bool stays = entry != listed.end() && entry->second == service->second.pmt_pid;
    part_count_ -= stays ? 0 : PartsOf(service->second.pmt);
    service = stays ? std::next(service) : services_.erase(service);
  }
}

void ServiceList::AddServices(const std::vector<PatEntry> &entries) {
  for (const PatEntry &entry : entries) {
    if (entry.program == 0) {
      network_pid_ = entry.pid;
    } else if (services_.size() < kMostServices) {
      Service &service = services_[entry.program];
      service.id = entry.program;
      service.pmt_pid = entry.pid;
      Describe(service);
    }
  }
}

void ServiceList::Describe(Service &service) {
  const auto entry = sdt_.find(service.id);
  service.is_named = entry != sdt_.end();
  service.name = service.is_named ? entry->second.name : "";
  service.provider = service.is_named ? entry->second.provider : "";
}

bool ServiceList::HasRoomFor(const Pmt &pmt, const Service &service) {
  const std::size_t count = part_count_ - PartsOf(service.pmt) + PartsOf(pmt);
  if (count > kMostParts) {
    return false;
  }
  part_count_ = count;
  return true;
}

bool ServiceList::PushPmt(std::uint16_t pid, const Section &section) {
  const auto entry = services_.find(section.Extension());
  if (entry == services_.end() || entry->second.pmt_pid != pid) {
    return false;
  }
  Service &service = entry->second;
  if (service.has_pmt && service.pmt.checksum == section.Checksum()) {
    return false;
  }
  Pmt pmt;
  if (!ParsePmt(section, pmt) || !HasRoomFor(pmt, service)) {
    return false;
  }
  service.pmt = std::move(pmt);
  service.has_pmt = true;
  return true;
}

bool ServiceList::PushSdt(const Section &section) {
  const int version = sdt_progress_.version;
  const bool was_complete = sdt_progress_.complete;
  bool completes = false;
  Sdt sdt;
  if (!sdt_progress_.Take(section, completes) || !ParseSdt(section, sdt)) {
    return false;
  }
  if (version != sdt_progress_.version || sdt_progress_.seen.count() == 1) {
    sdt_.clear();
  }
  network_id_ = sdt.network_id;
  for (SdtEntry &entry : sdt.services) {
    if (sdt_.size() < kMostServices) {
      sdt_[entry.service_id] = entry;
    }
    const auto service = services_.find(entry.service_id);
    if (!was_complete && service != services_.end()) {
      Describe(service->second);
    }
  }
  if (completes) {
    for (auto &service : services_) {
      Describe(service.second);
    }
  }
  return true;
}

const Service *ServiceList::Find(std::uint16_t id) const {
  const auto service = services_.find(id);
  return service == services_.end() ? nullptr : &service->second;
}

bool ServiceList::IsComplete() const {
  return pat_progress_.complete && sdt_progress_.complete &&
         std::all_of(services_.begin(), services_.end(), [](const auto &entry) { return entry.second.has_pmt; });
}

} // namespace lumio::broadcast
