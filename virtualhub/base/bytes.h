// Byte sequences, and the little- and big-endian fields in them.
#pragma once

#include <concepts>
#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

namespace virtualhub {

using Bytes = std::vector<std::uint8_t>;
using ByteView = std::span<const std::uint8_t>;
using MutableBytes = std::span<std::uint8_t>;

/// 16-bit field at `offset`; the caller has checked that it lies inside.
constexpr std::uint16_t LittleEndian16(ByteView bytes, std::size_t offset) {
  return static_cast<std::uint16_t>(bytes[offset] | bytes[offset + 1] << 8);
}
constexpr std::uint16_t BigEndian16(ByteView bytes, std::size_t offset) {
  return static_cast<std::uint16_t>(bytes[offset] << 8 | bytes[offset + 1]);
}
constexpr std::uint32_t LittleEndian32(ByteView bytes, std::size_t offset) {
  return LittleEndian16(bytes, offset) |
         static_cast<std::uint32_t>(LittleEndian16(bytes, offset + 2)) << 16;
}
constexpr void PutBigEndian16(MutableBytes bytes, std::size_t offset, std::uint16_t value) {
  bytes[offset] = static_cast<std::uint8_t>(value >> 8);
  bytes[offset + 1] = static_cast<std::uint8_t>(value);
}
constexpr void PutLittleEndian32(MutableBytes bytes, std::size_t offset, std::uint32_t value) {
  for (std::size_t i = 0; i < 4; ++i) {
    bytes[offset + i] = static_cast<std::uint8_t>(value >> (8 * i));
  }
}

inline void Append(Bytes& bytes, ByteView more) {
  bytes.insert(bytes.end(), more.begin(), more.end());
}
template <std::unsigned_integral T>
void AppendLittleEndian(Bytes& bytes, T value) {
  for (std::size_t i = 0; i < sizeof(T); ++i) {
    bytes.push_back(static_cast<std::uint8_t>(value >> (8 * i)));
  }
}

/// Whether `length` bytes from `offset` lie inside `size` bytes.
constexpr bool Fits(std::size_t size, std::size_t offset, std::size_t length) {
  return offset <= size && length <= size - offset;
}

}  // namespace virtualhub
