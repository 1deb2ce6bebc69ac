// Handles that are not valid or whose device is absent, and the names that a debugger is shown.
#include <map>
#include <set>

#include "api/api_calls.h"

namespace qzhid::test {
namespace {

using ::testing::StartsWith;

/// The exports that take a handle, called with it.
using HandleUsers = std::vector<std::pair<std::string, std::function<std::uint32_t(void* handle)>>>;

class HandleTest : public ApiTest {
 protected:
  HandleTest() { Open(); }  // so that a request would be seen

  HandleUsers Users() {
    HandleUsers users = {{"QZ_UpdateDev", Call(QZ_UpdateDev, image.path(), nullptr)},
                         {"QZ_ReadBinVersion", Call(QZ_ReadBinVersion, image.path(), &version)},
                         {"QZ_ReadDevVersion", Call(QZ_ReadDevVersion, &version)},
                         {"QZ_HidI2CConfig", Call(QZ_HidI2CConfig, 0xA0, 2, 1)}};
    for (const ApiCall& call : kApiCalls) users.emplace_back(call.name, call.call);
    return users;
  }

  /// Each export rejects the handle with the line that its kind has for that.
  void ExpectRejections(void* given, const char* ofJob, const char* ofBridge, const char* ofGpio) {
    const std::set<std::string> jobs = {"QZ_UpdateDev", "QZ_ReadBinVersion", "QZ_ReadDevVersion"};
    for (const auto& [name, call] : Users()) {
      if (given != nullptr && name == "QZ_HidSetHubGPIO") continue;  // see below
      const bool isJob = jobs.count(name) != 0, isGpio = name.find("GPIO") != std::string::npos;
      const bool isBoolean = isJob || name == "QZ_HidSetHubGPIO";
      ClearRecords();
      EXPECT_EQ(isBoolean ? 0 : isGpio ? 1 : kRejected, call(given)) << name;
      const Lines lines = Logged();
      ASSERT_EQ(1u, lines.size()) << name;
      EXPECT_EQ(name, lines[0].tag);
      EXPECT_THAT(lines[0].text, StartsWith(isJob ? ofJob : isGpio ? ofGpio : ofBridge));
      EXPECT_THAT(Outputs(), IsEmpty());
    }
  }

  std::uint16_t version = 0;
  const TempFile image{virtualhub::BuildImage({}, 0x7FA8)};
};

TEST_F(HandleTest, NullHandlesAreRejected) {
  const std::string check = Text("Check Fail,pDev is %p", nullptr);
  ExpectRejections(nullptr, "pDev is NULL\n", check.c_str(), "pDev is NULL\n");
}

TEST_F(HandleTest, EveryExportNamesItselfToADebugger) {
  const std::map<std::string, std::vector<std::string>> unusual = {
      {"QZ_UpdateDev", {"QZ UpdateDev"}},     {"QZ_HidI2CConfig", {"QZ HidI2CConfig"}},
      {"QZ_HidI2CWrite", {"QZ HidI2CWrite"}}, {"QZ_HidI2CRead", {"QZ HidI2CRead"}},
      {"QZ_HidI2CRead2", {"QZ HidI2CRead"}},  {"QZ_Write_Byte", {}}};
  for (const auto& [name, call] : Users()) {
    ClearRecords();
    call(nullptr);
    const auto found = unusual.find(name);
    EXPECT_EQ(found != unusual.end() ? found->second : std::vector{name}, DebugTexts());
  }
  ClearRecords();
  std::uint32_t number = 77;
  EXPECT_EQ(nullptr, QZ_OpenHid(0));
  EXPECT_EQ(0, QZ_ListAllHidDev(nullptr, &number));
  EXPECT_EQ(0, QZ_ListAllHidDevByVIDPID(1, 2, nullptr, &number));
  QZ_FreeDevList(nullptr);
  EXPECT_EQ(0, QZ_GetHidBinFileVIDPID(nullptr, &number, &number));
  EXPECT_EQ(0, QZ_GetHubVIDPIDFromHidDevice(0, &number, nullptr));
  EXPECT_EQ(1, QZ_ConfigLog(0, 3));
  EXPECT_THAT(DebugTexts(),
              ElementsAre("QZ Open Hid", "List Hid Device", "List Hid Device", "QZ FreeAllDevice",
                          "QZ_GetHidBinFileVIDPID", "QZ_GetHubVIDPIDFromHidDevice", "Create Log"));
  EXPECT_EQ(77u, number);
}

TEST_F(HandleTest, MadeUpAndClosedHandlesAreRejectedAndHarmNoOpenDevice) {
  const auto expectUnknown = [this](void* given) {
    ExpectRejections(given, "Unknow Dev!!\n", "Unknow Dev!!\n", "Device is not present\n");
  };
  expectUnknown(static_cast<char*>(handle) + 1);
  EXPECT_EQ(1, QZ_HidSetHubGPIO(handle, 1, 1));
  QZ_CloseDev(handle);
  expectUnknown(handle);
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

}  // namespace
}  // namespace qzhid::test
