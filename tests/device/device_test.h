// Devices in front of a property object that records. Requests are compared as hexadecimal text.
#pragma once

#include <functional>
#include <span>

#include "device/hid_dev.h"
#include "discovery/node_matchers.h"
#include "support/layer_test.h"

namespace qzhid::test {

using Strings = std::vector<std::string>;

inline std::string HexText(std::span<const std::uint8_t> bytes) {
  std::string text;
  for (std::uint8_t byte : bytes) {
    if (!text.empty()) text += ' ';
    for (int digit : {byte / 16, byte % 16}) text += "0123456789ABCDEF"[digit];
  }
  return text;
}

/// Bytes that repeat in no simple pattern.
inline Bytes Image(std::size_t size) {
  Bytes image(size);
  for (std::size_t i = 0; i < size; ++i) image[i] = static_cast<std::uint8_t>(i * 7 + i / 253 + 1);
  return image;
}

inline Bytes Part(std::span<const std::uint8_t> bytes, std::size_t offset, std::size_t length) {
  const auto part = bytes.subspan(offset, length);
  return {part.begin(), part.end()};
}

/// A device that takes requests of any length and fails those whose bit is set in `failing` with
/// 31. It fills the buffers of IN requests, even of those that it fails.
class PropertyDouble final : public IPropertyEx {
 public:
  std::uint32_t Init() override { return 1; }
  std::uint32_t UnInit() override { return 1; }
  std::uint32_t Yv_CloseDevice() override { return ++closes; }
  std::uint32_t Yv_SendVDCmd(std::uint8_t type, std::uint8_t request, std::uint16_t value,
                             std::uint16_t index, std::uint8_t* data, std::uint32_t length,
                             std::uint32_t timeoutMs) override {
    const SetupPacket setup =
        MakeSetup(type, request, value, index, static_cast<std::uint16_t>(length));
    return Take(setup, " " + std::to_string(timeoutMs), type < 0x80, data, length);
  }
  std::uint32_t CtlPipeNoDataOut(const SetupPacket& setup) override {
    return Take(setup, "", true, nullptr, 0);
  }
  std::uint32_t CtlPipeOut(const PacketHeader& header, std::uint8_t* data) override {
    return Take(header, "", true, data, header[6] + header[7] * 256u);
  }
  std::uint32_t CtlPipeIn(const PacketHeader& header, std::uint8_t* data) override {
    return Take(header, "", false, data, header[6] + header[7] * 256u);
  }

  Strings sent;                        // setup packets; with the time-out if there is one
  std::string keys;                    // types and codes of the requests
  Bytes written;                       // all OUT data
  Bytes answer = Bytes(64, 0), flash;  // what IN requests deliver; what flash reads do
  std::uint64_t failing = 0;           // bit 0: the first request
  std::function<void(int)> onRequest;  // with the request's number, from 1
  std::uint32_t closes = 0;

 private:
  std::uint32_t Take(std::span<const std::uint8_t> setup, const std::string& timeout, bool isOut,
                     std::uint8_t* data, std::uint32_t length) {
    sent.push_back(HexText(setup) + timeout);
    keys += HexText(setup.first(1)) + HexText(setup.subspan(1, 1)) + " ";
    if (onRequest) onRequest(static_cast<int>(sent.size()));
    if (isOut) {
      written.insert(written.end(), data, data + length);
    } else {
      const bool isFlash = setup[0] == 0xC0 && setup[1] == 0xD8;
      const std::size_t from = isFlash ? setup[2] + setup[3] * 256u + setup[4] * 65536u : 0;
      const Bytes& source = isFlash ? flash : answer;
      std::copy_n(source.data() + from, std::min<std::size_t>(length, source.size() - from), data);
    }
    return sent.size() <= 64 && (failing >> (sent.size() - 1) & 1) != 0 ? 31 : 0;
  }
};

class DeviceTest : public LayerTest {
 protected:
  DeviceTest() { Renew(); }
  ~DeviceTest() override { CRequestCMD::Instance().SetProperty(nullptr); }

  void Renew(std::uint64_t failing = 0) {
    property = PropertyDouble();
    property.failing = failing;
    CRequestCMD::Instance().SetProperty(&property);
    ClearRecords();
  }

  /// What was logged under `tag`, or by all: level, blank and text of each line.
  std::string Said(const std::string& tag = "") const {
    std::string said;
    for (const LogLine& line : tag.empty() ? log.Lines() : Logged(tag)) {
      said += std::to_string(line.level) + " " + line.text;
    }
    return said;
  }

  PropertyDouble property;
  CUSBDev usb{NodeMatchers()};
  CHidDev hid{NodeMatchers()};
};

}  // namespace qzhid::test
