// Arguments that the bridge and GPIO exports refuse: the line tells all values, nothing is sent.
#include "api/api_test.h"

namespace qzhid::test {
namespace {

class RefusalTest : public ApiTest {
 protected:
  RefusalTest() {
    Open();
    before = world->exchanges();
  }

  void ExpectRefused(const char* name, const std::string& line, std::uint32_t result,
                     std::uint32_t expected = kStatusRefused) {
    EXPECT_EQ(expected, result) << name << ": " << line;
    EXPECT_EQ(Lines({{3, name, line}}), log.lines);
    EXPECT_EQ(before, world->exchanges());
    log.Clear();
  }

  std::uint64_t before = 0;
  std::uint8_t buffer[256] = {};
};

TEST_F(RefusalTest, TransfersBeyondTheirLimits) {
  const struct {
    const char* name;
    std::uint32_t (*call)(void*, std::uint32_t, std::uint8_t*, std::uint16_t);
    int limit;
  } transfers[] = {{"QZ_HidI2CWrite", QZ_HidI2CWrite, 128},
                   {"QZ_HidI2CRead", QZ_HidI2CRead, 192},
                   {"QZ_HidI2CBlockWriteFlash", QZ_HidI2CBlockWriteFlash, 128},
                   {"QZ_Stage_Flash", QZ_Stage_Flash, 128}};
  for (const auto& transfer : transfers) {
    const auto expectRefused = [&](void* dev, std::uint8_t* data, int length) {
      const auto address = 0x80000000;
      ExpectRefused(transfer.name,
                    Text("Check Fail,pDev is %p,dwAddr is %d,pBuf is %p,wlen is %d\n", dev, address,
                         data, length),
                    transfer.call(dev, address, data, static_cast<std::uint16_t>(length)));
    };
    expectRefused(handle, buffer, transfer.limit + 1);
    expectRefused(handle, buffer, 0xFFFF);
    expectRefused(handle, nullptr, 1);
    expectRefused(handle, nullptr, 0);
    expectRefused(nullptr, buffer, 1);
    transfer.call(handle, 0, buffer, static_cast<std::uint16_t>(transfer.limit));
    EXPECT_LT(before, world->exchanges()) << transfer.name << ": its limit is sent";
    before = world->exchanges();
    log.Clear();
  }
  EXPECT_EQ(kStatusRefused, QZ_HidI2CRead(handle, 7, buffer, 0));
  EXPECT_EQ(Lines({{3, "CHidDev::I2CReadImpl", "Read Data Fail,Data Length Value:0\n"},
                   {3, "QZ_HidI2CRead", "I2C Read Fail,ErrorCode:0xffffffff\n"}}),
            log.lines);
}

TEST_F(RefusalTest, I2CSettings) {
  const auto expectRefused = [&](void* dev, int slave, int memLen, int speed) {
    ExpectRefused(
        "QZ_HidI2CConfig",
        Text("Check Fail,pDev is %p,bySlaveAddr is %d,bySpeed is %d,byMemLen is %d\n", dev, slave,
             speed, memLen),
        QZ_HidI2CConfig(dev, static_cast<std::uint8_t>(slave), static_cast<std::uint8_t>(memLen),
                        static_cast<std::uint8_t>(speed)));
  };
  expectRefused(handle, 0, 2, 1);
  expectRefused(handle, 0xA0, 6, 1);
  expectRefused(handle, 0xA0, 2, 3);
  expectRefused(nullptr, 0xA0, 2, 1);
  EXPECT_EQ(0u, QZ_HidI2CConfig(handle, 1, 0, 0));
  EXPECT_EQ(0u, QZ_HidI2CConfig(handle, 255, 5, 2));
  EXPECT_TRUE(log.lines.empty());
}

TEST_F(RefusalTest, ReadsWithAddressBytes) {
  const auto expectRefused = [&](void* dev, std::uint8_t* address, std::uint16_t addressLength,
                                 std::uint8_t* data) {
    ExpectRefused(
        "QZ_HidI2CRead2",
        Text("Check Fail,pDev is %p,AddrBuf is %p,wAddrBufLen is %d,pBuf is %p,wBuflen is "
             "65535\n",
             dev, address, addressLength, data),
        QZ_HidI2CRead2(dev, address, addressLength, data, 0xFFFF));
  };
  expectRefused(handle, buffer, 6, buffer);
  expectRefused(handle, buffer, 0x100, buffer);
  expectRefused(handle, nullptr, 0, buffer);
  expectRefused(handle, buffer, 2, nullptr);
  expectRefused(nullptr, buffer, 2, buffer);
}

TEST_F(RefusalTest, TheOtherCalls) {
  constexpr const char* kWrite = "Check Fail,pDev is %p,dwAddr is %d,pBuf is %p\n";
  constexpr const char* kStatus = "Check Fail,pDev is %p,pI2CStatus is %p\n";
  constexpr const char* kBlock = "Check Fail,pDev is %p,byVdCmdPoolLen is %d\n";
  constexpr const char* kRange = "GPIO Num is out of range\n";
  constexpr const char* kNull = "pDev is NULL\n";
  ExpectRefused("QZ_Write_Byte", Text(kWrite, handle, -1, nullptr),
                QZ_Write_Byte(handle, 0xFFFFFFFF, nullptr, 1));
  ExpectRefused("QZ_Write_Byte", Text(kWrite, nullptr, 5, buffer),
                QZ_Write_Byte(nullptr, 5, buffer, 1));
  ExpectRefused("QZ_HidI2CBlockEraseFlash", Text("Check Fail,pDev is %p\n", nullptr),
                QZ_HidI2CBlockEraseFlash(nullptr));
  ExpectRefused("QZ_HidI2CBlockStatus", Text(kStatus, handle, nullptr),
                QZ_HidI2CBlockStatus(handle, nullptr));
  ExpectRefused("QZ_HidI2CBlockStatus", Text(kStatus, nullptr, buffer),
                QZ_HidI2CBlockStatus(nullptr, buffer));
  ExpectRefused("QZ_MST_HidI2CBlock", Text(kBlock, handle, 55),
                QZ_MST_HidI2CBlock(handle, 1, 2, 3, 4, 5, buffer, 55));
  ExpectRefused("QZ_MST_HidI2CBlock", Text(kBlock, handle, 1),
                QZ_MST_HidI2CBlock(handle, 1, 2, 3, 4, 5, nullptr, 1));
  ExpectRefused("QZ_MST_HidI2CBlock", Text(kBlock, nullptr, 0),
                QZ_MST_HidI2CBlock(nullptr, 1, 2, 3, 4, 5, buffer, 0));
  for (const std::uint32_t line : {24u, 256u, 0xFFFFFFFFu}) {
    ExpectRefused("QZ_HidGPIOR", kRange, QZ_HidGPIOR(handle, line, buffer, 1), 1);
    ExpectRefused("QZ_HidGPIOW", kRange, QZ_HidGPIOW(handle, line, 1), 1);
  }
  ExpectRefused("QZ_HidGPIOR", kNull, QZ_HidGPIOR(nullptr, 24, buffer, 1), 1);
  ExpectRefused("QZ_HidGPIOW", kNull, QZ_HidGPIOW(nullptr, 24, 1), 1);
  ExpectRefused("QZ_HidSetHubGPIO", kNull, QZ_HidSetHubGPIO(nullptr, 5, 1), 0);
  EXPECT_EQ(1u, QZ_HidGPIOR(handle, 5, nullptr, 1)) << "nowhere to put it";
  EXPECT_EQ(before, world->exchanges());
}

}  // namespace
}  // namespace qzhid::test
