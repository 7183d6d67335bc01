// A stream whose packets and checksums are right, with the fuzzer's input in them.
#pragma once

#include <algorithm>
#include <cstdint>
#include <iterator>

#include "bytes.h"
#include "transport_stream.h"

namespace fuzz {

using lumio::broadcast::Bytes;
using ts::operator+;

// Returns a section with a correct length and checksum, so that the reader accepts it.
inline ts::Bytes Mended(ts::Bytes section) {
  section.resize(std::clamp<std::size_t>(section.size(), 8, 4092));
  const std::size_t length = section.size() + 4 - 3;
  section[1] = static_cast<std::uint8_t>((section[1] & 0xf0) | length >> 8);
  section[2] = static_cast<std::uint8_t>(length);
  return section + ts::Be32(ts::Crc(section));
}

constexpr unsigned kPmt = 0x100, kVideo = 0x101, kH264 = 0x102, kTeletext = 0x103, kCarousel = 0x104;

// Reads the input as chunks of a kind, a length and bytes, and makes a section or a PES packet of each.
inline ts::Stream StreamOf(Bytes input) {
  constexpr unsigned kSectionPids[] = {0x00, 0x11, 0x12, 0x14, kPmt, kCarousel};
  constexpr unsigned kPesPids[] = {kVideo, kH264, kTeletext};
  ts::Stream stream;
  const ts::Bytes pages = ts::Descriptor(0x56, ts::Text("deu") + ts::Bytes{0x10, 0x88});
  stream.Section(0x00, ts::Pat(1, {{1, kPmt}}));
  stream.Section(kPmt, ts::Pmt(1, kVideo,
                               {{0x02, kVideo, {}},
                                {0x1b, kH264, {}},
                                {0x06, kTeletext, pages},
                                {0x0b, kCarousel, ts::Descriptor(0x52, {1})}}));
  std::uint64_t time = 0;
  while (input.size() > 3) {
    const unsigned kind = input[0];
    const std::size_t size = input.Get16(1) % 4096;
    const ts::Bytes chunk = input.From(3).First(size).Copy();
    input = input.From(3 + size);
    if (kind % 2 == 0) {
      stream.Section(kSectionPids[kind / 2 % std::size(kSectionPids)], Mended(chunk));
    } else {
      time += kind;
      stream.Pes(kPesPids[kind / 2 % std::size(kPesPids)], ts::Pes(kind > 127 ? 0xbd : 0xe0, {time, time}, chunk));
    }
  }
  return stream;
}

} // namespace fuzz
