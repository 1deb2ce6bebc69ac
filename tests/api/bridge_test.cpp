// What the bridge and GPIO exports send and pass through, and what they reach beyond the hub.
#include "api/api_calls.h"

namespace qzhid::test {
namespace {

using BridgeTest = ApiTest;

TEST_F(BridgeTest, EachCallSendsItsOneReportAndPassesCodesThrough) {
  OpenHub(R"(, "i2c": [{"kind": "eeprom", "address": "0xA0"}])");
  EXPECT_EQ(0u, QZ_HidI2CConfig(handle, 0xA0, 2, 1));
  EXPECT_THAT(Outputs(), IsEmpty()) << "settings send nothing";
  // What fails: nothing that happens here, all reports, or the answers.
  for (const Fault::On on : {Fault::On::Reset, Fault::On::Output, Fault::On::Input}) {
    machine->ClearFaults();
    machine->AddFault(ReportFault(on, 0x4321, 0));
    for (const ApiCall& call : kApiCalls) {
      SCOPED_TRACE(call.name);
      std::fill_n(g_room, sizeof(g_room), std::uint8_t{0xB0});
      ClearRecords();
      const Bytes header = Hex(call.header);
      const bool isIn = header[0] == 0xC0 || header[1] == 0xD6;
      const bool isStruck = on == Fault::On::Output || (on == Fault::On::Input && isIn);
      EXPECT_EQ(call.Result(isStruck ? 0x4321 : 0), call.call(handle));
      EXPECT_THAT(Outputs(), ElementsAre(Report(1, header, Hex(call.data))));
      if (call.IsGpio()) continue;
      Lines lines;
      if (isStruck) {
        lines.push_back({3, call.name, Text("%s,ErrorCode:0x00004321\n", call.failure)});
      }
      if (isStruck && call.name == "QZ_HidI2CRead2") {
        lines.push_back(
            {3, call.name, "steup pkt:0x40 0xd6 0x01 0x02 0x00 0x00 0x03 0x00 0xa0 0x02 0x81\n"});
      }
      EXPECT_EQ(lines, Logged(call.name));
    }
  }
}

TEST_F(BridgeTest, AddressBytesGoWhereTheHubWantsThem) {
  Open();
  Bytes a(5, 0);
  for (std::uint8_t count = 0; count <= 5; ++count) {
    if (count > 0) a[count - 1u] = count;
    g_room[0] = 0xB0;
    ClearRecords();
    EXPECT_EQ(0u, QZ_HidI2CConfig(handle, 0xA2, count, 2));
    EXPECT_EQ(kStalled, QZ_HidI2CRead2(handle, g_address, count, g_room, 1));
    const Bytes header = {0x40, 0xD6, a[0], a[1], a[2], a[3], 1, a[4], 0xA2, count, 0x82};
    EXPECT_THAT(Outputs(), ElementsAre(Report(1, header, {0xB0})));
  }
}

TEST_F(BridgeTest, TheLongestRawBlockFillsTheHeaderArea) {
  Open();
  Bytes pool = CountUp(0x11, 54);
  EXPECT_EQ(0u, QZ_MST_HidI2CBlock(handle, 1, 2, 3, 0x44332211, 0x01020304, pool.data(), 54));
  Bytes block = Hex("40 F2 01 02 00 03 15 25 35 45");
  block.insert(block.end(), pool.begin(), pool.end());
  EXPECT_THAT(Outputs(), ElementsAre(Report(1, block)));
}

TEST_F(BridgeTest, GpioLinesAreReadAndDrivenByBothCommands) {
  OpenHub(R"(, "gpio_high": [0, 23])");
  constexpr const char* kTag = "QZ_HidSetHubGPIO";
  for (const std::uint32_t line : {0u, 1u, 22u, 23u}) {
    EXPECT_EQ(0u, QZ_HidGPIOR(handle, line, g_room, 1));
    EXPECT_EQ(line == 0 || line == 23 ? 1 : 0, g_room[0]);
    for (const std::uint8_t level : std::initializer_list<std::uint8_t>{2, 0}) {
      EXPECT_EQ(0u, QZ_HidGPIOW(handle, line, level));
      EXPECT_EQ(level != 0, hub().gpio()[line]);
      EXPECT_EQ(0u, QZ_HidGPIOW(handle, line, level == 0));
      ClearRecords();
      EXPECT_EQ(1, QZ_HidSetHubGPIO(handle, line, level));
      EXPECT_EQ(level != 0, hub().gpio()[line]);
      EXPECT_EQ((Lines{{0, kTag, "------>\n"},
                       {1, kTag, Text("Set GPIO %d %d sucess\n", line, level)},
                       {0, kTag, "<------\n"}}),
                Logged(kTag));
    }
  }
  ClearRecords();
  EXPECT_EQ(0, QZ_HidSetHubGPIO(handle, 24, 1)) << "the hub knows its lines";
  EXPECT_EQ(
      (Lines{{0, kTag, "------>\n"}, {3, kTag, "Set GPIO 24 1 fail\n"}, {0, kTag, "<------\n"}}),
      Logged(kTag));
}

}  // namespace
}  // namespace qzhid::test
