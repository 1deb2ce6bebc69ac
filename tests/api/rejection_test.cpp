// Arguments that the bridge and GPIO exports reject: one line names all values, and nothing is
// sent. Null handles: see handle_test.cpp.
#include "api/api_test.h"

namespace qzhid::test {
namespace {

std::uint8_t g_buffer[256];

class RejectionTest : public ApiTest {
 protected:
  RejectionTest() {
    Open();
    check = Text("Check Fail,pDev is %p,", handle);
  }

  /// A call that has returned `result`, logged only this line and sent nothing.
  void Expect(const char* name, const std::string& text, std::uint32_t result,
              std::uint32_t expected = kRejected) {
    EXPECT_EQ((Lines{{3, name, text}}), Logged());
    EXPECT_EQ(expected, result);
    EXPECT_THAT(Outputs(), IsEmpty());
    ClearRecords();
  }

  std::string check;  ///< what most of these lines begin with
};

TEST_F(RejectionTest, TransfersBeyondTheirLimitsAreRejected) {
  using Transfer = std::uint32_t (*)(void*, std::uint32_t, std::uint8_t*, std::uint16_t);
  const std::tuple<const char*, Transfer, std::uint16_t> transfers[] = {
      {"QZ_HidI2CWrite", QZ_HidI2CWrite, 128},
      {"QZ_HidI2CRead", QZ_HidI2CRead, 192},
      {"QZ_HidI2CBlockWriteFlash", QZ_HidI2CBlockWriteFlash, 128},
      {"QZ_Stage_Flash", QZ_Stage_Flash, 128}};
  for (const auto& [name, call, limit] : transfers) {
    const std::pair<std::uint8_t*, int> cases[] = {
        {g_buffer, limit + 1}, {g_buffer, 0xFFFF}, {nullptr, 1}, {nullptr, 0}};
    for (const auto& [data, length] : cases) {
      Expect(name, check + Text("dwAddr is -2,pBuf is %p,wlen is %d\n", data, length),
             call(handle, 0xFFFFFFFE, data, static_cast<std::uint16_t>(length)));
    }
    call(handle, 0, g_buffer, limit);
    EXPECT_EQ(1u, Outputs().size()) << name << ": its limit is sent";
    ClearRecords();
  }
}

TEST_F(RejectionTest, I2CSettingsOutOfRangeAreRejected) {
  const std::uint8_t cases[][3] = {{0, 2, 1}, {0xA0, 6, 1}, {0xA0, 2, 3}};
  for (const auto& [slave, memLen, speed] : cases) {
    Expect("QZ_HidI2CConfig",
           check + Text("bySlaveAddr is %d,bySpeed is %d,byMemLen is %d\n", slave, speed, memLen),
           QZ_HidI2CConfig(handle, slave, memLen, speed));
  }
  EXPECT_EQ(0u, QZ_HidI2CConfig(handle, 1, 0, 0));
  EXPECT_EQ(0u, QZ_HidI2CConfig(handle, 255, 5, 2));
}

TEST_F(RejectionTest, ReadsWithTooManyAddressBytesOrWithoutABufferAreRejected) {
  const std::tuple<std::uint8_t*, std::uint16_t, std::uint8_t*> cases[] = {
      {g_buffer, 6, g_buffer},
      {g_buffer, 0x100, g_buffer},
      {nullptr, 0, g_buffer},
      {g_buffer, 2, nullptr}};
  for (const auto& [address, length, data] : cases) {
    Expect("QZ_HidI2CRead2",
           check + Text("AddrBuf is %p,wAddrBufLen is %d,pBuf is %p,wBuflen is 65535\n", address,
                        length, data),
           QZ_HidI2CRead2(handle, address, length, data, 0xFFFF));
  }
}

TEST_F(RejectionTest, BlockAndGpioCallsWithValuesOutOfRangeAreRejected) {
  Expect("QZ_Write_Byte", check + Text("dwAddr is -1,pBuf is %p\n", nullptr),
         QZ_Write_Byte(handle, 0xFFFFFFFF, nullptr, 1));
  Expect("QZ_HidI2CBlockStatus", check + Text("pI2CStatus is %p\n", nullptr),
         QZ_HidI2CBlockStatus(handle, nullptr));
  const std::pair<std::uint8_t*, std::uint8_t> pools[] = {{g_buffer, 55}, {nullptr, 1}};
  for (const auto& [pool, length] : pools) {
    Expect("QZ_MST_HidI2CBlock", check + Text("byVdCmdPoolLen is %d\n", length),
           QZ_MST_HidI2CBlock(handle, 1, 2, 3, 4, 5, pool, length));
  }
  Expect("QZ_HidGPIOR", Text("Check Fail,pBuf is %p,length is 1\n", nullptr),
         QZ_HidGPIOR(handle, 5, nullptr, 0x10001), 1);
  for (const std::uint32_t line : {24u, 256u, 0xFFFFFFFFu}) {
    const char* const text = "GPIO Num is out of range\n";
    Expect("QZ_HidGPIOR", text, QZ_HidGPIOR(handle, line, g_buffer, 1), 1);
    Expect("QZ_HidGPIOW", text, QZ_HidGPIOW(handle, line, 1), 1);
  }
}

TEST_F(RejectionTest, ReadsAndPoolsOfNothingNeedNoBuffer) {
  EXPECT_EQ(kStalled, QZ_HidGPIOR(handle, 5, nullptr, 0x10000)) << "by the hub";
  EXPECT_EQ(0u, QZ_MST_HidI2CBlock(handle, 1, 2, 3, 4, 5, nullptr, 0));
  EXPECT_THAT(Keys(), ElementsAre(0xC004, 0x40F2));
  ClearRecords();
  EXPECT_EQ(kRejected, QZ_HidI2CRead(handle, 7, g_buffer, 0)) << "but an I2C read fails";
  EXPECT_EQ((Lines{{3, "CHidDev::I2CReadImpl", "Read Data Fail,Data Length Value:0\n"},
                   {3, "QZ_HidI2CRead", "I2C Read Fail,ErrorCode:0xffffffff\n"}}),
            Logged());
  EXPECT_THAT(Outputs(), IsEmpty());
}

}  // namespace
}  // namespace qzhid::test
