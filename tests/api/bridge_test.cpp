// What the bridge and GPIO exports send and pass through, and what they reach behind the hub.
#include <cerrno>

#include "api/api_calls.h"

namespace qzhid::test {
namespace {

constexpr std::uint32_t kStall = EPIPE;

class BridgeTest : public ApiTest {
 protected:
  /// A hub with an EEPROM at 0xA0 and more, open and with the I2C settings set, which sends
  /// nothing.
  void Connect(const std::string& eeprom = "", const std::string& more = "") {
    InstallDevices(
        R"({"name": "hub", "port": "3.1", "i2c": [{"kind": "eeprom", "address": "0xA0")" + eeprom +
        "}]" + more + "}");
    Open();
    EXPECT_EQ(0u, QZ_HidI2CConfig(handle, 0xA0, 2, 1));
    EXPECT_TRUE(Outputs().empty());
  }
};

TEST_F(BridgeTest, EachCallSendsItsOneReportAndPassesCodesThrough) {
  Connect();
  // What fails: nothing that happens here, all reports, or the answers.
  for (const Fault::On on : {Fault::On::Reset, Fault::On::Output, Fault::On::Input}) {
    world->ClearFaults();
    world->AddFault(Failing(on, 0x4321));
    for (const ApiCall& call : kApiCalls) {
      SCOPED_TRACE(call.name);
      std::fill(std::begin(g_room), std::end(g_room), std::uint8_t{0xB0});
      ClearRecords();
      const bool isIn = call.report[0] == 0xC0 || call.report[1] == 0xD6;
      const bool isStruck = on == Fault::On::Output || (on == Fault::On::Input && isIn);
      EXPECT_EQ(ResultOf(call, isStruck ? 0x4321 : 0), call.call(handle));
      const auto data = call.report.begin() + 11;
      EXPECT_EQ(
          std::vector<Bytes>{Channel1({call.report.begin(), data}, {data, call.report.end()})},
          Outputs());
      if (call.failure == nullptr) continue;
      if (!isStruck) {
        EXPECT_TRUE(log.lines.empty());
        continue;
      }
      Lines lines = {{3, call.name, Text("%s,ErrorCode:0x00004321\n", call.failure)}};
      if (call.name == std::string("QZ_HidI2CRead2")) {
        lines.push_back(
            {3, call.name, "steup pkt:0x40 0xd6 0x01 0x02 0x00 0x00 0x03 0x00 0xa0 0x02 0x81\n"});
      }
      EXPECT_EQ(lines, log.Of(call.name));
    }
  }
  // A failure for which the system has no code: a report is refused, an answer has arrived.
  for (const Fault::On on : {Fault::On::Output, Fault::On::Input}) {
    world->ClearFaults();
    world->AddFault(Failing(on, 0));
    EXPECT_EQ(on == Fault::On::Output ? kStatusRefused : 0u, QZ_HidI2CBlockStatus(handle, g_room));
  }
}

TEST_F(BridgeTest, WithoutAConnectionCallsAreRefused) {
  Connect();
  EXPECT_EQ(1u, List());
  for (const ApiCall& call : kApiCalls) {
    ClearRecords();
    EXPECT_EQ(ResultOf(call, kStatusRefused), call.call(handle));
    const std::uint8_t request = call.report[1];
    const char* const operation = request == 0xC6   ? "CRequestCMD::Yv_CtlPipeOut"
                                  : request == 0xD6 ? "CRequestCMD::Yv_CtlPipeIn"
                                                    : "CRequestCMD::Yv_SendVDCmd";
    EXPECT_EQ(1u, log.Count({3, operation, "Property Object is null!!\n"})) << call.name;
  }
  EXPECT_EQ(0, OpenHandles());
}

TEST_F(BridgeTest, JobsCloseTheDeviceUntilItIsOpenedAgain) {
  Connect();
  const TempFile image(virtualhub::BuildImage({.version = 0x0210}, 0x7FA8));
  std::uint16_t version = 0;
  for (const int job : {0, 1, 2}) {
    EXPECT_EQ(1, job == 0   ? QZ_ReadBinVersion(handle, image.path(), &version)
                 : job == 1 ? QZ_ReadDevVersion(handle, &version)
                            : QZ_UpdateDev(handle, image.path(), nullptr));
    const auto before = world->exchanges();
    for (const ApiCall& call : kApiCalls) {
      EXPECT_EQ(ResultOf(call, EBADF), call.call(handle)) << call.name;
    }
    EXPECT_EQ(before, world->exchanges());
    EXPECT_EQ(0, OpenHandles());
    Open();
    EXPECT_EQ(0u, QZ_HidI2CBlockEraseFlash(handle));
  }
}

TEST_F(BridgeTest, AddressBytesGoWhereTheHubWantsThem) {
  for (std::uint8_t count = 0; count <= 5; ++count) {
    SCOPED_TRACE(int{count});
    Connect(
        Text(R"(, "address_bytes": %d, "size": 256, "page_size": 128)", count == 0 ? 1 : count));
    EXPECT_EQ(0u, QZ_HidI2CConfig(handle, 0xA0, count, 2));
    Bytes a = {1, 2, 3, 4, 5};
    std::fill(a.begin() + count, a.end(), std::uint8_t{0});
    EXPECT_EQ(0u, QZ_HidI2CRead2(handle, g_address, count, g_room, 1));
    const Bytes header = {0x40, 0xD6, a[0], a[1], a[2], a[3], 1, a[4], 0xA0, count, 0x82};
    const Bytes sent = Outputs().at(0);
    EXPECT_EQ(header, Bytes(sent.begin() + 1, sent.begin() + 12));
    if (count == 0) continue;
    Bytes data(193, 0xEE);
    for (std::uint8_t i = 0; i < 128; ++i) data[i] = i;
    EXPECT_EQ(0u, QZ_HidI2CWrite(handle, 0x7F, data.data(), 128)) << "wraps in its page";
    EXPECT_EQ(0u, QZ_HidI2CRead(handle, 0x7E, data.data(), 192));
    EXPECT_EQ((Bytes{0x7F, 0x00, 0xFF}), Bytes(data.begin(), data.begin() + 3));
    EXPECT_EQ(0x3E, data[191]);
    EXPECT_EQ(0xEE, data[192]);
    QZ_HidI2CConfig(handle, 0xA2, count, 2);
    EXPECT_EQ(kStall, QZ_HidI2CWrite(handle, 0, g_data, 1)) << "nobody is there";
  }
}

TEST_F(BridgeTest, TheLongestRawBlockFillsTheHeaderArea) {
  Open();
  Bytes pool(54, 0x5A);
  pool[53] = 0xA5;
  EXPECT_EQ(0u, QZ_MST_HidI2CBlock(handle, 1, 2, 3, 0x44332211, 0x01020304, pool.data(), 54));
  Bytes block = {0x40, 0xF2, 1, 2, 0, 3, 0x15, 0x25, 0x35, 0x45};
  block.insert(block.end(), pool.begin(), pool.end());
  EXPECT_EQ(std::vector<Bytes>{Channel1(block)}, Outputs());
}

TEST_F(BridgeTest, TheFlashBehindTheHubIsErasedStagedWrittenAndPolled) {
  Connect("", R"(, "bridge_flash": {"busy_polls": 1})");
  const auto waitUntilReady = [&] {
    for (const int expected : {1, 0}) {
      EXPECT_EQ(0u, QZ_HidI2CBlockStatus(handle, g_room));
      EXPECT_EQ(expected, g_room[0]);
    }
  };
  const Bytes& memory = hub().bridgeFlash().memory();
  EXPECT_EQ(0u, QZ_HidI2CBlockWriteFlash(handle, 0x00012345, g_data, 2));
  EXPECT_EQ(kStall, QZ_HidI2CBlockEraseFlash(handle)) << "busy";
  waitUntilReady();
  EXPECT_EQ(0u, QZ_Stage_Flash(handle, 0x00012346, g_data + 2, 1));
  waitUntilReady();
  EXPECT_EQ((Bytes{0xD0, 0xD0, 0xFF}), Bytes(memory.begin() + 0x12345, memory.begin() + 0x12348));
  EXPECT_EQ(0u, QZ_HidI2CBlockEraseFlash(handle));
  EXPECT_EQ(Bytes(memory.size(), 0xFF), memory);
}

TEST_F(BridgeTest, GpioLinesAreReadAndDriven) {
  Connect("", R"(, "gpio_high": [0, 23])");
  for (const std::uint32_t line : {0u, 1u, 22u, 23u}) {
    EXPECT_EQ(0u, QZ_HidGPIOR(handle, line, g_room, 1));
    EXPECT_EQ(line == 0 || line == 23 ? 1 : 0, g_room[0]);
    for (const bool high : {true, false}) {
      EXPECT_EQ(0u, QZ_HidGPIOW(handle, line, high));
      EXPECT_EQ(high, hub().gpio()[line]);
    }
  }
  EXPECT_EQ(1, QZ_HidSetHubGPIO(handle, 7, 2));
  EXPECT_TRUE(hub().gpio()[7]);
  EXPECT_EQ(0, QZ_HidSetHubGPIO(handle, 24, 1)) << "the hub knows its lines";
  constexpr const char* kTag = "QZ_HidSetHubGPIO";
  const LogLine enter = {0, kTag, "------>\n"};
  const LogLine leave = {0, kTag, "<------\n"};
  EXPECT_EQ(Lines({enter,
                   {1, kTag, "Set GPIO 7 2 sucess\n"},
                   leave,
                   enter,
                   {3, kTag, "Set GPIO 24 1 fail\n"},
                   leave}),
            log.Of(kTag));
}

}  // namespace
}  // namespace qzhid::test
