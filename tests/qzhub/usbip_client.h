// What a USB/IP client sends and reads. Everything is written as it travels, in hexadecimal.
#pragma once

#include "qzhub/usbip_wire.h"
#include "virtualhub/hub_bench.h"

namespace qzhub::test {

using virtualhub::test::FromHex;
using virtualhub::test::Hex;

inline const std::string kList = "01 11 80 05 00 00 00 00";
inline const std::string kImport = "01 11 80 03 00 00 00 00";
inline const std::string kGetDeviceStatus = "80 00 00 00 00 00 02 00";
inline const std::string kSetReport = "21 09 00 02 00 00 40 01";

inline Bytes operator+(Bytes left, const Bytes& right) {
  left.insert(left.end(), right.begin(), right.end());
  return left;
}

inline Bytes Word(std::uint32_t value) {
  Bytes word;
  for (int shift = 24; shift >= 0; shift -= 8) {
    word.push_back(static_cast<std::uint8_t>(value >> shift));
  }
  return word;
}

inline Bytes ImportRequest(const std::string& busid) {
  Bytes field(busid.begin(), busid.end());
  field.resize(kBusidSize);
  return FromHex(kImport) + field;
}

inline constexpr std::uint32_t kDevid = 0x00010001;

/// A control transfer; `data` is what follows the command.
inline Bytes Submit(std::uint32_t sequence, const std::string& setup, const Bytes& data = {},
                    std::uint32_t devid = kDevid) {
  const Bytes packet = FromHex(setup);
  const std::uint32_t in = packet[0] >> 7, length = virtualhub::LittleEndian16(packet, 6);
  return Word(1) + Word(sequence) + Word(devid) + Word(in) + Word(0) + Word(0) + Word(length) +
         Word(0) + Word(~0u) + Word(0) + packet + data;
}
/// An output report of 321 bytes that carries a vendor request.
inline Bytes SubmitRequest(std::uint32_t sequence, const std::string& request) {
  Bytes report = FromHex(request);
  report.resize(320);
  return Submit(sequence, kSetReport, report);
}
inline Bytes SubmitInterrupt(std::uint32_t sequence) {
  return Word(1) + Word(sequence) + Word(kDevid) + Word(1) + Word(1) + Word(0) + Word(256) +
         Word(0) + Word(0) + Word(4) + Bytes(8);
}
inline Bytes UnlinkCommand(std::uint32_t sequence, std::uint32_t victim) {
  return Word(2) + Word(sequence) + Word(kDevid) + Bytes(8) + Word(victim) + Bytes(24);
}

/// An answer in words: "1: 0 01 00" (a transfer's sequence number, status and data) or
/// "unlink 2: -104".
inline std::string Describe(ByteView message) {
  const auto word = [&](std::size_t at) {
    return virtualhub::BigEndian16(message, at) * 0x10000u +
           virtualhub::BigEndian16(message, at + 2);
  };
  const std::string text =
      std::to_string(word(4)) + ": " + std::to_string(static_cast<std::int32_t>(word(20)));
  if (word(0) == 4) return "unlink " + text;
  if (word(0) != 3) return "not an answer";
  return text + (message.size() > kCommandSize ? " " + Hex(message.subspan(kCommandSize)) : "");
}

}  // namespace qzhub::test
