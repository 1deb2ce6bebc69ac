// Talks to the hub named "hub" of the current machine in reports of channel 1 or 2.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <string>

#include "virtualhub/current_world.h"

namespace virtualhub::test {

inline const char* const kOneHub = R"({"devices": [{"name": "hub", "port": "3.1"}]})";

class HubBench : public ::testing::Test {
 protected:
  ~HubBench() override { UninstallWorld(); }

  void Install(const std::string& json) { world = &InstallWorld(json); }

  /// An output report of 321 bytes.
  static Bytes Report(const Bytes& header, const Bytes& data = {}, bool channel2 = false) {
    Bytes report(321, 0);
    report[0] = channel2 ? 0xF0 : 0x00;
    std::copy(header.begin(), header.end(), report.begin() + 1);
    std::copy(data.begin(), data.end(), report.begin() + (channel2 ? 64 : 65));
    return report;
  }

  Error Send(const Bytes& header, const Bytes& data = {}) {
    return world->SetOutputReport(world->HidInstance("hub"), Report(header, data)).error;
  }
  bool Sent(const Bytes& header, const Bytes& data = {}) {
    return Send(header, data) == Error::None;
  }

  /// The first `length` bytes of the answer; empty when either report fails.
  Bytes Ask(const Bytes& header, std::size_t length) {
    Bytes report(257, 0);
    if (!Sent(header)) return {};
    if (!world->GetInputReport(world->HidInstance("hub"), report).ok()) return {};
    return Bytes(report.begin() + 1, report.begin() + 1 + static_cast<std::ptrdiff_t>(length));
  }

  bool Enable(std::uint8_t value) { return Sent({0x40, 0x02, value, 0, 0x7C, 0x2E, 0, 0}); }
  Bytes Status() { return Ask({0xC0, 0x09, 0, 0, 0, 0, 20, 0}, 20); }
  bool WriteFlash(std::uint32_t address, const Bytes& data) {
    Bytes header = {0x40, 0xC8, 0, 0, 0, 0, static_cast<std::uint8_t>(data.size()), 0};
    PutLittleEndian32(header, 2, address);
    return Sent(header, data);
  }
  Bytes ReadFlash(std::uint32_t address, std::uint8_t length) {
    Bytes header = {0xC0, 0xD8, 0, 0, 0, 0, length, 0};
    PutLittleEndian32(header, 2, address);
    return Ask(header, length);
  }
  bool Erase() { return Sent({0x40, 0xE8, 0, 1, 0, 0, 0, 0}); }
  bool Validate() { return Sent({0x40, 0xD9, 1, 0, 0, 0, 0, 0}); }

  /// Resets and waits until the hub answers again.
  bool ResetToRom() { return Sent({0x40, 0x00, 0, 0, 0, 0, 0, 0}) && Pause(); }
  bool ResetToFlash() { return Sent({0x40, 0xE9, 1, 1, 0, 0, 0, 0}) && Pause(); }
  bool Pause() {
    world->SleepMs(2000);
    return world->HidInstance("hub") != 0;
  }

  /// Writes an image in chunks of 128 bytes, with enabling and erase, up to `end`.
  bool WriteImage(const Bytes& image, std::size_t end) {
    bool good = Enable(3) && Erase();
    for (std::size_t at = 0; good && at < end; at += 128) {
      const auto first = image.begin() + static_cast<std::ptrdiff_t>(at);
      const auto size = std::min<std::size_t>(128, end - at);
      good = WriteFlash(static_cast<std::uint32_t>(at),
                        Bytes(first, first + static_cast<std::ptrdiff_t>(size)));
    }
    return good;
  }
  bool WriteImage(const Bytes& image) { return WriteImage(image, image.size()); }

  /// Version and running code: "0102F" is 1.02 in flash code, "...R" ROM code.
  std::string State() {
    Enable(1);
    const Bytes status = Status();
    if (status.empty()) return "silent";
    char text[16];
    std::snprintf(text, sizeof(text), "%02X%02X%c", status[10], status[11],
                  (status[15] & 0x02) != 0 ? 'F' : 'R');
    return text;
  }

  World* world = nullptr;
};

}  // namespace virtualhub::test
