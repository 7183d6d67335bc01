// The descriptors of a table.
#pragma once

#include <cstdint>

#include "bytes.h"

namespace lumio::broadcast {

enum DescriptorTag : std::uint8_t {
  kTagIso639Language = 0x0a,
  kTagCarouselIdentifier = 0x13,
  kTagVbiTeletext = 0x46,
  kTagService = 0x48,
  kTagShortEvent = 0x4d,
  kTagExtendedEvent = 0x4e,
  kTagStreamIdentifier = 0x52,
  kTagTeletext = 0x56,
  kTagSubtitling = 0x59,
  kTagDataBroadcastId = 0x66,
  kTagAc3 = 0x6a,
  kTagEnhancedAc3 = 0x7a,
  kTagDts = 0x7b,
  kTagAac = 0x7c,
  kTagExtension = 0x7f,
  kTagCaptionService = 0x86,
};

// Takes `count` bytes from the front of `bytes`, or as many as there are.
inline Bytes TakeFront(Bytes &bytes, std::size_t count) {
  const Bytes front = bytes.First(count);
  bytes = bytes.From(count);
  return front;
}

// Calls each(tag, content) for every complete descriptor.
template <class Each> void ForEachDescriptor(Bytes loop, Each each) {
  while (loop.size() >= 2 && loop.size() - 2 >= loop[1]) {
    const std::uint8_t tag = loop[0];
    const std::size_t length = loop[1];
    loop = loop.From(2);
    each(tag, TakeFront(loop, length));
  }
}

// A field of 12 bits: the number of bytes that follow.
inline std::size_t Length12(Bytes bytes, std::size_t i) { return bytes.Get16(i) & 0xfff; }

// Three letters of a language, the last one lowest.
inline int LanguageOf(Bytes bytes) { return bytes[0] << 16 | bytes[1] << 8 | bytes[2]; }

} // namespace lumio::broadcast
