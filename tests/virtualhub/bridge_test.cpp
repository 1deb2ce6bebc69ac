// I2C targets behind the hub, and the requests that it must refuse.
#include "hub_bench.h"

namespace virtualhub::test {

namespace {

class BridgeTest : public HubBench {
 protected:
  BridgeTest() {
    Install(OneHub(R"("bridge_flash": {"busy_polls": 1}, "i2c": [
        {"kind": "eeprom", "address": "0xA0", "size": 256, "page_size": 16},
        {"kind": "eeprom", "address": "0xA2", "address_bytes": 5},
        {"kind": "block", "address": "0x42", "busy_polls": 2},
        {"kind": "block", "address": "0x43", "final_status": 3}])"));
  }
};

TEST_F(BridgeTest, EepromReadsGoOnWherePageWritesWrap) {
  Expect({{"40 C6 1E 0 0 0 3 0 A0 2 81: 1 2 3", "ok"},
          {"40 D6 10 0 0 0 2 0 A0 2 82", "03 FF"},
          {"C0 D6 1E 0 0 0 3 0 A0 2 82", "01 02 FF"},
          {"40 D6 0 0 0 0 1 0 A0 0 82", "FF"},          // without an address: at 0x21
          {"40 C6 0 0 0 0 1 0 A0 1 81: 1", "stall"},    // wrong number of address bytes
          {"40 C6 0 0 0 0 1 0 A2 6 81: 1", "stall"},    // more than there can be
          {"40 C6 0 0 0 0 1 0 A0 2 01: 1", "stall"},    // not configured
          {"40 C6 0 0 0 0 1 0 A0 2 83: 1", "stall"}});  // no such speed
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
          {"40 C6 0 0 0 0 7 0 42 0 82: 6 4 0 0 2 1 2", "stall"},  // wrong count
          {"40 C6 0 0 0 0 2 0 42 0 82: 8 0", "stall"},            // unknown command
          {"40 C6 0 0 0 0 5 0 43 0 82: 5 3 0 0 0", "ok"},
          {"40 D6 0 0 0 0 1 0 43 0 82", "03"},  // the error that was asked for
          {"40 DC 42 7 0 0 5 0: 20 0 0 1 77", "ok"},
          {"C0 EC 42 27 20 0 2 0", "77 FF"}});
}

TEST_F(BridgeTest, SettingsAreTakenAndWrongArgumentsRefused) {
  Expect({{"40 06 1 0 0 0 0 0", "ok"},
          {"40 08 2 50 0 0 0 0", "ok"},
          {"40 F6 4 A0 82 80 0 0", "ok"},
          {"40 F1 0 0 0 0 1 0: F0", "ok"},
          {"00 CF 0 0 0 0 1 0: 0", "stall"}});  // the bridge flash is busy with the last write
  const Hub& hub = machine->hub("hub");
  EXPECT_TRUE(hub.highClock());
  EXPECT_EQ(0x5002, hub.downloadSlave());
  EXPECT_EQ("04 A0 82", Hex(hub.i2cSetting()));
  Expect({{"C0 F3 0 0 0 0 1 0", "01"}, {"C0 F3 0 0 0 0 1 0", "00"}});
  for (const char* refused :
       {"C0 04 0 18 0 0 1 0", "C0 04 5 0 0 0 1 0", "40 0C 0 18 0 1 0 0", "40 0C 0 2 1 0 0 0",
        "40 04 0 1 5 0 0 0", "40 04 1 1 18 0 0 0", "40 77 0 0 0 0 0 0", "40 00 0 0 0 0 1 0",
        "40 E9 1 0 0 0 0 0", "40 06 2 0 0 0 0 0", "40 F1 0 0 10 0 1 0", "40 F1 0 0 0 0 1 1"}) {
    Expect({{refused, "stall"}});
  }
}

}  // namespace

}  // namespace virtualhub::test
