// Talks to the hub named "hub" of the current machine on report channel 1. Requests are written as
// they travel: the setup packet in hexadecimal and, after a colon, the data.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <sstream>
#include <string>

#include "virtualhub/bus/current_machine.h"

namespace virtualhub::test {

inline Bytes FromHex(const std::string& text) {
  std::istringstream stream(text);
  Bytes bytes;
  for (unsigned byte = 0; stream >> std::hex >> byte;) {
    bytes.push_back(static_cast<std::uint8_t>(byte));
  }
  return bytes;
}

inline std::string Hex(ByteView bytes) {
  std::string text;
  for (const std::uint8_t byte : bytes) {
    if (!text.empty()) text += ' ';
    for (const int digit : {byte / 16, byte % 16}) text += "0123456789ABCDEF"[digit];
  }
  return text;
}

/// A scenario of one hub at port 3.1 with more members.
inline std::string OneHub(const std::string& members = R"("plugged": true)") {
  return R"({"devices": [{"name": "hub", "port": "3.1", )" + members + "}]}";
}

inline const char* const kStatus = "C0 09 0 0 0 0 14 0";
inline const char* const kErase = "40 E8 0 1 0 0 0 0";

class HubBench : public ::testing::Test {
 protected:
  ~HubBench() override { UninstallMachine(); }

  void Install(const std::string& json) { machine = &InstallMachine(json); }

  /// Sends an output report of 321 bytes.
  Error Send(const Bytes& header, const Bytes& data = {}) {
    Bytes report(321, 0);
    std::copy(header.begin(), header.end(), report.begin() + 1);
    std::copy(data.begin(), data.end(), report.begin() + 65);
    return machine->SetOutputReport(HubNode(), report).error;
  }
  /// Takes the answer: the report ID and 256 bytes.
  Result Take(Bytes& answer) {
    answer.assign(257, 0);
    return machine->GetInputReport(HubNode(), answer);
  }
  HidNode HubNode() {
    const auto hub = machine->OnBus("hub");
    return hub ? hub->hid : HidNode{};
  }

  /// What the hub does with a request: "ok", the bytes of its answer in hexadecimal, or an error.
  std::string Ask(const std::string& request) {
    const std::string withColon = request + ":";
    const std::size_t colon = withColon.find(':');
    const Bytes setup = FromHex(withColon.substr(0, colon));
    const bool isOut = setup[0] < 0x80 && setup[1] != 0xD6;
    Error error = Send(setup, FromHex(withColon.substr(colon + 1)));
    Bytes answer;
    if (error == Error::None && !isOut) error = Take(answer).error;
    if (error != Error::None) {
      return error == Error::Stall ? "stall" : error == Error::Gone ? "gone" : "failed";
    }
    return isOut ? "ok" : Hex(ByteView(answer).subspan(1, setup[6]));
  }
  bool Ok(const std::string& request) { return Ask(request) == "ok"; }
  /// Requests in turn, each with what must come of it.
  void Expect(const std::vector<std::pair<std::string, std::string>>& requests) {
    for (const auto& [request, outcome] : requests) EXPECT_EQ(outcome, Ask(request)) << request;
  }

  bool Enable(int value) { return Ok("40 02 " + std::to_string(value) + " 0 7C 2E 0 0"); }

  /// Resets and waits until the hub answers again.
  bool ResetToRom() { return Ok("40 00 0 0 0 0 0 0") && Pause(); }
  bool ResetToFlash() { return Ok("40 E9 1 1 0 0 0 0") && Pause(); }
  bool Pause() {
    machine->SleepMs(2000);
    return machine->HidInstance("hub") != 0;
  }

  /// Writes the bytes from `at` to `end` in chunks of 128, with enabling and erase.
  bool WriteImage(const Bytes& image, std::size_t end = 0x9000, std::size_t at = 0) {
    bool good = Enable(3) && Ok(kErase);
    for (; good && at < end; at += 128) {
      const ByteView chunk = ByteView(image).subspan(at, std::min<std::size_t>(128, end - at));
      Bytes header{0x40, 0xC8, 0, 0, 0, 0, static_cast<std::uint8_t>(chunk.size()), 0};
      PutLittleEndian32(header, 2, static_cast<std::uint32_t>(at));
      good = Send(header, {chunk.begin(), chunk.end()}) == Error::None;
    }
    return good;
  }

  /// Running code and version, such as "flash 01 02".
  std::string State() {
    Bytes version(2);
    PutBigEndian16(version, 0, machine->hub("hub").Identity().version);
    return (machine->hub("hub").code() == Code::Flash ? "flash " : "rom ") + Hex(version);
  }

  Machine* machine = nullptr;
};

}  // namespace virtualhub::test
