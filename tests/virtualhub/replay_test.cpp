// A device that repeats a capture, as the machine and a USB host see it.
#include <gmock/gmock.h>

#include "hub_bench.h"
#include "support/temp_file.h"
#include "virtualhub/bus/usb_device.h"

namespace virtualhub::test {

using ::testing::ElementsAre;

constexpr std::uint64_t kLatencyUs = 250;

/// Requests to a hub named "hub", which another device repeats then.
class ReplayTest : public HubBench {
 protected:
  /// Sends the requests at the times between them, in milliseconds.
  void Capture(std::initializer_list<std::string> requests, std::uint32_t pauseMs = 1000) {
    Install(R"({"capture": ")" + folder_.At("wire.pcapng") +
            R"(", "devices": [{"name": "hub", "port": "3.1", "timing": {"return_ms": 400}}]})");
    for (const std::string& request : requests) {
      Ask(request);
      machine->SleepMs(pauseMs);
    }
  }
  void Repeat(const std::string& more = "") {
    Install(
        R"({"record": true, "devices": [{"name": "hub", "kind": "replay", "port": "2", "capture": ")" +
        folder_.At("wire.pcapng") + "\"}]" + more + "}");
  }
  std::string Ask(const std::string& request) {
    if (Send(Hex(request)) != Error::None) return "stall";
    if (!request.starts_with("C0")) return "ok";
    Bytes answer;
    return Read(answer).ok() ? HexText(ByteView(answer).subspan(1, 6)) : "stall";
  }
  std::uint16_t Pid() {
    const auto hub = machine->OnBus("hub");
    return hub ? hub->ids.pid : std::uint16_t{0};
  }
  std::vector<std::string> Differences() {
    std::vector<std::string> texts;
    for (const Record& record : machine->recorder().Of(Record::Kind::Differs)) {
      texts.push_back(record.text);
    }
    return texts;
  }

  qzhid::test::ScratchFolder folder_;
};

TEST_F(ReplayTest, WhatWasSentGetsWhatWasAnsweredAfterTheSameTime) {
  Capture({kStatus, kEnable1, kStatus, kErase});
  Repeat();
  EXPECT_EQ("stall", Ask(kStatus)) << "as before the requests were enabled";
  EXPECT_EQ("ok", Ask(kEnable1));
  EXPECT_EQ("2E 7C 00 00 08 18", Ask(kStatus));
  EXPECT_EQ("stall", Ask(kErase));
  EXPECT_EQ(5 * kLatencyUs, machine->clock().NowUs());
  EXPECT_THAT(Differences(), ElementsAre());
}

TEST_F(ReplayTest, AReportThatDiffersStallsAndTheHubWaitsForTheRightOne) {
  Capture({kEnable1, kStatus});
  Repeat();
  EXPECT_EQ("stall", Ask(kEnable3));
  EXPECT_EQ("stall", Ask(kEnable3)) << "which is said once";
  EXPECT_EQ("ok", Ask(kEnable1));
  Bytes answer;
  EXPECT_EQ(Error::Stall, Read(answer).error);
  EXPECT_EQ("2E 7C 00 00 08 18", Ask(kStatus));
  EXPECT_EQ("stall", Ask(kStatus));
  // The hub arrives in 14 frames; a packet has 64 bytes before its report, whose ID is not there.
  EXPECT_THAT(Differences(),
              ElementsAre("the host sends 0x03 as byte 3 of the report, which is 0x01 in frame 15, "
                          "byte 66",
                          "the host reads a report, and sends one in frame 17",
                          "the capture ends with frame 20"));
}

TEST_F(ReplayTest, AHubResetsAsItDid) {
  Capture({kEnable1, kToRom, kEnable1, kStatus});
  Repeat();
  EXPECT_EQ("ok", Ask(kEnable1));
  EXPECT_EQ("ok", Ask(kToRom));
  machine->SleepMs(49);
  EXPECT_EQ(0x0818, Pid());
  machine->SleepMs(1);
  EXPECT_EQ(0, Pid()) << "it has left";
  machine->SleepMs(949);
  EXPECT_EQ(0, Pid());
  machine->SleepMs(1);
  EXPECT_EQ(0x0810, Pid());
  EXPECT_EQ("ok", Ask(kEnable1));
  EXPECT_EQ("2E 7C 00 00 08 10", Ask(kStatus));
}

TEST_F(ReplayTest, AHubThatIsUnpluggedGoesOnWhereItWas) {
  Capture({kEnable1, kStatus});
  Repeat();
  EXPECT_EQ("ok", Ask(kEnable1));
  machine->Unplug("hub", 10);
  machine->SleepMs(10);
  EXPECT_EQ("2E 7C 00 00 08 18", Ask(kStatus));
}

TEST_F(ReplayTest, FaultsStrike) {
  Capture({kEnable1, kToRom, kEnable1});
  Repeat(R"(, "faults": [{"on": "request", "request": "40/02", "action": "fail", "code": 5},
                         {"on": "reset", "action": "never_return"}])");
  EXPECT_EQ("stall", Ask(kEnable1));
  EXPECT_EQ("ok", Ask(kEnable1));
  EXPECT_EQ("ok", Ask(kToRom));
  machine->SleepMs(60'000);
  EXPECT_EQ(0, Pid());
}

TEST_F(ReplayTest, DescriptorsAreThoseOfTheCaptureInAnyOrder) {
  Capture({kEnable1});
  Repeat();
  UsbDevice device(*machine, *machine->OnBus("hub"));
  const auto get = [&](const std::string& setup) {
    Bytes answer;
    const Result result = device.Control(SetupPacket(Hex(setup)), {}, answer);
    return result.ok() ? HexText(answer) : "stall";
  };
  EXPECT_EQ("08 03 68 00 75 00 62 00", get("80 06 02 03 09 04 FF 00")) << "its name at that time";
  EXPECT_EQ("09 02", get("80 06 00 02 00 00 02 00"));
  EXPECT_EQ("12 01 00 02 00 00 00 40 7C 2E 18 08 00 01 01 02 00 01",
            get("80 06 00 01 00 00 12 00"));
  EXPECT_EQ("stall", get("80 06 07 03 09 04 FF 00"));
}

}  // namespace virtualhub::test
