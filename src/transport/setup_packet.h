// USB setup packets and the longer headers that travel in their place.
#pragma once

#include <array>
#include <cstdint>

namespace qzhid {

/// Layout of a USB 2.0 setup packet (chapter 9.3): bmRequestType, bRequest, wValue, wIndex,
/// wLength, the 16-bit fields little-endian.
using SetupPacket = std::array<std::uint8_t, 8>;

/// A setup packet, with the data length in one byte (6), and three bytes for the hub's I2C master.
using PacketHeader = std::array<std::uint8_t, 11>;

/// Requests with this bit of bmRequestType set carry data from the device to the host.
inline constexpr std::uint8_t kDeviceToHost = 0x80;

constexpr std::uint8_t LowByte(std::uint32_t value) {
  return static_cast<std::uint8_t>(value & 0xFF);
}
constexpr std::uint8_t HighByte(std::uint32_t value) {
  return static_cast<std::uint8_t>((value >> 8) & 0xFF);
}

constexpr SetupPacket MakeSetup(std::uint8_t bmRequestType, std::uint8_t bRequest,
                                std::uint16_t wValue, std::uint16_t wIndex, std::uint32_t wLength) {
  return {bmRequestType,   bRequest,         LowByte(wValue),  HighByte(wValue),
          LowByte(wIndex), HighByte(wIndex), LowByte(wLength), HighByte(wLength)};
}

/// The eight-byte form of a header, its last three bytes zero.
constexpr PacketHeader ToHeader(const SetupPacket& setup) {
  PacketHeader header{};
  for (std::size_t i = 0; i < setup.size(); ++i) header[i] = setup[i];
  return header;
}

}  // namespace qzhid
