// The tables of a stream, read from sections whose checksum is right. Reading never leaves the bytes of the section,
// whatever lengths it contains; entries that do not fit are left out.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "programme.h"
#include "section_assembler.h"

namespace lumio::broadcast {

enum Pids : std::uint16_t {
  kPatPid = 0x00,
  kCatPid = 0x01,
  kTsdtPid = 0x02,
  kNitPid = 0x10,
  kSdtPid = 0x11,
  kEitPid = 0x12,
  kRstPid = 0x13,
  kTdtPid = 0x14,
  kRntPid = 0x16,
  kDitPid = 0x1e,
  kSitPid = 0x1f,
};

enum TableIds : std::uint8_t {
  kPatId = 0x00,
  kPmtId = 0x02,
  kDsmMessagesId = 0x3b, // DSI and DII
  kDsmBlocksId = 0x3c,   // DDB
  kSdtActualId = 0x42,
  kSdtOtherId = 0x46,
  kEitPresentActualId = 0x4e,
  kEitPresentOtherId = 0x4f,
  kEitFirstScheduleId = 0x50,
  kEitLastScheduleId = 0x6f,
  kTdtId = 0x70,
};

// Whether this PID carries sections in every stream.
bool IsTablePid(std::uint16_t pid);

struct PatEntry {
  std::uint16_t program; // 0 names the network's table
  std::uint16_t pid;
};

std::vector<PatEntry> ParsePat(const Section &section);

constexpr std::uint8_t kH264Type = 0x1b;

enum class StreamKind { kVideo, kAudio, kSubtitle, kTeletext, kCarousel, kSection, kOther };

const char *NameOf(StreamKind kind);
// Whether a stream of this type carries sections, not PES packets.
bool CarriesSections(std::uint8_t stream_type);

// A teletext page with subtitles.
struct TeletextPage {
  int language;
  int page; // as it is displayed, in hexadecimal digits: 0x888
};

struct ElementaryStream {
  std::uint16_t pid = 0;
  std::uint8_t type = 0;
  StreamKind kind = StreamKind::kOther;
  int component_tag = -1; // -1: none
  std::vector<TeletextPage> subtitle_pages;
  int line21_language[2] = {0, 0}; // of each field; 0: not known

  bool operator==(const ElementaryStream &other) const;
};

struct Pmt {
  std::uint16_t program = 0;
  std::uint8_t version = 0;
  std::uint32_t checksum = 0; // of its section
  std::uint16_t pcr_pid = kUnknownPid;
  std::vector<ElementaryStream> streams;

  static constexpr std::uint16_t kUnknownPid = 0xffff;
};

bool ParsePmt(const Section &section, Pmt &pmt);

struct SdtEntry {
  std::uint16_t service_id;
  std::string name;     // UTF-8
  std::string provider; // UTF-8
};

struct Sdt {
  std::uint16_t stream_id;  // transport_stream_id
  std::uint16_t network_id; // original_network_id
  std::vector<SdtEntry> services;
};

bool ParseSdt(const Section &section, Sdt &sdt);

struct Eit {
  std::uint64_t service; // original network, transport stream and service id, 16 bits each
  std::vector<Programme> programmes;
};

bool ParseEit(const Section &section, Eit &eit);

// A time of 40 bits (modified Julian date, then hours, minutes and seconds in decimal digits) in seconds since the
// epoch, UTC. Returns false if it is not a valid time.
bool ParseTime(Bytes bytes, std::int64_t &time);
// Hours, minutes and seconds in decimal digits. Returns false if they are not a valid duration.
bool ParseDuration(Bytes bytes, unsigned &seconds);
// Reads the time of a TDT or TOT.
bool ParseTdt(const Section &section, std::int64_t &time);

} // namespace lumio::broadcast
