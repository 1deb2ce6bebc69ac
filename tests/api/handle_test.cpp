// Handles that are none, and handles of absent devices. Null handles: see refusal_test.cpp.
#include "api/api_calls.h"
#include "api/handle_table.h"

namespace qzhid::test {
namespace {

class HandleTest : public ApiTest {
 protected:
  HandleTest() { Open(); }  // so that a request would be seen

  /// All exports refuse that handle in these words and send nothing; the open hub stays open.
  void ExpectRefusals(void* given) {
    const TempFile image(virtualhub::BuildImage({}, 0x7FA8));
    std::uint16_t version = 0;
    const auto before = world->exchanges();
    EXPECT_EQ(kStatusRefused, QZ_HidI2CConfig(given, 0xA0, 2, 1));
    EXPECT_EQ(0, QZ_UpdateDev(given, image.path(), nullptr));
    EXPECT_EQ(0, QZ_ReadBinVersion(given, image.path(), &version));
    EXPECT_EQ(0, QZ_ReadDevVersion(given, &version));
    Lines lines;
    for (const char* name :
         {"QZ_HidI2CConfig", "QZ_UpdateDev", "QZ_ReadBinVersion", "QZ_ReadDevVersion"}) {
      lines.push_back({3, name, "Unknow Dev!!\n"});
    }
    for (const ApiCall& call : kApiCalls) {
      EXPECT_EQ(IsGpio(call) ? 1u : kStatusRefused, call.call(given)) << call.name;
      lines.push_back({3, call.name, IsGpio(call) ? "Device is not present\n" : "Unknow Dev!!\n"});
    }
    EXPECT_EQ(lines, log.lines);
    EXPECT_EQ(before, world->exchanges());
    EXPECT_EQ(0u, QZ_HidGPIOW(handle, 1, 1));
    ClearRecords();
  }
};

TEST_F(HandleTest, ClosedAndMadeUpHandlesAreRefused) {
  void* const closed = handle;
  QZ_CloseDev(closed);
  // The freed place is taken again, by a device that is no handle.
  const auto occupant = std::make_shared<CHidDev>();
  handle = nullptr;
  Open();
  ExpectRefusals(closed);
  ExpectRefusals(static_cast<std::uint8_t*>(handle) + 1);
}

TEST_F(HandleTest, DevicesOfAnotherKindAreRefusedExceptByGpioWhichAsksForPresence) {
  void* const given = CHandleTable::Instance().Add(std::make_shared<CUSBDev>());
  for (const ApiCall& call : kApiCalls) {
    if (IsGpio(call)) continue;
    EXPECT_EQ(kStatusRefused, call.call(given));
    EXPECT_EQ(Lines({{3, call.name, "Unknow Dev!!\n"}}), log.Of(call.name));
  }
  EXPECT_EQ(0, QZ_UpdateDev(given, "/dev/null", nullptr));
  EXPECT_EQ((LogLine{3, "QZ_UpdateDev", "Unknow Dev!!\n"}), log.lines.back());
  EXPECT_TRUE(Outputs().empty());
  EXPECT_EQ(1u, QZ_HidGPIOW(given, 1, 1)) << "it is offline";
  EXPECT_EQ(1, QZ_HidSetHubGPIO(given, 1, 1));
  CHandleTable::Instance().Take(given);
}

TEST_F(HandleTest, ADeviceThatDidNotComeBackIsNotPresent) {
  Fault lost;
  lost.on = Fault::On::Reset;
  lost.action = Fault::Action::NeverReturn;
  world->AddFault(lost);
  const TempFile image(virtualhub::BuildImage({}, 0x7FA8));
  EXPECT_EQ(0, QZ_UpdateDev(handle, image.path(), nullptr));
  ClearRecords();
  EXPECT_EQ(1u, QZ_HidGPIOR(handle, 5, g_room, 1));
  EXPECT_EQ(1u, QZ_HidGPIOW(handle, 24, 1)) << "presence is asked first";
  EXPECT_EQ(Lines({{3, "QZ_HidGPIOR", "Device is not present\n"},
                   {3, "QZ_HidGPIOW", "Device is not present\n"}}),
            log.lines);
}

}  // namespace
}  // namespace qzhid::test
