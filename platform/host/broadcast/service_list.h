// The services of a stream, from its PAT, PMTs and SDT.
#pragma once

#include <bitset>
#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "tables.h"

namespace lumio::broadcast {

struct Service {
  std::uint16_t id = 0;
  std::uint16_t pmt_pid = 0;
  bool has_pmt = false;
  Pmt pmt;
  bool is_named = false; // whether the SDT lists it
  std::string name;      // UTF-8
  std::string provider;  // UTF-8
};

class ServiceList {
public:
  // Takes a section whose checksum is right. Returns whether it changed anything.
  bool Push(std::uint16_t pid, const Section &section);

  // Sorted by id.
  const std::map<std::uint16_t, Service> &Services() const { return services_; }
  const Service *Find(std::uint16_t id) const;
  // Whether the PAT is known, and every PMT and name that it announces.
  bool IsComplete() const;
  // 0 if the PAT does not give it.
  std::uint16_t NetworkPid() const { return network_pid_; }
  // 16 bits each; 0 until a table gives them.
  std::uint16_t StreamId() const { return stream_id_; }
  std::uint16_t NetworkId() const { return network_id_; }
  // The id by which the platform names the service.
  std::uint64_t IdOf(std::uint16_t service) const {
    return std::uint64_t{network_id_} << 32 | std::uint64_t{stream_id_} << 16 | service;
  }

private:
  // Which sections of a table's version have been seen.
  struct Progress {
    int version = -1;
    std::uint32_t checksums[256] = {};
    std::bitset<256> seen;
    bool complete = false; // whether some version was complete

    // Returns whether the section is new. Sets `completes` if it completes the table.
    bool Take(const Section &section, bool &completes);
  };

  bool PushPat(const Section &section);
  bool PushPmt(std::uint16_t pid, const Section &section);
  bool PushSdt(const Section &section);
  void RemoveUnlisted();
  void AddServices(const std::vector<PatEntry> &entries);
  void Describe(Service &service);
  bool HasRoomFor(const Pmt &pmt, const Service &service);

  std::map<std::uint16_t, Service> services_;
  std::uint16_t network_pid_ = 0;
  std::uint16_t stream_id_ = 0;
  std::uint16_t network_id_ = 0;
  Progress pat_progress_;
  Progress sdt_progress_;
  std::vector<PatEntry> pat_;             // of the version that is being read
  std::map<std::uint16_t, SdtEntry> sdt_; // the same
  std::size_t part_count_ = 0;
};

} // namespace lumio::broadcast
