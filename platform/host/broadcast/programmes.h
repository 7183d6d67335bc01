// The programmes of all services, from the EIT.
#pragma once

#include <cstdint>
#include <map>
#include <unordered_set>
#include <vector>

#include "tables.h"

namespace lumio::broadcast {

// Keeps each of several equal programmes once. What it keeps stays where it is until the pool is destroyed.
class ProgrammePool {
public:
  explicit ProgrammePool(std::size_t largest = kLargest) : largest_(largest) {} // bytes, about

  // Returns null if the pool would exceed its limit.
  const Programme *Keep(Programme &&programme);
  std::size_t Size() const { return size_; }

private:
  static constexpr std::size_t kLargest = std::size_t{16} << 20;

  struct Hash {
    std::size_t operator()(const Programme &programme) const;
  };

  std::unordered_set<Programme, Hash> programmes_;
  const std::size_t largest_;
  std::size_t size_ = 0;
};

// The programmes of one service.
class ServiceProgrammes {
public:
  const Programme *Present() const { return present_; }
  const Programme *Following() const { return following_; }
  // All known programmes, by start; each event once. Programmes without a start are left out.
  std::vector<const Programme *> List() const;
  const Programme *Find(std::uint16_t event_id) const;
  // Whether all announced sections are known.
  bool IsPresentFollowingComplete() const;
  bool IsScheduleComplete() const;

private:
  friend class Programmes;

  struct SectionContent {
    std::uint32_t checksum = 0;
    int version = -1;
    std::uint8_t last_number = 0;     // of the table's sections
    std::uint8_t last_in_segment = 0; // of its segment of eight sections
    std::uint8_t last_table_id = 0;   // of the schedule
    std::vector<const Programme *> programmes;
  };

  static std::uint16_t KeyOf(const Section &section) {
    return static_cast<std::uint16_t>(section.TableId() << 8 | section.Number());
  }
  bool Has(unsigned key) const { return sections_.count(static_cast<std::uint16_t>(key)) != 0; }
  bool IsTableComplete(const SectionContent &any, std::uint8_t table_id) const;
  bool Has(const Section &section) const { return sections_.count(KeyOf(section)) != 0; }
  // Returns whether the section changes anything.
  bool Apply(const Section &section, std::vector<const Programme *> &&programmes);

  const Programme *present_ = nullptr;
  const Programme *following_ = nullptr;
  std::map<std::uint16_t, SectionContent> sections_; // by table_id and number
};

class Programmes {
public:
  explicit Programmes(ProgrammePool &pool) : pool_(pool) {}

  enum class Change { kNone, kChanged, kDropped };
  // Takes a section of an EIT whose checksum is right. `service` receives the service whose programmes it changes. A
  // section is dropped if there is no room for it.
  Change Push(const Section &section, std::uint64_t &service);

  // Returns null if nothing is known about the service.
  const ServiceProgrammes *Find(std::uint64_t service) const;
  // The same for a service of this stream, whatever its network.
  const ServiceProgrammes *FindOwn(std::uint16_t service_id) const;

private:
  Change Apply(const Section &section, ServiceProgrammes &programmes, std::uint64_t service);

  ProgrammePool &pool_;
  std::map<std::uint64_t, ServiceProgrammes> services_;
  std::map<std::uint16_t, std::uint64_t> own_; // by service_id, from the actual stream's tables
  std::size_t section_count_ = 0;
  std::size_t reference_count_ = 0; // from sections to programmes
};

} // namespace lumio::broadcast
