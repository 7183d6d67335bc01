#include "crc32.h"

#include <array>
#include <tuple>
#include <utility>

namespace lumio::broadcast {

namespace {

constexpr std::uint32_t kPolynomial = 0x04c11db7; // most significant bit first

// Table k gives the effect of a byte on the checksum if k bytes follow it, so that sixteen bytes are processed at
// once.
using Tables = std::array<std::array<std::uint32_t, 256>, 16>;

constexpr Tables MakeTables() {
  Tables tables{};
  for (std::uint32_t byte = 0; byte < 256; ++byte) {
    std::uint32_t crc = byte << 24;
    for (int bit = 0; bit < 8; ++bit) {
      crc = (crc << 1) ^ ((crc >> 31) != 0 ? kPolynomial : 0);
    }
    tables[0][byte] = crc;
  }
  for (std::size_t k = 1; k < tables.size(); ++k) {
    for (std::uint32_t byte = 0; byte < 256; ++byte) {
      const std::uint32_t before = tables[k - 1][byte];
      tables[k][byte] = (before << 8) ^ tables[0][before >> 24];
    }
  }
  return tables;
}

constexpr Tables kTables = MakeTables();

constexpr std::size_t kStep = std::tuple_size_v<Tables>;

// The effect of all bytes of a step but the first four.
template <std::size_t... I> std::uint32_t EffectOfRest(const std::uint8_t *step, std::index_sequence<I...>) {
  return (kTables[kStep - 5 - I][step[4 + I]] ^ ...);
}

} // namespace

std::uint32_t Crc32(Bytes bytes) {
  std::uint32_t crc = 0xffffffff;
  for (; bytes.size() >= kStep; bytes = bytes.From(kStep)) {
    const std::uint32_t first = crc ^ bytes.Get32(0);
    crc = kTables[kStep - 1][first >> 24] ^ kTables[kStep - 2][first >> 16 & 0xff] ^
          kTables[kStep - 3][first >> 8 & 0xff] ^ kTables[kStep - 4][first & 0xff] ^
          EffectOfRest(bytes.data(), std::make_index_sequence<kStep - 4>());
  }
  for (const std::uint8_t byte : bytes) {
    crc = (crc << 8) ^ kTables[0][(crc >> 24) ^ byte];
  }
  return crc;
}

} // namespace lumio::broadcast
