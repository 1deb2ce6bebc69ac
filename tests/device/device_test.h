// Device objects that send their requests to a hub that takes anything and keeps it.
#pragma once

#include <functional>
#include <span>

#include "device/hid_dev.h"
#include "discovery/node_matchers.h"
#include "support/layer_test.h"

namespace qzhid::test {

using Lines = std::vector<LogLine>;

const std::string kStatusRequest = "C0 09 00 00 00 00 14 00";

/// Bytes that repeat in no simple pattern.
inline Bytes Pattern(std::size_t size) {
  Bytes bytes(size);
  for (std::size_t i = 0; i < size; ++i) bytes[i] = static_cast<std::uint8_t>(i * 7 + i / 253 + 1);
  return bytes;
}

inline Bytes Part(std::span<const std::uint8_t> bytes, std::size_t offset, std::size_t length) {
  const auto part = bytes.subspan(offset, length);
  return {part.begin(), part.end()};
}

/// Setup packets, each written in hexadecimal.
template <class... Texts>
std::vector<Bytes> Requests(const Texts&... texts) {
  return {Hex(texts)...};
}

/// Takes requests of any length and fails those whose bit is set in `failing` with 31. It fills the
/// buffers of IN requests, even of those that it fails.
class FakeHub final : public IPropertyEx {
 public:
  std::uint32_t Init() override { return 1; }
  std::uint32_t UnInit() override { return 1; }
  std::uint32_t Yv_CloseDevice() override { return ++closes; }
  std::uint32_t Yv_SendVDCmd(std::uint8_t type, std::uint8_t request, std::uint16_t value,
                             std::uint16_t index, std::uint8_t* data, std::uint32_t length,
                             std::uint32_t timeoutMs) override {
    lastTimeoutMs = timeoutMs;
    return Take(MakeSetup(type, request, value, index, length), type < 0x80, data, length);
  }
  std::uint32_t CtlPipeNoDataOut(const SetupPacket& setup) override {
    return Take(setup, true, nullptr, 0);
  }
  std::uint32_t CtlPipeOut(const PacketHeader& header, std::uint8_t* data) override {
    return Take(header, true, data, header[6] + header[7] * 256u);
  }
  std::uint32_t CtlPipeIn(const PacketHeader& header, std::uint8_t* data) override {
    return Take(header, false, data, header[6] + header[7] * 256u);
  }

  std::vector<Bytes> sent;                  // setup packets or headers
  Bytes written;                            // all OUT data
  Bytes answer = Bytes(64, 0), flash;       // what IN requests deliver; what flash reads do
  std::uint64_t failing = 0;                // bit 0: the first request
  std::function<void(std::size_t)> onSent;  // with the request's number, from 1
  std::uint32_t lastTimeoutMs = 0, closes = 0;

 private:
  std::uint32_t Take(std::span<const std::uint8_t> setup, bool isOut, std::uint8_t* data,
                     std::uint32_t length) {
    sent.emplace_back(setup.begin(), setup.end());
    if (onSent) onSent(sent.size());
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

  /// A new hub that fails these requests; nothing was logged or sent yet.
  void Renew(std::uint64_t failing = 0) {
    hub = FakeHub();
    hub.failing = failing;
    requests.SetProperty(&hub);
    ClearRecords();
  }

  /// The texts that were logged under that tag, one after the other.
  std::string LoggedText(const std::string& tag) const {
    std::string text;
    for (const LogLine& line : Logged(tag)) text += line.text;
    return text;
  }

  FakeHub hub;
  CUSBDev usb{NodeMatchers()};
  CHidDev hid{NodeMatchers()};
};

}  // namespace qzhid::test
