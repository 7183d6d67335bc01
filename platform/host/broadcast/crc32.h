// The checksum at the end of a section.
#pragma once

#include <cstdint>

#include "bytes.h"

namespace lumio::broadcast {

// Over the whole section, including its checksum, the result is 0 if the checksum is right.
std::uint32_t Crc32(Bytes bytes);

} // namespace lumio::broadcast
