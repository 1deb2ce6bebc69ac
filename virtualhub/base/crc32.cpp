#include "virtualhub/base/crc32.h"

#include <array>

namespace virtualhub {

namespace {

// Bytes that are taken at once.
constexpr std::size_t kStep = 8;

using Tables = std::array<std::array<std::uint32_t, 256>, kStep>;

// Table n has the checksum of each byte with n zero bytes after it.
Tables MakeTables() {
  Tables tables{};
  for (std::uint32_t i = 0; i < 256; ++i) {
    std::uint32_t value = i;
    for (int bit = 0; bit < 8; ++bit) {
      value = (value & 1) != 0 ? value >> 1 ^ 0xEDB88320u : value >> 1;
    }
    tables[0][i] = value;
  }
  for (std::size_t n = 1; n < kStep; ++n) {
    for (std::size_t i = 0; i < 256; ++i) {
      const std::uint32_t before = tables[n - 1][i];
      tables[n][i] = tables[0][before & 0xFF] ^ before >> 8;
    }
  }
  return tables;
}

}  // namespace

std::uint32_t Crc32(ByteView bytes, std::uint32_t previous) {
  static const Tables kTables = MakeTables();  // not in the file: they are larger than the code
  std::uint32_t value = ~previous;
  for (; bytes.size() >= kStep; bytes = bytes.subspan(kStep)) {
    const std::uint32_t first = value ^ LittleEndian32(bytes, 0), last = LittleEndian32(bytes, 4);
    value = kTables[7][first & 0xFF] ^ kTables[6][first >> 8 & 0xFF] ^
            kTables[5][first >> 16 & 0xFF] ^ kTables[4][first >> 24] ^ kTables[3][last & 0xFF] ^
            kTables[2][last >> 8 & 0xFF] ^ kTables[1][last >> 16 & 0xFF] ^ kTables[0][last >> 24];
  }
  for (const std::uint8_t byte : bytes) value = kTables[0][(value ^ byte) & 0xFF] ^ value >> 8;
  return ~value;
}

}  // namespace virtualhub
