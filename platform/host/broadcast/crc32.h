// The checksum at the end of a section.
#pragma once

#include <cstdint>

#include "bytes.h"

namespace lumio::broadcast {

// Over the whole section, its checksum included, the result is 0 when the checksum is right.
std::uint32_t Crc32(Bytes bytes);

} // namespace lumio::broadcast
