// Handles that are none, handles of absent devices, and exports with nothing to work on.
#include "api/api_calls.h"

namespace qzhid::test {
namespace {

class HandleTest : public ApiTest {
 protected:
  HandleTest() { Open(); }  // so that a request would be seen

  /// All exports that look at a handle refuse that one in these words and send nothing; the open
  /// hub stays open.
  void ExpectRefusals(void* given, const char* jobs, const std::string& bridge, const char* gpio) {
    const TempFile image(virtualhub::BuildImage({}, 0x7FA8));
    std::uint16_t version = 0;
    ClearRecords();
    EXPECT_EQ(0, QZ_UpdateDev(given, image.path(), nullptr));
    EXPECT_EQ(0, QZ_ReadBinVersion(given, image.path(), &version));
    EXPECT_EQ(0, QZ_ReadDevVersion(given, &version));
    EXPECT_EQ(kStatusRefused, QZ_HidI2CConfig(given, 0xA0, 2, 1));
    std::string expected =
        Text("3 QZ_UpdateDev: %s|3 QZ_ReadBinVersion: %s|3 QZ_ReadDevVersion: %s|", jobs, jobs,
             jobs) +
        "3 QZ_HidI2CConfig: " + bridge + "|";
    for (const ApiCall& call : kApiCalls) {
      if (given != nullptr && call.TakesAnyPointer()) continue;
      EXPECT_EQ(call.IsGpio() ? call.Result(1) : kStatusRefused, call.call(given)) << call.name;
      expected += "3 " + call.name + ": " + (call.IsGpio() ? gpio : bridge) + "|";
    }
    // Without what is said of other arguments than the first.
    const std::regex rest("([^\n]*?pDev[^,\n]*|[^\n]+)[^\n]*\n");
    EXPECT_EQ(expected, Transcript{std::regex_replace(Said().text, rest, "$1|")});
    EXPECT_TRUE(Outputs().empty());
  }
};

TEST_F(HandleTest, NullIsRefusedByExportsThatNameThemselvesToADebugger) {
  ExpectRefusals(nullptr, "pDev is NULL", Text("Check Fail,pDev is %p", nullptr), "pDev is NULL");
  EXPECT_EQ(
      "QZ UpdateDev|QZ_ReadBinVersion|QZ_ReadDevVersion|QZ HidI2CConfig|QZ HidI2CWrite|"
      "QZ HidI2CRead|QZ HidI2CRead|QZ_HidI2CBlockWriteFlash|QZ_Stage_Flash|"
      "QZ_HidI2CBlockEraseFlash|QZ_HidI2CBlockStatus|QZ_MST_HidI2CBlock|QZ_HidGPIOR|QZ_HidGPIOW|"
      "QZ_HidSetHubGPIO|",
      DebugTexts());
}

TEST_F(HandleTest, MadeUpAndClosedHandlesAreRefused) {
  for (const bool closes : {false, true}) {
    void* const given = closes ? handle : static_cast<char*>(handle) + 1;
    if (closes) QZ_CloseDev(given);
    ExpectRefusals(given, "Unknow Dev!!", "Unknow Dev!!", "Device is not present");
    EXPECT_EQ(closes ? 0 : 1, QZ_HidSetHubGPIO(handle, 1, 1)) << "the open one is not harmed";
  }
}

TEST_F(HandleTest, TheHubsOwnGpioCommandTakesAnyPointer) {
  void* const closed = handle;
  QZ_CloseDev(closed);
  Open();
  for (void* const given : {closed, static_cast<void*>(g_room), reinterpret_cast<void*>(1)}) {
    ClearRecords();
    EXPECT_EQ(1, QZ_HidSetHubGPIO(given, 5, 1));
    EXPECT_EQ("0 ------>\n1 Set GPIO 5 1 sucess\n0 <------\n", Said("QZ_HidSetHubGPIO"));
    EXPECT_EQ(1u, Outputs().size());
  }
}

TEST_F(HandleTest, ADeviceThatDidNotComeBackIsNotPresent) {
  machine->AddFault({.on = Fault::On::Reset, .action = Fault::Action::NeverReturn});
  const TempFile image(virtualhub::BuildImage({}, 0x7FA8));
  EXPECT_EQ(0, QZ_UpdateDev(handle, image.path(), nullptr));
  ClearRecords();
  EXPECT_EQ(1u, QZ_HidGPIOR(handle, 5, g_room, 1));
  EXPECT_EQ(1u, QZ_HidGPIOW(handle, 24, 1)) << "presence is asked first";
  EXPECT_EQ("3 QZ_HidGPIOR: Device is not present\n3 QZ_HidGPIOW: Device is not present\n", Said());
}

TEST_F(HandleTest, ExportsWithoutHandleDoNothingOnNothing) {
  HidDevRecord* list = nullptr;
  std::uint32_t number = 77;
  EXPECT_EQ(nullptr, QZ_OpenHid(0));
  EXPECT_EQ(0, QZ_ListAllHidDev(nullptr, &number));
  EXPECT_EQ(0, QZ_ListAllHidDevByVIDPID(1, 2, &list, nullptr));
  QZ_FreeDevList(nullptr);
  EXPECT_EQ(0, QZ_GetHidBinFileVIDPID(nullptr, &number, &number));
  EXPECT_EQ(0, QZ_GetHubVIDPIDFromHidDevice(0, &number, nullptr));
  EXPECT_EQ(77u, number);
  EXPECT_EQ("1 Enter --->\n3 Invalidate parameter\n", Said("QZ_ListAllHidDev"));
  EXPECT_EQ(1, QZ_ConfigLog(0, 3));
  EXPECT_EQ(
      "QZ Open Hid|List Hid Device|List Hid Device|QZ FreeAllDevice|QZ_GetHidBinFileVIDPID|"
      "QZ_GetHubVIDPIDFromHidDevice|Create Log|",
      DebugTexts());
}

}  // namespace
}  // namespace qzhid::test
