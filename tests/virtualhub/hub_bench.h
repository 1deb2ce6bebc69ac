// Talks to the hub named "hub" of the current machine on report channel 1. Requests are written as
// they travel: the setup packet in hexadecimal and, after a colon, the data.
#pragma once

#include <gtest/gtest.h>

#include <string>

#include "support/bytes.h"
#include "virtualhub/bus/current_machine.h"

namespace virtualhub::test {

using qzhid::test::Hex;

inline std::string HexText(ByteView bytes) {
  std::string text;
  for (const std::uint8_t byte : bytes) {
    if (!text.empty()) text += ' ';
    for (const int digit : {byte / 16, byte % 16}) text += "0123456789ABCDEF"[digit];
  }
  return text;
}

/// What comes of each step, with commas between.
template <typename Outcome>
std::string InTurn(std::initializer_list<std::string> steps, Outcome outcome) {
  std::string all;
  for (const std::string& step : steps) all += (all.empty() ? "" : ", ") + outcome(step);
  return all;
}

/// A scenario of one hub at port 3.1 with more members.
inline std::string OneHub(const std::string& members = R"("plugged": true)") {
  return R"({"devices": [{"name": "hub", "port": "3.1", )" + members + "}]}";
}

inline const std::string kEnable1 = "40 02 1 0 7C 2E 0 0", kEnable3 = "40 02 3 0 7C 2E 0 0";
inline const std::string kStatus = "C0 09 0 0 0 0 14 0", kErase = "40 E8 0 1 0 0 0 0";
inline const std::string kToRom = "40 00 0 0 0 0 0 0", kToFlash = "40 E9 1 1 0 0 0 0";

class HubBench : public ::testing::Test {
 protected:
  ~HubBench() override { UninstallMachine(); }

  void Install(const std::string& json) { machine = &InstallMachine(json); }
  HidNode HubNode() {
    const auto hub = machine->OnBus("hub");
    return hub ? hub->hid : HidNode{};
  }

  Error Send(const Bytes& header, const Bytes& data = {}) {
    return machine->SetOutputReport(HubNode(), qzhid::test::Report(1, header, data)).error;
  }
  /// Reads the answer: the report ID and 256 bytes.
  Result Read(Bytes& answer) {
    answer.assign(257, 0);
    return machine->GetInputReport(HubNode(), answer);
  }
  /// What the hub does with a request: "ok", the bytes of its answer in hexadecimal, or an error.
  std::string Ask(const std::string& request) {
    const std::size_t colon = std::min(request.find(':'), request.size());
    const Bytes setup = Hex(request.substr(0, colon));
    const bool isOut = setup[0] < 0x80 && setup[1] != 0xD6;
    Bytes answer;
    Error error = Send(setup, isOut ? Hex(request.substr(colon).erase(0, 1)) : Bytes());
    if (error == Error::None && !isOut) error = Read(answer).error;
    if (error == Error::Stall) return "stall";
    if (error != Error::None) return error == Error::Gone ? "gone" : "failed";
    return isOut ? "ok" : HexText(ByteView(answer).subspan(1, setup[6]));
  }
  /// The same for requests in turn: "ok, 00 1F, stall".
  std::string Ask(std::initializer_list<std::string> requests) {
    return InTurn(requests, [this](const std::string& request) { return Ask(request); });
  }

  /// Requests a reset and waits; whether the hub is back then.
  bool Reset(const std::string& request) { return Ask(request) == "ok" && Pause(); }
  bool Pause() {
    machine->SleepMs(2000);
    return machine->OnBus("hub").has_value();
  }

  /// Enables writing, erases, and writes the bytes from `at` to `end` in chunks of 128.
  void WriteImage(const Bytes& image, std::size_t end = 0x9000, std::size_t at = 0) {
    ASSERT_EQ("ok, ok", Ask({kEnable3, kErase}));
    for (; at < end; at += 128) {
      const ByteView chunk = ByteView(image).subspan(at, std::min<std::size_t>(128, end - at));
      Bytes header{0x40, 0xC8, 0, 0, 0, 0, static_cast<std::uint8_t>(chunk.size()), 0};
      PutLittleEndian32(header, 2, static_cast<std::uint32_t>(at));
      ASSERT_EQ(Error::None, Send(header, {chunk.begin(), chunk.end()})) << at;
    }
  }
  /// The code that runs and its version, such as "flash 01 02".
  std::string State() {
    Bytes version(2);
    PutBigEndian16(version, 0, machine->hub("hub").Identity().version);
    return (machine->hub("hub").code() == Code::Flash ? "flash " : "rom ") + HexText(version);
  }

  Machine* machine = nullptr;
};

}  // namespace virtualhub::test
