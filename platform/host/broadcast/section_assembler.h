// Assembles the sections of one PID.
#pragma once

#include <cstdint>
#include <vector>

#include "budget.h"
#include "bytes.h"
#include "crc32.h"

namespace lumio::broadcast {

constexpr std::size_t kSectionHeader = 3; // up to the length
constexpr std::size_t kLongestSection = 4096;
constexpr std::size_t kLongHeader = 8; // of a section with the long syntax
constexpr std::size_t kChecksumSize = 4;
constexpr std::uint8_t kStuffing = 0xff; // in place of a table_id: no more sections in this packet
constexpr std::uint8_t kTimeOffsetTable = 0x73;

// A complete section: as many bytes as its length field gives, at least three.
class Section {
public:
  explicit Section(Bytes bytes) : bytes_(bytes) {}

  Bytes Raw() const { return bytes_; }
  std::uint8_t TableId() const { return bytes_[0]; }
  // Whether it has table extension, version, numbers and checksum.
  bool IsLong() const { return (bytes_[1] & 0x80) != 0; }
  bool HasChecksum() const { return IsLong() || TableId() == kTimeOffsetTable; }
  // True if the section has no checksum.
  bool IsChecksumRight() const { return !HasChecksum() || (bytes_.size() >= LeastSize() && Crc32(bytes_) == 0); }

  // For a long section whose checksum is right.
  std::uint16_t Extension() const { return static_cast<std::uint16_t>(bytes_.Get16(3)); }
  std::uint8_t Version() const { return bytes_[5] >> 1 & 0x1f; }
  bool IsCurrent() const { return (bytes_[5] & 1) != 0; }
  std::uint8_t Number() const { return bytes_[6]; }
  std::uint8_t LastNumber() const { return bytes_[7]; }
  // The bytes between the header and the checksum.
  Bytes Body() const { return bytes_.First(bytes_.size() - kChecksumSize).From(kLongHeader); }
  std::uint32_t Checksum() const { return bytes_.Get32(bytes_.size() - kChecksumSize); }

private:
  std::size_t LeastSize() const { return (IsLong() ? kLongHeader : kSectionHeader) + kChecksumSize; }

  Bytes bytes_;
};

class SectionAssembler {
public:
  explicit SectionAssembler(Budget &budget) : budget_(budget) {}
  ~SectionAssembler() { Release(); }
  SectionAssembler(const SectionAssembler &) = delete;
  SectionAssembler &operator=(const SectionAssembler &) = delete;

  // Takes the payload of the next packet. Calls tell(Section) for each section that it completes.
  template <class Tell> void Push(Bytes payload, bool unit_start, Tell &&tell) {
    if (!unit_start) {
      // Some streams start a section after another one without a pointer to it.
      TellAll(Continue(payload, tell), tell);
      return;
    }
    if (payload.empty() || payload[0] >= payload.size()) {
      Drop(); // the first section would start after the packet's end
      return;
    }
    const std::size_t pointer = payload[0];
    Continue(payload.From(1).First(pointer), tell);
    Drop();
    TellAll(payload.From(1 + pointer), tell);
  }

  // Drops the unfinished section, because its continuation is missing.
  void Drop();

private:
  // 0 until the length has been read.
  static std::size_t SizeOf(Bytes section) {
    return section.size() < kSectionHeader ? 0 : kSectionHeader + (section.Get16(1) & 0xfff);
  }

  // Delivers the complete sections and keeps the beginning of the last one.
  template <class Tell> void TellAll(Bytes payload, Tell &&tell) {
    while (!payload.empty() && payload[0] != kStuffing) {
      const std::size_t size = SizeOf(payload);
      if (size == 0 || size > payload.size()) {
        Keep(payload);
        return;
      }
      tell(Section(payload.First(size)));
      payload = payload.From(size);
    }
  }

  // Continues the unfinished section. @return the bytes after its end
  template <class Tell> Bytes Continue(Bytes payload, Tell &&tell) {
    if (begun_.empty()) {
      return {};
    }
    // Reads the header's bytes first, because they contain the length.
    if (SizeOf(begun_) == 0) {
      const std::size_t missing = kSectionHeader - begun_.size();
      Keep(payload.First(missing));
      payload = payload.From(missing);
    }
    const std::size_t size = SizeOf(begun_);
    if (size == 0) {
      return {};
    }
    if (size > kLongestSection) {
      Drop();
      return {};
    }
    const std::size_t missing = size - begun_.size();
    Keep(payload.First(missing));
    if (begun_.size() < size) {
      return {};
    }
    tell(Section(Bytes(begun_)));
    Drop();
    return payload.From(missing);
  }

  void Keep(Bytes bytes);
  void Release();

  Budget &budget_;
  std::vector<std::uint8_t> begun_;
  bool counted_ = false; // whether its buffer counts in the budget
};

} // namespace lumio::broadcast
