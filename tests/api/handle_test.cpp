// Handles that are not valid, handles of absent devices, and exports with nothing to work on.
#include "api/api_calls.h"

namespace qzhid::test {
namespace {

using ::testing::AllOf;
using ::testing::Field;
using ::testing::StartsWith;

/// An export that takes a handle: how it rejects one that it does not know.
struct HandleUser {
  std::string name;
  std::function<std::uint32_t(void* handle)> call;
  std::uint32_t rejection;
  std::string ofNull, ofUnknown;  ///< the beginning of its line for null, and its line for others
  const char* debugName;          ///< as a debugger is shown it
};

class HandleTest : public ApiTest {
 protected:
  HandleTest() { Open(); }  // so that a request would be seen

  std::vector<HandleUser> Users() const {
    const char* const file = image.path();
    const std::string noDevice = "Unknow Dev!!\n", absent = "Device is not present\n";
    const std::string null = "pDev is NULL\n", checked = Text("Check Fail,pDev is %p", nullptr);
    std::vector<HandleUser> users = {
        {"QZ_UpdateDev", Call(QZ_UpdateDev, file, nullptr), 0, null, noDevice, "QZ UpdateDev"},
        {"QZ_ReadBinVersion", Call(QZ_ReadBinVersion, file, &s_version), 0, null, noDevice,
         "QZ_ReadBinVersion"},
        {"QZ_ReadDevVersion", Call(QZ_ReadDevVersion, &s_version), 0, null, noDevice,
         "QZ_ReadDevVersion"},
        {"QZ_HidI2CConfig", Call(QZ_HidI2CConfig, 0xA0, 2, 1), kRejected, checked, noDevice,
         "QZ HidI2CConfig"}};
    const std::map<std::string, const char*> unusual = {{"QZ_HidI2CWrite", "QZ HidI2CWrite"},
                                                        {"QZ_HidI2CRead", "QZ HidI2CRead"},
                                                        {"QZ_HidI2CRead2", "QZ HidI2CRead"},
                                                        {"QZ_Write_Byte", nullptr}};
    for (const ApiCall& call : kApiCalls) {
      const auto found = unusual.find(call.name);
      users.push_back({call.name, call.call, call.Rejection(), call.IsGpio() ? null : checked,
                       call.IsGpio() ? absent : noDevice,
                       found != unusual.end() ? found->second : call.name.c_str()});
    }
    return users;
  }

  void ExpectUnknown(void* given) {
    for (const HandleUser& user : Users()) {
      if (user.name == "QZ_HidSetHubGPIO") continue;  // see below
      ClearRecords();
      EXPECT_EQ(user.rejection, user.call(given)) << user.name;
      EXPECT_EQ((Lines{{3, user.name, user.ofUnknown}}), Logged());
      EXPECT_THAT(Outputs(), IsEmpty());
    }
  }

  static inline std::uint16_t s_version = 0;
  const TempFile image{virtualhub::BuildImage({}, 0x7FA8)};
};

TEST_F(HandleTest, EveryExportNamesItselfToADebuggerAndRejectsNull) {
  for (const HandleUser& user : Users()) {
    ClearRecords();
    EXPECT_EQ(user.rejection, user.call(nullptr)) << user.name;
    EXPECT_THAT(Logged(), ElementsAre(AllOf(Field(&LogLine::tag, user.name),
                                            Field(&LogLine::text, StartsWith(user.ofNull)))));
    EXPECT_THAT(Outputs(), IsEmpty());
    std::vector<std::string> names;
    if (user.debugName != nullptr) names.emplace_back(user.debugName);
    EXPECT_EQ(names, DebugTexts());
  }
}

TEST_F(HandleTest, MadeUpAndClosedHandlesAreRejectedAndHarmNoOpenDevice) {
  ExpectUnknown(static_cast<char*>(handle) + 1);
  EXPECT_EQ(1, QZ_HidSetHubGPIO(handle, 1, 1));
  QZ_CloseDev(handle);
  ExpectUnknown(handle);
}

TEST_F(HandleTest, TheHubsOwnGpioCommandTakesAnyPointer) {
  void* const closed = handle;
  QZ_CloseDev(closed);
  Open();
  for (void* const given : {closed, static_cast<void*>(g_room), reinterpret_cast<void*>(1)}) {
    ClearRecords();
    constexpr const char* kTag = "QZ_HidSetHubGPIO";
    EXPECT_EQ(1, QZ_HidSetHubGPIO(given, 5, 1));
    EXPECT_EQ(
        (Lines{{0, kTag, "------>\n"}, {1, kTag, "Set GPIO 5 1 sucess\n"}, {0, kTag, "<------\n"}}),
        Logged(kTag));
    EXPECT_THAT(Keys(), ElementsAre(0x4004));
  }
}

TEST_F(HandleTest, ADeviceThatDidNotComeBackIsNotPresent) {
  machine->AddFault({.on = Fault::On::Reset, .action = Fault::Action::NeverReturn});
  EXPECT_EQ(0, QZ_UpdateDev(handle, image.path(), nullptr));
  ClearRecords();
  EXPECT_EQ(1u, QZ_HidGPIOR(handle, 5, g_room, 1));
  EXPECT_EQ(1u, QZ_HidGPIOW(handle, 24, 1)) << "presence is asked first";
  EXPECT_EQ((Lines{{3, "QZ_HidGPIOR", "Device is not present\n"},
                   {3, "QZ_HidGPIOW", "Device is not present\n"}}),
            Logged());
}

TEST_F(HandleTest, ExportsWithoutAHandleDoNothingWithNothingToWorkOn) {
  HidDevRecord* list = nullptr;
  std::uint32_t number = 77;
  EXPECT_EQ(nullptr, QZ_OpenHid(0));
  EXPECT_EQ(0, QZ_ListAllHidDev(nullptr, &number));
  EXPECT_EQ(0, QZ_ListAllHidDevByVIDPID(1, 2, &list, nullptr));
  QZ_FreeDevList(nullptr);
  EXPECT_EQ(0, QZ_GetHidBinFileVIDPID(nullptr, &number, &number));
  EXPECT_EQ(0, QZ_GetHubVIDPIDFromHidDevice(0, &number, nullptr));
  EXPECT_EQ(77u, number);
  EXPECT_EQ((Lines{{1, "QZ_ListAllHidDev", "Enter --->\n"},
                   {3, "QZ_ListAllHidDev", "Invalidate parameter\n"}}),
            Logged("QZ_ListAllHidDev"));
  EXPECT_EQ((Lines{{1, "QZ_FreeDevList", "In QZ_FreeAllDevice,Free Memory\n"}}),
            Logged("QZ_FreeDevList"));
  EXPECT_EQ(1, QZ_ConfigLog(0, 3));
  EXPECT_THAT(DebugTexts(),
              ElementsAre("QZ Open Hid", "List Hid Device", "List Hid Device", "QZ FreeAllDevice",
                          "QZ_GetHidBinFileVIDPID", "QZ_GetHubVIDPIDFromHidDevice", "Create Log"));
}

}  // namespace
}  // namespace qzhid::test
