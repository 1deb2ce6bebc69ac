// Updates that have no image, and callbacks that call back: the hub keeps its firmware.
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <functional>

#include "api/api_test.h"

namespace qzhid::test {
namespace {

constexpr const char* kTag = "QZ_UpdateDev";
constexpr const char* kFlow = "CUniversalFlow::DevUpdate";

std::vector<int> g_progress;
std::function<void()> g_atTen;
void OnProgress(std::int32_t percent) {
  g_progress.push_back(percent);
  if (percent == 10 && g_atTen) g_atTen();
}

class UpdateCallbackTest : public ApiTest {
 protected:
  UpdateCallbackTest() {
    g_atTen = nullptr;
    Open();
    instance = world->HidInstance("hub");
  }

  void Start(const char* path, std::uint8_t expected, const std::vector<int>& progress) {
    g_progress.clear();
    ClearRecords();
    EXPECT_EQ(expected, QZ_UpdateDev(handle, path, OnProgress));
    CMsg::Instance().Progress(55);  // after the call nobody is told
    EXPECT_EQ(progress, g_progress);
  }

  /// Neither reset nor erased.
  void ExpectOldFirmware() {
    EXPECT_EQ(instance, world->HidInstance("hub"));
    EXPECT_EQ(virtualhub::Code::Flash, hub().code());
    const Bytes old = virtualhub::BuildImage({}, 0x10000);
    EXPECT_TRUE(std::equal(old.begin(), old.end(), hub().bank(0).contents().begin()));
  }

  const Bytes image = virtualhub::BuildImage({.version = 0x0210}, 0x7FA8);
  const TempFile good{image, "good"};
  virtualhub::DevInst instance = 0;
};

TEST_F(UpdateCallbackTest, AMissingFileIsToldBeforeTheHubIsTouched) {
  const std::string missing = UniquePath("missing.bin");
  for (const char* path : {missing.c_str(), static_cast<const char*>(nullptr), ""}) {
    Start(path, 0, {});
    const char* const shown = path != nullptr ? path : "(null)";
    EXPECT_EQ(Lines({{3, kTag, "Notify Progress\n"},
                     {3, kTag, Text("Fw File is Not Exist,FWPath:%s\n", shown)}}),
              log.lines);
  }
  EXPECT_EQ(0u, QZ_HidGPIOW(handle, 1, 1)) << "the device is still open";
  ExpectOldFirmware();
}

TEST_F(UpdateCallbackTest, AFileThatIsNoImageNeverCostsTheFirmware) {
  const TempFile empty({}, "empty");
  const TempFile hundred(Bytes(100, 0x5A), "hundred");
  const TempFile cut(Bytes(image.begin(), image.begin() + 0x7F53), "cut");
  const std::string folder = ::testing::TempDir();
  // A socket exists, and not even root can open it.
  sockaddr_un unreadable{};
  unreadable.sun_family = AF_UNIX;
  std::snprintf(unreadable.sun_path, sizeof(unreadable.sun_path), "%sqz.%d", folder.c_str(),
                getpid());
  const int descriptor = socket(AF_UNIX, SOCK_STREAM, 0);
  ASSERT_EQ(0, bind(descriptor, reinterpret_cast<sockaddr*>(&unreadable), sizeof(unreadable)));

  const LogLine notLoaded = {1, "CHubFwFinder::LoadFwbin2Buf", "load fw to buf return failed.\n"};
  const struct {
    const char* path;
    LogLine reason;
  } cases[] = {{empty.path(), notLoaded},
               {folder.c_str(), notLoaded},
               {unreadable.sun_path, notLoaded},
               {hundred.path(), {3, kFlow, "Fw image is too short,size:100\n"}},
               {cut.path(), {3, kFlow, "Fw image is too short,size:32595\n"}}};
  std::uint16_t version = 0;
  for (const auto& broken : cases) {
    SCOPED_TRACE(broken.path);
    // What an earlier job loaded must not be written instead.
    ASSERT_EQ(1, QZ_ReadBinVersion(handle, good.path(), &version));
    Start(broken.path, 0, {0, 10, 0});
    EXPECT_EQ(1u, log.Count(broken.reason));
    EXPECT_EQ(1u, log.Count({3, kFlow, "\nfail to write flash\n"}));
    EXPECT_EQ((LogLine{3, kTag, "Update Fail\n"}), log.lines.back());
    EXPECT_EQ((std::vector<std::uint16_t>{0x4002, 0xC009}), Keys());
    ExpectOldFirmware();
  }
  // The other job that reads files throws inside.
  std::uint32_t id = 0xEEEE;
  EXPECT_EQ(0, QZ_GetHidBinFileVIDPID(unreadable.sun_path, &id, &id));
  EXPECT_EQ(0xEEEEu, id);
  EXPECT_THAT(log.lines.back().text, ::testing::StartsWith("Exception:"));
  close(descriptor);
  unlink(unreadable.sun_path);
}

TEST_F(UpdateCallbackTest, ReconfiguringTheLogEndsTheProgressOnly) {
  g_atTen = [] { EXPECT_EQ(1, QZ_ConfigLog(0, 0)); };
  Start(good.path(), 1, {0, 10});
  EXPECT_EQ(0x0210, hub().Identity().version);
}

TEST_F(UpdateCallbackTest, TakingTheDeviceAwayFailsTheUpdateInTime) {
  for (const bool closes : {false, true}) {
    Open();
    g_atTen = [&] { closes ? QZ_CloseDev(handle) : static_cast<void>(List()); };
    Start(good.path(), 0, {0, 10, 0});
    EXPECT_EQ(1u, log.Count({3, kFlow, "fail to reset to rom\n"}));
    EXPECT_EQ(0, OpenHandles());
    EXPECT_EQ(closes ? kStatusRefused : 0u, QZ_HidI2CConfig(handle, 0xA0, 2, 1));
    ExpectOldFirmware();
  }
  g_atTen = nullptr;
  Open();
  EXPECT_EQ(1, QZ_UpdateDev(handle, good.path(), OnProgress));
  EXPECT_EQ(0x0210, hub().Identity().version);
}

}  // namespace
}  // namespace qzhid::test
