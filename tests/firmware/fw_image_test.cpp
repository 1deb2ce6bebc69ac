// The identity fields of firmware images of any length.
#include "firmware/fw_image.h"

#include "device/hid_dev.h"
#include "discovery/node_matchers.h"
#include "support/layer_test.h"

namespace qzhid::test {
namespace {

class FwImageTest : public LayerTest {
 protected:
  /// An image whose every field has a value of its own.
  static FwBuffer Image(std::uint32_t chip, std::size_t size) {
    FwBuffer image(0x10000, 0x00);
    const std::pair<std::size_t, std::uint32_t> kFields[] = {
        {0x7EF9, 0xA1A2}, {0x7EFB, chip},   {0x7F12, 0x1234}, {0x7F16, 0xFEDC},
        {0x7F52, 0x1701}, {0x7F5E, 0x00FF}, {0x7F6E, 0x2603}, {0x7FA6, 0xE580}};
    for (const auto& [offset, value] : kFields) {
      image[offset] = static_cast<std::uint8_t>(value >> 8);
      image[offset + 1] = static_cast<std::uint8_t>(value & 0xFF);
    }
    image.resize(size);
    return image;
  }

  /// What was logged since the last call is that an image of that size is too short.
  void ExpectTooShort(const char* tag, std::size_t size) {
    const std::string text = "Fw image is too short,size:" + std::to_string(size) + "\n";
    EXPECT_EQ(LinesOf(tag, {{3, text}}), Logged());
    log.Clear();
  }
};

TEST_F(FwImageTest, TheVersionNeedsOnlyTheBytesItReads) {
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

TEST_F(FwImageTest, TheIdsAreReadTogetherOrNotAtAll) {
  FwImageIds ids;
  EXPECT_TRUE(ReadImageIds("Tag", Image(0, 0x7F18), ids));
  for (std::size_t size : {0x7F17u, 0x7F13u, 0u}) {
    EXPECT_FALSE(ReadImageIds("Tag", FwBuffer(size), ids));
    EXPECT_EQ(0x1234, ids.vid);
    EXPECT_EQ(0xFEDC, ids.hspid);
    ExpectTooShort("Tag", size);
  }
}

TEST_F(FwImageTest, ADeviceReadsTheVersionOfItsFirmwareBuffer) {
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
