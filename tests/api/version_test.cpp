// Versions and ids of hubs and of image files.
#include "api/api_test.h"

namespace qzhid::test {
namespace {

class VersionTest : public ApiTest {
 protected:
  /// A call that succeeds or fails with these lines of its own and sends these requests.
  void Expect(const char* name, std::uint8_t expected, std::uint8_t result, const Lines& lines,
              const std::vector<std::uint16_t>& keys) {
    EXPECT_EQ(expected, result);
    EXPECT_EQ(lines, log.Of(name));
    EXPECT_EQ(keys, Keys());
    ClearRecords();
  }
  static void Put(Bytes& image, std::size_t offset, std::uint16_t value) {
    virtualhub::PutBigEndian16(image, offset, value);
  }

  std::uint16_t version = 0xEEEE;
  std::uint32_t vid = 0xEEEEEEEE, pid = 0xDDDDDDDD;
};

TEST_F(VersionTest, OfTheHub) {
  constexpr const char* kTag = "QZ_ReadDevVersion";
  const LogLine begin = {0, kTag, "Hid Dev\n"};
  const LogLine failure = {3, kTag, "Read Dev Version Fail\n"};
  const std::vector<std::uint16_t> keys = {0x4002, 0xC009, 0x4002, 0xC009};
  InstallDevices(R"({"name": "hub", "port": "3.1", "image": {"version": "0xA1B2"}})");
  Open();
  Expect(kTag, 1, QZ_ReadDevVersion(handle, &version), {begin}, keys);
  EXPECT_EQ(0xA1B2, version);
  EXPECT_EQ(0, OpenHandles());
  world->AddFault(Failing(Fault::On::Request, 5, 0xC009));
  Expect(kTag, 0, QZ_ReadDevVersion(handle, &version), {begin, failure}, keys);
  EXPECT_EQ(0, QZ_ReadDevVersion(handle, nullptr));
  InstallDevices(R"({"name": "hub", "port": "3.1", "running": "rom"})");
  Open();
  Expect(kTag, 0, QZ_ReadDevVersion(handle, &version), {begin, failure}, {0x4002, 0xC009});
  EXPECT_EQ(0xA1B2, version) << "a failure leaves it as it is";
}

TEST_F(VersionTest, OfAnImageWhateverTheHubRuns) {
  constexpr const char* kTag = "QZ_ReadBinVersion";
  const LogLine begin = {0, kTag, "Hid Dev\n"};
  const LogLine failure = {3, kTag, "Read Bin Version Fail\n"};
  const struct {
    std::uint16_t chip, expected;
    std::ptrdiff_t end;  // first byte behind the version
  } cases[] = {{0x4A17, 0x1112, 0x7F54},
               {0x4A26, 0x3132, 0x7F70},
               {0x93E5, 0x4142, 0x7FA8},
               {0x1234, 0x2122, 0x7F60}};
  Bytes image(0x8000, 0);
  Put(image, 0x7F52, 0x1112);
  Put(image, 0x7F5E, 0x2122);
  Put(image, 0x7F6E, 0x3132);
  Put(image, 0x7FA6, 0x4142);
  Open();
  for (const auto& chip : cases) {
    Put(image, 0x7EFB, chip.chip);
    const TempFile whole({image.begin(), image.begin() + chip.end}, "whole");
    const TempFile cut({image.begin(), image.begin() + chip.end - 1}, "cut");
    Expect(kTag, 1, QZ_ReadBinVersion(handle, whole.path(), &version), {begin}, {});
    EXPECT_EQ(chip.expected, version);
    Expect(kTag, 0, QZ_ReadBinVersion(handle, cut.path(), &version), {begin, failure}, {});
    EXPECT_EQ(chip.expected, version) << "a failure leaves it as it is";
  }
  const TempFile empty({}, "empty");
  Expect(kTag, 0, QZ_ReadBinVersion(handle, empty.path(), &version), {begin, failure}, {});
  EXPECT_EQ(0, QZ_ReadBinVersion(handle, empty.path(), nullptr));
  const std::string missing = UniquePath("missing.bin");
  ClearRecords();
  Expect(kTag, 0, QZ_ReadBinVersion(handle, missing.c_str(), &version),
         {{3, kTag, Text("Fw File is Not Exist,FWPath:%s\n", missing.c_str())}}, {});
  EXPECT_EQ(0, QZ_ReadBinVersion(handle, nullptr, &version));
}

TEST_F(VersionTest, IdsOfTheHub) {
  constexpr const char* kTag = "QZ_GetHubVIDPIDFromHidDevice";
  const std::vector<std::uint16_t> keys = {0x4002, 0x4006, 0xC009, 0x4006};
  InstallDevices(R"({"name": "hub", "port": "3.1", "image": {"vid": "0xA1B2", "pid": "0x0C0D"}})");
  List();
  const auto number = world->HidInstance("hub");
  const auto ask = [&](std::uint32_t instance) {
    return QZ_GetHubVIDPIDFromHidDevice(instance, &vid, &pid);
  };
  ClearRecords();
  world->AddFault(Failing(Fault::On::Request, 77, 0xC009));
  Expect(kTag, 0, ask(number), {{3, kTag, "Get status failed,Error Code:77\n"}}, keys);
  Expect(kTag, 0, ask(4711), {{3, kTag, "Open hid device failed,DevInst:4711\n"}}, {});
  EXPECT_EQ(0, QZ_GetHubVIDPIDFromHidDevice(number, nullptr, &pid));
  Expect(kTag, 0, QZ_GetHubVIDPIDFromHidDevice(number, &vid, nullptr),
         Lines(2, {3, kTag, "Invalidate parameter\n"}), {});
  EXPECT_EQ(0xEEEEEEEE, vid);
  EXPECT_EQ(0xDDDDDDDD, pid);
  world->ClearFaults();
  Expect(kTag, 1, ask(number), {{0, kTag, "Device VID/PID:A1B2/0C0D\n"}}, keys);
  EXPECT_EQ(0xA1B2u, vid);
  EXPECT_EQ(0x0C0Du, pid);
  EXPECT_EQ(0, OpenHandles());
}

TEST_F(VersionTest, IdsOfAnImage) {
  constexpr const char* kTag = "QZ_GetHidBinFileVIDPID";
  Bytes image(0x7F18, 0xAA);
  Put(image, 0x7F12, 0x1234);
  Put(image, 0x7F16, 0x5678);
  const TempFile whole(image, "whole");
  image.pop_back();
  const TempFile cut(image, "cut");
  const std::string missing = UniquePath("missing.bin");
  const auto ask = [&](const char* path) { return QZ_GetHidBinFileVIDPID(path, &vid, &pid); };
  Open();
  Expect(kTag, 0, ask(nullptr), {{3, kTag, "Invalidate parameter\n"}}, {});
  EXPECT_EQ(0, QZ_GetHidBinFileVIDPID(whole.path(), nullptr, &pid));
  EXPECT_EQ(0, QZ_GetHidBinFileVIDPID(whole.path(), &vid, nullptr));
  ClearRecords();
  Expect(kTag, 0, ask(missing.c_str()),
         {{3, kTag, Text("Invalidate fw path,path:%s\n", missing.c_str())}}, {});
  Expect(kTag, 0, ask(cut.path()), {{3, kTag, "Fw image is too short,size:32535\n"}}, {});
  EXPECT_EQ(0xEEEEEEEE, vid) << "also when it could be read";
  EXPECT_EQ(0xDDDDDDDD, pid);
  Expect(kTag, 1, ask(whole.path()), {{0, kTag, "VID:1234,HSPID:5678\n"}}, {});
  EXPECT_EQ(0x1234u, vid);
  EXPECT_EQ(0x5678u, pid);
  EXPECT_EQ(0u, QZ_HidGPIOW(handle, 1, 1)) << "the device stays open";
}

}  // namespace
}  // namespace qzhid::test
