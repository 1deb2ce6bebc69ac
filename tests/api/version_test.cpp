// Versions and ids of hubs and of image files. Other chips: see firmware/fw_image_test.cpp.
#include "api/api_test.h"

namespace qzhid::test {
namespace {

class VersionTest : public ApiTest {
 protected:
  /// A call that has returned `result` and logged these lines under its name, and the keys of its
  /// requests.
  void Expect(std::uint8_t expected, std::uint8_t result,
              const std::vector<std::pair<int, std::string>>& lines, const Keys16& keys = {}) {
    EXPECT_EQ(expected, result);
    EXPECT_EQ(LinesOf(name, lines), Logged(name));
    EXPECT_EQ(keys, Keys());
    ClearRecords();
  }

  std::string name;  ///< of the export
  const std::string missing = UniquePath("missing.bin");
  const TempFile empty{{}, "empty"};
  std::uint16_t version = 0xEEEE;
  std::uint32_t vid = 0, pid = 0;
};

TEST_F(VersionTest, AHubsVersionIsReadFromItsFirmwareAndAFailureKeepsTheOutput) {
  name = "QZ_ReadDevVersion";
  const Keys16 keys = {0x4002, 0xC009, 0x4002, 0xC009};
  const std::pair<int, std::string> begin = {0, "Hid Dev\n"}, fail = {3, "Read Dev Version Fail\n"};
  OpenHub(R"(, "image": {"version": "0xA1B2"})");
  Expect(1, QZ_ReadDevVersion(handle, &version), {begin}, keys);
  EXPECT_EQ(0xA1B2, version);
  EXPECT_EQ(kNoHandles, Handles());
  machine->AddFault(RequestFault(0xC009, 1, 0, Fault::Action::Fail, 5));
  Expect(0, QZ_ReadDevVersion(handle, &version), {begin, fail}, keys);
  EXPECT_EQ(kNoHandles, Handles());
  Expect(0, QZ_ReadDevVersion(handle, nullptr), {{3, "Invalidate parameter\n"}});
  OpenHub(R"(, "running": "rom")");
  Expect(0, QZ_ReadDevVersion(handle, &version), {begin, fail}, {0x4002, 0xC009});
  EXPECT_EQ(0xA1B2, version);
}

TEST_F(VersionTest, AnImagesVersionNeedsNoRequestAndAFailureKeepsTheOutput) {
  name = "QZ_ReadBinVersion";
  Bytes image(0x7F60, 0);  // of no known chip: it ends after the version
  virtualhub::PutBigEndian16(image, 0x7F5E, 0xA1B2);
  const TempFile whole(image, "whole");
  const auto ask = [&](const char* path) { return QZ_ReadBinVersion(handle, path, &version); };
  Open();
  Expect(1, ask(whole.path()), {{0, "Hid Dev\n"}});
  EXPECT_EQ(0xA1B2, version);
  Expect(0, ask(empty.path()), {{0, "Hid Dev\n"}, {3, "Read Bin Version Fail\n"}});
  Expect(0, ask(missing.c_str()), {{3, "Fw File is Not Exist,FWPath:" + missing + "\n"}});
  Expect(0, ask(nullptr), {{3, "Fw File is Not Exist,FWPath:(null)\n"}});
  Expect(0, QZ_ReadBinVersion(handle, whole.path(), nullptr), {{3, "Invalidate parameter\n"}});
  EXPECT_EQ(0xA1B2, version);
}

TEST_F(VersionTest, AHubsIdsAreReadOnAConnectionOfTheirOwnAndAFailureKeepsTheOutputs) {
  name = "QZ_GetHubVIDPIDFromHidDevice";
  const Keys16 keys = {0x4002, 0x4006, 0xC009, 0x4006};
  OpenHub(R"(, "image": {"vid": "0xA1B2", "pid": "0x0C0D"})");
  QZ_CloseDev(handle);
  const auto number = machine->HidInstance("hub");
  const auto ask = QZ_GetHubVIDPIDFromHidDevice;
  ClearRecords();
  Expect(1, ask(number, &vid, &pid), {{0, "Device VID/PID:A1B2/0C0D\n"}}, keys);
  EXPECT_EQ(kNoHandles, Handles());
  machine->AddFault(RequestFault(0xC009, 1, 0, Fault::Action::Fail, 77));
  Expect(0, ask(number, &vid, &pid), {{3, "Get status failed,Error Code:77\n"}}, keys);
  EXPECT_EQ(kNoHandles, Handles());
  Expect(0, ask(4711, &vid, &pid), {{3, "Open hid device failed,DevInst:4711\n"}});
  Expect(0, ask(number, nullptr, &pid), {{3, "Invalidate parameter\n"}});
  Expect(0, ask(number, &vid, nullptr), {{3, "Invalidate parameter\n"}});
  EXPECT_EQ(0xA1B2u, vid);
  EXPECT_EQ(0x0C0Du, pid);
}

TEST_F(VersionTest, AnImagesIdsAreReadWithoutAHubAndAFailureKeepsTheOutputs) {
  name = "QZ_GetHidBinFileVIDPID";
  Bytes image(0x7F18, 0xAA);
  virtualhub::PutBigEndian16(image, 0x7F12, 0x1234);
  virtualhub::PutBigEndian16(image, 0x7F16, 0x5678);
  const TempFile whole(image, "whole");
  const auto ask = QZ_GetHidBinFileVIDPID;
  Open();
  Expect(1, ask(whole.path(), &vid, &pid), {{0, "VID:1234,HSPID:5678\n"}});
  Expect(0, ask(empty.path(), &vid, &pid), {{3, "Fw image is too short,size:0\n"}});
  Expect(0, ask(::testing::TempDir().c_str(), &vid, &pid),
         {{3, Text("Exception:%s\n", std::ios_base::failure("ios_base::failbit set").what())}});
  Expect(0, ask(missing.c_str(), &vid, &pid), {{3, "Invalidate fw path,path:" + missing + "\n"}});
  Expect(0, ask(nullptr, &vid, &pid), {{3, "Invalidate parameter\n"}});
  Expect(0, ask(whole.path(), nullptr, &pid), {{3, "Invalidate parameter\n"}});
  Expect(0, ask(whole.path(), &vid, nullptr), {{3, "Invalidate parameter\n"}});
  EXPECT_EQ(0x1234u, vid);
  EXPECT_EQ(0x5678u, pid);
  EXPECT_EQ(kOneDevice, Handles()) << "the device stays open";
}

}  // namespace
}  // namespace qzhid::test
