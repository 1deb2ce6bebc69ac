// Every export without anything to work on.
#include "api/api_test.h"

extern "C" const char* QzMisuseEveryExport(void);

namespace qzhid::test {
namespace {

using MisuseTest = ApiTest;

TEST_F(MisuseTest, EveryExportRefusesAndNamesItselfToADebugger) {
  QZ_CloseDev(nullptr);
  ClearRecords();
  EXPECT_STREQ(nullptr, QzMisuseEveryExport());
  std::string names;
  for (const std::string& name : DebugTexts()) names += name + "|";
  EXPECT_EQ(
      "QZ Open Hid|QZ CloseDevice|Frequency reduction Result is (nil)\n|List Hid Device|"
      "List Hid Device|QZ FreeAllDevice|QZ UpdateDev|QZ_ReadBinVersion|QZ_ReadDevVersion|"
      "QZ_GetHidBinFileVIDPID|QZ_GetHubVIDPIDFromHidDevice|QZ HidI2CConfig|QZ HidI2CWrite|"
      "QZ HidI2CRead|QZ HidI2CRead|QZ_HidI2CBlockWriteFlash|QZ_Stage_Flash|"
      "QZ_HidI2CBlockEraseFlash|QZ_HidI2CBlockStatus|QZ_MST_HidI2CBlock|QZ_HidGPIOR|QZ_HidGPIOW|"
      "QZ_HidSetHubGPIO|QZ_SetLogPath|Create Log|",
      names);
  EXPECT_EQ(0u, world->exchanges());
}

}  // namespace
}  // namespace qzhid::test
