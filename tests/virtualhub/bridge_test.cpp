// What is behind the hub: I2C targets, the bridge flash, GPIO lines; and the tunnel itself.
#include "hub_bench.h"

namespace virtualhub::test {

namespace {

using TunnelTest = HubBench;

class BridgeTest : public HubBench {
 protected:
  BridgeTest() {
    Install(OneHub(R"("gpio_high": [23], "bridge_flash": {"busy_polls": 1}, "i2c": [
        {"kind": "eeprom", "address": "0xA0", "size": 256, "page_size": 16},
        {"kind": "eeprom", "address": "0xA2", "address_bytes": 5},
        {"kind": "block", "address": "0x42", "busy_polls": 2},
        {"kind": "block", "address": "0x43", "final_status": 3}])"));
  }
};

TEST_F(BridgeTest, EepromPagesAndAddresses) {
  Expect({{"40 C6 1E 0 0 0 3 0 A0 2 81: 1 2 3", "ok"},
          {"40 D6 10 0 0 0 2 0 A0 2 82", "03 FF"},     // a write wraps in its page
          {"C0 D6 1E 0 0 0 3 0 A0 2 82", "01 02 FF"},  // a read goes on
          {"40 D6 0 0 0 0 1 0 A0 0 82", "FF"},         // without an address at 0x21
          {"40 C6 34 12 0 0 1 0 A2 5 81: 7", "ok"},
          {"40 C6 0 0 0 0 1 0 A4 2 81: 1", "failed"},    // nobody there
          {"40 C6 0 0 0 0 1 0 A0 1 81: 1", "failed"},    // wrong number of address bytes
          {"40 C6 0 0 0 0 1 0 A2 6 81: 1", "failed"},    // more than there can be
          {"40 C6 0 0 0 0 1 0 A0 2 01: 1", "failed"},    // not configured
          {"40 C6 0 0 0 0 1 0 A0 2 83: 1", "failed"}});  // no such speed
  EXPECT_EQ(2, world->hub("hub").eeprom(0xA0)->memory()[0x1F]);
  EXPECT_EQ(7, world->hub("hub").eeprom(0xA2)->memory()[0x1234]);
}

TEST_F(BridgeTest, BlockCommandsFillAndFetch) {
  const std::string status = "40 D6 0 0 0 0 1 0 42 0 82", fetch = "40 D6 80 0 0 0 5 0 42 1 82";
  Expect({{status, "01"},  // idle
          {"40 C6 0 0 0 0 7 0 42 0 82: 6 5 10 2 2 AB CD", "ok"},
          {status, "00"},
          {status, "00"},
          {status, "01"},
          {"40 C6 0 0 0 0 5 0 42 0 82: 3 3 0F 2 3", "ok"},
          {fetch, "03 FF AB CD 00"},
          {"40 C6 0 0 0 0 4 0 42 0 82: 10 4 10 2", "ok"},  // announces four bytes, sends two
          {fetch, "3B AB CD FF FF"},
          {"40 C6 0 0 0 0 7 0 42 0 82: 6 4 0 0 2 1 2", "failed"},  // wrong count
          {"40 C6 0 0 0 0 2 0 42 0 82: 8 0", "failed"},            // unknown command
          {"40 C6 0 0 0 0 5 0 43 0 82: 5 3 0 0 0", "ok"},
          {"40 D6 0 0 0 0 1 0 43 0 82", "03"},  // the error that was asked for
          {"40 DC 42 7 0 0 5 0: 20 0 0 1 77", "ok"},
          {"C0 EC 42 27 20 0 2 0", "77 FF"},
          {"40 DC A0 7 0 0 5 0: 0 0 0 1 0", "failed"}});  // an EEPROM
  EXPECT_EQ("06 03 10 07 27", Hex(world->hub("hub").blockTarget(0x42)->commands()));
}

TEST_F(BridgeTest, BridgeFlashIsBusyAfterEachWrite) {
  const ByteView memory = world->hub("hub").bridgeFlash().memory();
  const std::string status = "C0 F3 0 0 0 0 1 0";
  Expect({{"40 F1 56 34 2 0 2 0: 0F F0", "ok"},
          {"00 CF 56 34 2 0 1 0: 0", "failed"},  // busy
          {status, "01"},
          {status, "00"},
          {"00 CF 56 34 2 0 1 0: F8", "ok"},
          {status, "01"}});
  EXPECT_EQ("08 F0 FF", Hex(memory.subspan(0x23456, 3)));
  Expect({{"40 F4 0 0 0 0 0 0", "ok"}, {"40 F1 0 0 10 0 1 0: 0", "failed"}});  // behind the end
  EXPECT_EQ(0xFF, memory[0x23456]);
}

TEST_F(BridgeTest, GpioAndSettings) {
  Expect({{"C0 04 0 17 0 0 2 0", "01 00"},  // set in the scenario
          {"40 0C 0 17 0 0 0 0", "ok"},
          {"C0 04 0 17 0 0 2 0", "00 00"},
          {"40 04 1 1 5 0 0 0", "ok"},
          {"C0 04 0 5 0 0 2 0", "01 00"},
          {"40 06 1 0 0 0 0 0", "ok"},
          {"40 08 2 50 0 0 0 0", "ok"},
          {"40 F6 4 A0 82 80 0 0", "ok"}});
  const Hub& hub = world->hub("hub");
  EXPECT_TRUE(hub.highClock());
  EXPECT_EQ(0x5002, hub.downloadSlave());
  EXPECT_EQ("04 A0 82", Hex(hub.i2cSetting()));
  for (const char* refused :
       {"C0 04 0 18 0 0 1 0", "C0 04 5 0 0 0 1 0", "40 0C 0 18 0 1 0 0", "40 0C 0 2 1 0 0 0",
        "40 04 0 1 5 0 0 0", "40 04 1 1 18 0 0 0", "40 77 0 0 0 0 0 0", "40 00 0 0 0 0 1 0",
        "40 E9 1 0 0 0 0 0", "40 06 2 0 0 0 0 0"}) {
    EXPECT_EQ(Error::Stall, Send(FromHex(refused))) << refused;
  }
}

TEST_F(BridgeTest, RawBlocksArriveWhole) {
  Bytes block(64, 0xA5);
  block[0] = 0x40;
  block[1] = 0xF2;
  EXPECT_EQ(Error::None, Send(block));
  EXPECT_EQ(block, world->hub("hub").rawBlock());
  block[1] = 0xF5;
  const Bytes data(128, 0x5A);
  EXPECT_EQ(Error::None, Send(block, data));
  block.insert(block.end(), data.begin(), data.end());
  EXPECT_EQ(block, world->hub("hub").rawBlock());
}

TEST_F(TunnelTest, FramingOfChannelTwo) {
  Install(OneHub(R"("channels": [2])"));
  const auto out = [&](ByteView report) {
    return world->SetOutputReport(world->HidInstance("hub"), report).error;
  };
  Bytes answer(300, 0xEE);
  const auto in = [&](std::uint8_t id, std::size_t length) {
    answer[0] = id;
    return world->GetInputReport(world->HidInstance("hub"), MutableBytes(answer).first(length))
        .error;
  };
  const Bytes enable = Report(FromHex("40 02 1 0 7C 2E 0 0"), {}, true);
  EXPECT_EQ(Error::BadReport, Send(FromHex("40 02 1 0 7C 2E 0 0"))) << "channel 1 is not there";
  EXPECT_EQ(Error::BadReport, out(ByteView(enable).first(320)));
  EXPECT_EQ(Error::None, out(enable));
  EXPECT_EQ(Error::Stall, in(0xF1, 300)) << "nothing waits";
  EXPECT_EQ(Error::None, out(Report(FromHex(kStatus), {}, true)));
  EXPECT_EQ(Error::BadReport, in(0xF1, 256));
  EXPECT_EQ(Error::BadReport, in(0x00, 300));
  EXPECT_EQ(Error::None, in(0xF1, 300));
  Bytes expected(300, 0xEE);
  std::fill_n(expected.begin(), 257, std::uint8_t{0});
  const Bytes status = FromHex("2E 7C 0 0 8 18 0 0 0 0 1 2 0 0 0 2");
  std::copy(status.begin(), status.end(), expected.begin() + 64);
  expected[0] = 0xF1;
  EXPECT_EQ(expected, answer) << "what is behind the report stays";
  EXPECT_EQ(Error::Stall, in(0xF1, 300)) << "read once";
}

TEST_F(TunnelTest, DataStagesMustFit) {
  Install(OneHub());
  EXPECT_EQ(Error::None, Send(FromHex("40 F1 0 0 0 0 0 1"), Bytes(256, 0)));
  EXPECT_EQ(Error::Stall, Send(FromHex("40 F1 0 0 0 0 1 1")));
  ASSERT_TRUE(Enable(1));
  EXPECT_EQ(Error::None, Send(FromHex("C0 D8 0 0 0 0 0 2"))) << "an answer is cut to its report";
  Bytes answer(257, 0);
  EXPECT_TRUE(world->GetInputReport(world->HidInstance("hub"), answer).ok());
}

}  // namespace

}  // namespace virtualhub::test
