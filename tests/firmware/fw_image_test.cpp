// Image files, and the identity fields of images of any length.
#include <sys/stat.h>

#include <filesystem>

#include "device/hid_dev.h"
#include "discovery/node_matchers.h"
#include "firmware/fw_image.h"
#include "firmware/hub_fw_finder.h"
#include "support/layer_test.h"

namespace qzhid::test {
namespace {

class FirmwareTest : public LayerTest {
 protected:
  bool Load(const std::string& path) {
    constexpr const char* kTag = "CHubFwFinder::LoadFwbin2Buf";
    log.Clear();
    const bool isLoaded = CHubFwFinder(path).LoadFwbin2Buf(image);
    const std::pair<int, std::string> last(
        isLoaded ? 0 : 1,
        isLoaded ? "load fw to buf return success.\n" : "load fw to buf return failed.\n");
    EXPECT_EQ(LinesOf(kTag, {{0, "Current fw path is " + path + ".\n"}, last}), Logged());
    return isLoaded;
  }

  /// An image whose every field has a value of its own.
  static FwBuffer Image(std::uint32_t chip, std::size_t size) {
    FwBuffer whole(0x10000, 0x00);
    const std::pair<std::size_t, std::uint32_t> kFields[] = {
        {0x7EF9, 0xA1A2}, {0x7EFB, chip},   {0x7F12, 0x1234}, {0x7F16, 0xFEDC},
        {0x7F52, 0x1701}, {0x7F5E, 0x00FF}, {0x7F6E, 0x2603}, {0x7FA6, 0xE580}};
    for (const auto& [offset, value] : kFields) {
      whole[offset] = static_cast<std::uint8_t>(value >> 8);
      whole[offset + 1] = static_cast<std::uint8_t>(value & 0xFF);
    }
    whole.resize(size);
    return whole;
  }

  /// What was logged since the last call is that an image of that size is too short.
  void ExpectTooShort(const char* tag, std::size_t size) {
    const std::string text = "Fw image is too short,size:" + std::to_string(size) + "\n";
    EXPECT_EQ(LinesOf(tag, {{3, text}}), Logged());
    log.Clear();
  }

  FwBuffer image = {1, 2, 3};
};

TEST_F(FirmwareTest, AFileOfAnyLengthReplacesTheOldImage) {
  for (std::size_t size : {1u, 65535u, 65537u, 17u * 1024 * 1024 + 1}) {
    SCOPED_TRACE(size);
    Bytes bytes(size);  // with every byte value, line ends and end-of-file marks too
    for (std::size_t i = 0; i < size; ++i) bytes[i] = static_cast<std::uint8_t>(26 - i - i / 256);
    EXPECT_TRUE(Load(TempFile(bytes).path()));
    EXPECT_TRUE(bytes == image);
  }
}

TEST_F(FirmwareTest, AnythingButAWholeRegularFileIsRejectedAndKeepsTheOldImage) {
  const TempFile empty({});
  const std::string pipe = UniquePath("pipe"), link = UniquePath("link");
  std::remove(pipe.c_str());  // of a run that was stopped
  ASSERT_EQ(0, mkfifo(pipe.c_str(), 0600));
  std::filesystem::create_symlink(pipe, link);
  const std::string paths[] = {
      empty.path(),
      UniquePath("missing"),
      ::testing::TempDir(),
      "",
      pipe,
      link,
      "/dev/zero",
      "/dev/tty",
      "/proc/self/mem",                                // cannot be read
      "/proc/self/status",                             // is longer than it says
      "/sys/kernel/mm/transparent_hugepage/enabled"};  // is shorter than it says
  for (const std::string& path : paths) {
    SCOPED_TRACE(path);
    EXPECT_FALSE(Load(path));
    EXPECT_EQ((FwBuffer{1, 2, 3}), image);
  }
  std::filesystem::remove(link);
  std::filesystem::remove(pipe);
}

TEST_F(FirmwareTest, TheVersionNeedsOnlyTheBytesItReads) {
  const std::tuple<std::uint32_t, std::uint8_t, std::uint16_t, std::size_t> cases[] = {
      // chip, mode, version, bytes needed
      {0x4A17, 0, 0x1701, 0x7F54}, {0x4A26, 0, 0x2603, 0x7F70}, {0x93E5, 0, 0xE580, 0x7FA8},
      {0x174A, 0, 0x00FF, 0x7F60}, {0x4A26, 2, 0x2603, 0x7F70}, {0x93E5, 1, 0xA1A2, 0x7EFB}};
  for (const auto& [chip, mode, expected, needed] : cases) {
    SCOPED_TRACE(::testing::Message() << std::hex << chip << " mode " << int{mode});
    std::uint16_t version = 0;
    EXPECT_TRUE(ReadImageVersion("Tag", Image(chip, needed), mode, version));
    EXPECT_EQ(expected, version);
    for (std::size_t size : {needed - 1, std::size_t{0x7EFA}, std::size_t{0}}) {
      EXPECT_FALSE(ReadImageVersion("Tag", Image(chip, size), mode, version));
      EXPECT_EQ(expected, version);
      ExpectTooShort("Tag", size);
    }
  }
}

TEST_F(FirmwareTest, TheIdsAreReadTogetherOrNotAtAll) {
  FwImageIds ids;
  EXPECT_TRUE(ReadImageIds("Tag", Image(0, 0x7F18), ids));
  for (std::size_t size : {0x7F17u, 0x7F13u, 0u}) {
    EXPECT_FALSE(ReadImageIds("Tag", FwBuffer(size), ids));
    EXPECT_EQ(0x1234, ids.vid);
    EXPECT_EQ(0xFEDC, ids.hspid);
    ExpectTooShort("Tag", size);
  }
}

TEST_F(FirmwareTest, ADeviceReadsTheVersionOfItsFirmwareBuffer) {
  CHidDev dev{NodeMatchers()};
  std::uint16_t version = 0xBEEF;
  EXPECT_FALSE(dev.GetBinVersion(&version, 0));
  EXPECT_EQ(0xBEEF, version);
  EXPECT_THAT(Logged(), ::testing::IsEmpty()) << "an empty buffer is worth no line";
  dev.SetFwBuffer(Image(0x4A26, 0x7F6F));
  EXPECT_FALSE(dev.GetBinVersion(&version, 0));
  ExpectTooShort("CHidDev::GetBinVersion", 0x7F6F);
  EXPECT_TRUE(dev.GetBinVersion(&version, 1));
  EXPECT_EQ(0xA1A2, version);
}

}  // namespace
}  // namespace qzhid::test
