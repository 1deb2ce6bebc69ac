#include "virtualhub/base/crc32.h"

#include <array>

namespace virtualhub {

namespace {

constexpr std::array<std::uint32_t, 256> MakeTable() {
  std::array<std::uint32_t, 256> table{};
  for (std::uint32_t i = 0; i < table.size(); ++i) {
    std::uint32_t value = i;
    for (int bit = 0; bit < 8; ++bit) {
      value = (value & 1) != 0 ? value >> 1 ^ 0xEDB88320u : value >> 1;
    }
    table[i] = value;
  }
  return table;
}
constexpr auto kTable = MakeTable();

}  // namespace

std::uint32_t Crc32(ByteView bytes, std::uint32_t previous) {
  std::uint32_t value = ~previous;
  for (const std::uint8_t byte : bytes) value = kTable[(value ^ byte) & 0xFF] ^ value >> 8;
  return ~value;
}

}  // namespace virtualhub
