#include "recorder.h"

#include <bitstream/dvb/si.h>
#include <bitstream/mpeg/psi.h>

#include <algorithm>

namespace lumio::broadcast {

namespace {

constexpr std::size_t kSdtHead = 3; // original_network_id and a reserved byte, before the services

// Makes a section with the head of `original` and this body, the only section of its table.
std::vector<std::uint8_t> OnlySection(const Section &original, Bytes head, Bytes entry) {
  std::vector<std::uint8_t> section = original.Raw().First(kLongHeader).Copy();
  section.insert(section.end(), head.begin(), head.end());
  section.insert(section.end(), entry.begin(), entry.end());
  section.resize(section.size() + kChecksumSize);
  psi_set_length(section.data(), static_cast<std::uint16_t>(section.size() - kSectionHeader));
  psi_set_section(section.data(), 0);
  psi_set_lastsection(section.data(), 0);
  psi_set_crc(section.data());
  return section;
}

bool IsOwnEit(std::uint8_t table_id) {
  constexpr std::uint8_t kLastOwnSchedule = 0x5f;
  return table_id == kEitPresentActualId || (table_id >= kEitFirstScheduleId && table_id <= kLastOwnSchedule);
}

} // namespace

Recorder::Recorder(std::uint16_t service, Sink sink) : service_(service), sink_(std::move(sink)) {
  for (const std::uint16_t pid : {kPatPid, kSdtPid, kEitPid}) {
    demultiplexer_.WantSections(pid, true);
  }
}

void Recorder::Push(const std::uint8_t *raw) {
  const Packet packet(raw);
  demultiplexer_.Push(packet);
  Route &route = routes_[packet.Pid()];
  if (route == Route::kNone) {
    return;
  }
  if (route == Route::kInterrupted) {
    route = Route::kStream;
    WriteInterruption(packet);
  }
  if (packet.Pid() == clock_pid_ && !packet.IsErroneous() && packet.HasPcr()) {
    time_.Clock(packet.Pcr(), packet.IsDiscontinuous());
  }
  sink_(raw);
}

void Recorder::Interrupt() {
  demultiplexer_.Interrupt();
  time_.Interrupt();
  std::replace(routes_.begin(), routes_.end(), Route::kStream, Route::kInterrupted);
}

void Recorder::OnSection(std::uint16_t pid, const Section &section) {
  if (!section.IsLong() || !section.IsChecksumRight() || !section.IsCurrent()) {
    return;
  }
  const std::uint8_t table_id = section.TableId();
  if (pid == kPatPid && table_id == kPatId) {
    return OnPat(section);
  }
  if (pmt_pid_ == kNullPid) {
    return; // the PAT comes first
  }
  const bool is_own = section.Extension() == service_;
  if (pid == kSdtPid && table_id == kSdtActualId) {
    OnSdt(section);
  } else if (is_own && pid == pmt_pid_ && table_id == kPmtId) {
    OnPmt(section);
  } else if (is_own && pid == kEitPid && IsOwnEit(table_id)) {
    WriteSection(pid, section.Raw().data());
  }
}

void Recorder::OnPat(const Section &section) {
  const Bytes body = section.Body();
  for (Bytes rest = body; rest.size() >= PAT_PROGRAM_SIZE; rest = rest.From(PAT_PROGRAM_SIZE)) {
    if (patn_get_program(rest.data()) != service_ || service_ == 0) {
      continue;
    }
    const std::uint16_t pid = patn_get_pid(rest.data());
    if (pid != pmt_pid_ && !IsTablePid(pid)) {
      ForgetStreams();
      if (pmt_pid_ != kNullPid) {
        demultiplexer_.WantSections(pmt_pid_, false);
      }
      pmt_pid_ = pid;
      demultiplexer_.WantSections(pid, true);
    }
    WriteSection(kPatPid, OnlySection(section, {}, rest.First(PAT_PROGRAM_SIZE)).data());
    return;
  }
}

void Recorder::OnPmt(const Section &section) {
  Pmt pmt;
  if (!ParsePmt(section, pmt)) {
    return;
  }
  std::array<Route, kPids> before = routes_;
  ForgetStreams();
  AddStream(pmt.pcr_pid);
  clock_pid_ = pmt.pcr_pid;
  for (const ElementaryStream &stream : pmt.streams) {
    AddStream(stream.pid);
  }
  for (unsigned pid = 0; pid < kPids; ++pid) {
    if (routes_[pid] != Route::kNone && before[pid] != Route::kNone) {
      routes_[pid] = before[pid];
    }
  }
  WriteSection(pmt_pid_, section.Raw().data());
}

void Recorder::OnSdt(const Section &section) {
  const Bytes body = section.Body();
  Bytes rest = body.From(kSdtHead);
  while (rest.size() >= SDT_SERVICE_SIZE) {
    const Bytes entry = rest.First(SDT_SERVICE_SIZE + sdtn_get_desclength(rest.data()));
    if (sdtn_get_sid(rest.data()) == service_) {
      WriteSection(kSdtPid, OnlySection(section, body.First(kSdtHead), entry).data());
      return;
    }
    rest = rest.From(entry.size());
  }
}

void Recorder::ForgetStreams() {
  routes_.fill(Route::kNone);
  clock_pid_ = kNullPid;
}

// Tables are recorded separately.
void Recorder::AddStream(std::uint16_t pid) {
  if (pid < kNullPid && !IsTablePid(pid) && pid != pmt_pid_) {
    routes_[pid] = Route::kStream;
  }
}

void Recorder::WriteSection(std::uint16_t pid, const std::uint8_t *section) {
  const std::uint16_t size = psi_get_length(section) + kSectionHeader;
  for (std::uint16_t written = 0; written < size;) {
    std::uint8_t packet[kPacketSize];
    std::uint8_t filled = 0;
    psi_split_section(packet, &filled, section, &written);
    psi_split_end(packet, &filled);
    ts_set_pid(packet, pid);
    ts_set_cc(packet, counters_[pid]++ & 0xf);
    sink_(packet);
  }
}

// A packet without payload, which announces that the counter and the clock of its PID restart.
void Recorder::WriteInterruption(const Packet &packet) {
  std::uint8_t announcement[kPacketSize];
  ts_init(announcement);
  ts_set_pid(announcement, packet.Pid());
  ts_set_cc(announcement, (packet.Counter() - (packet.HasPayload() ? 1 : 0)) & 0xf);
  ts_set_adaptation(announcement, kPacketSize - TS_HEADER_SIZE - 1);
  tsaf_set_discontinuity(announcement);
  sink_(announcement);
}

} // namespace lumio::broadcast
