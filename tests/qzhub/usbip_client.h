// What a USB/IP client sends and reads. Everything is written as it travels, in hexadecimal.
#pragma once

#include "link_bench.h"
#include "qzhub/usbip_wire.h"

namespace qzhub::test {

inline constexpr std::uint32_t kDevid = 0x00010001;

inline Bytes Words(std::initializer_list<std::uint32_t> words) {
  Bytes bytes(4 * words.size());
  for (std::size_t i = 0; i < bytes.size(); ++i) {
    bytes[i] = static_cast<std::uint8_t>(words.begin()[i / 4] >> (24 - i % 4 * 8));
  }
  return bytes;
}

/// A control transfer; `data` is what follows the command.
inline Bytes Submit(std::uint32_t sequence, const std::string& setup, const Bytes& data = {},
                    std::uint32_t devid = kDevid) {
  const Bytes packet = Hex(setup);
  const std::uint32_t in = packet[0] >> 7, length = virtualhub::LittleEndian16(packet, 6);
  return Words({1, sequence, devid, in, 0, 0, length, 0, ~0u, 0}) + packet + data;
}
/// An output report of 321 bytes that carries a vendor request.
inline Bytes SubmitRequest(std::uint32_t sequence, const std::string& request) {
  Bytes report = Hex(request);
  report.resize(320);
  return Submit(sequence, "21 09 00 02 00 00 40 01", report);
}
/// A transfer of the interrupt endpoint; out if there is data.
inline Bytes SubmitInterrupt(std::uint32_t sequence, const Bytes& data = {}) {
  const auto length = static_cast<std::uint32_t>(data.size());
  return Words({1, sequence, kDevid, data.empty() ? 1u : 0u, 1, 0, length, 0, 0, 4, 0, 0}) + data;
}
inline Bytes UnlinkCommand(std::uint32_t sequence, std::uint32_t victim) {
  return Words({2, sequence, kDevid, 0, 0, victim, 0, 0, 0, 0, 0, 0});
}

/// An answer in words: "1: 0 01 00" (a transfer's sequence number, status and data) or
/// "unlink 2: -104".
inline std::string Describe(ByteView message) {
  const auto word = [&](std::size_t at) {
    return virtualhub::BigEndian16(message, at) << 16 | virtualhub::BigEndian16(message, at + 2);
  };
  const std::string text = std::to_string(word(4)) + ": " + std::to_string(word(20));
  if (word(0) == 4) return "unlink " + text;
  if (word(0) != 3) return "not an answer";
  return text + (message.size() > kCommandSize ? " " + HexText(message.subspan(kCommandSize)) : "");
}

}  // namespace qzhub::test
