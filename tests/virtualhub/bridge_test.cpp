// I2C targets, the bridge flash and the settings of the hub, and requests that it stalls.
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

TEST_F(BridgeTest, EepromReadsContinueWherePageWritesWrap) {
  Expect({{"40 C6 1E 0 0 0 3 0 A0 2 81: 1 2 3", "ok"},
          {"40 D6 10 0 0 0 2 0 A0 2 82", "03 FF"},
          {"C0 D6 1E 0 0 0 3 0 A0 2 82", "01 02 FF"},
          {"40 D6 0 0 0 0 1 0 A0 0 82", "FF"},          // without an address: at 0x21
          {"40 C6 0 0 0 0 1 0 A0 1 81: 1", "stall"},    // wrong number of address bytes
          {"40 C6 0 0 0 0 1 0 A2 6 81: 1", "stall"},    // more than there can be
          {"40 C6 0 0 0 0 1 0 A0 2 01: 1", "stall"},    // not configured
          {"40 C6 0 0 0 0 1 0 A0 2 83: 1", "stall"}});  // no such speed
}

TEST_F(BridgeTest, BlockCommandsStoreAndFetch) {
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

TEST_F(BridgeTest, TheBridgeFlashRejectsWritesAndErasesWhileItIsBusy) {
  const std::string write = "40 F1 0 0 0 0 1 0: F0", stage = "00 CF 0 0 0 0 1 0: 0F";
  const std::string erase = "40 F4 0 0 0 0 0 0", status = "C0 F3 0 0 0 0 1 0";
  for (const std::string& begun : {write, stage, erase}) {
    Expect({{begun, "ok"},
            {write, "stall"},
            {stage, "stall"},
            {erase, "stall"},
            {status, "01"},
            {status, "00"},
            {status, "00"}});
  }
}

TEST_F(BridgeTest, TheBridgeFlashIsNor) {
  const auto first = [&] { return machine->hub("hub").bridgeFlash().memory()[1]; };
  const auto await = [&] { Expect({{"C0 F3 0 0 0 0 1 0", "01"}}); };
  for (const auto& [data, byte] : {std::pair("F3", 0xF3), std::pair("3F", 0x33)}) {
    Expect({{std::string("40 F1 1 0 0 0 1 0: ") + data, "ok"}});
    EXPECT_EQ(byte, first());
    await();
  }
  Expect({{"40 F4 0 0 0 0 0 0", "ok"}});
  EXPECT_EQ(0xFF, first());
  await();
  Expect({{"40 F1 FF FF 0F 0 1 0: 0", "ok"}});
  await();
  Expect({{"40 F1 FF FF 0F 0 2 0: 0 0", "stall"}});  // past the memory
}

TEST_F(BridgeTest, SettingsAreKept) {
  Expect(
      {{"40 06 1 0 0 0 0 0", "ok"}, {"40 08 2 50 0 0 0 0", "ok"}, {"40 F6 4 A0 82 80 0 0", "ok"}});
  const Hub& hub = machine->hub("hub");
  EXPECT_TRUE(hub.highClock());
  EXPECT_EQ(0x5002, hub.downloadSlave());
  EXPECT_EQ("04 A0 82", Hex(hub.i2cSetting()));
}

TEST_F(BridgeTest, RequestsWithWrongArgumentsStall) {
  const std::pair<const char*, const char*> rows[] = {
      {"C0 04 0 18 0 0 1 0", "a line that does not exist is read"},
      {"C0 04 5 0 0 0 1 0", "another value for reading a line"},
      {"40 0C 0 18 0 1 0 0", "a line that does not exist is written"},
      {"40 0C 0 2 1 0 0 0", "another level"},
      {"40 04 0 1 5 0 0 0", "another value for setting a line"},
      {"40 04 1 1 18 0 0 0", "a line that does not exist is set"},
      {"40 77 0 0 0 0 0 0", "an unknown request"},
      {"40 00 0 0 0 0 1 0", "a reset with data"},
      {"40 E9 1 0 0 0 0 0", "another reset code"},
      {"40 06 2 0 0 0 0 0", "a clock that does not exist"},
      {"40 F1 0 0 10 0 1 0", "past the bridge flash"},
      {"40 F1 0 0 0 0 1 1", "more data than fits"}};
  for (const auto& [request, what] : rows) EXPECT_EQ("stall", Ask(request)) << what;
}

}  // namespace

}  // namespace virtualhub::test
