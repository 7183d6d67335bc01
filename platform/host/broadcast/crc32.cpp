#include "crc32.h"

#include <array>

namespace lumio::broadcast {

namespace {

constexpr std::uint32_t kPolynomial = 0x04c11db7; // most significant bit first

// Table k gives the effect of a byte on the checksum if k bytes follow it, so that eight bytes are processed at once.
using Tables = std::array<std::array<std::uint32_t, 256>, 8>;

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

} // namespace

std::uint32_t Crc32(Bytes bytes) {
  std::uint32_t crc = 0xffffffff;
  std::size_t i = 0;
  for (; i + 8 <= bytes.size(); i += 8) {
    const std::uint32_t first = crc ^ bytes.Get32(i);
    crc = kTables[7][first >> 24] ^ kTables[6][first >> 16 & 0xff] ^ kTables[5][first >> 8 & 0xff] ^
          kTables[4][first & 0xff] ^ kTables[3][bytes[i + 4]] ^ kTables[2][bytes[i + 5]] ^ kTables[1][bytes[i + 6]] ^
          kTables[0][bytes[i + 7]];
  }
  for (; i < bytes.size(); ++i) {
    crc = (crc << 8) ^ kTables[0][(crc >> 24) ^ bytes[i]];
  }
  return crc;
}

} // namespace lumio::broadcast
