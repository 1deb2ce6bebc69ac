// The identity fields of firmware images, at the borders of what is there.
#include "firmware/fw_image.h"

#include "device/hid_dev.h"
#include "support/library_test.h"

namespace qzhid::test {
namespace {

class FwImageTest : public LibraryTest {
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

  /// The lines since the last call, which stand for an image of that size.
  void ExpectTooShort(const char* tag, std::size_t size) {
    const std::string text = "Fw image is too short,size:" + std::to_string(size) + "\n";
    EXPECT_EQ((std::vector{LogLine{3, tag, text}}), log.lines);
    log.Clear();
  }
};

TEST_F(FwImageTest, TheVersionNeedsOnlyTheBytesItReads) {
  const auto expect = [&](std::uint32_t chip, std::uint8_t mode, std::uint16_t expected,
                          std::size_t needed) {
    SCOPED_TRACE(::testing::Message() << std::hex << chip << " mode " << int{mode});
    for (std::size_t size : {std::size_t{0x10000}, needed}) {
      std::uint16_t version = 0;
      EXPECT_TRUE(ReadImageVersion("Tag", Image(chip, size), mode, version));
      EXPECT_EQ(expected, version);
    }
    EXPECT_TRUE(log.lines.empty());
    for (std::size_t size : {needed - 1, std::size_t{0x7EFA}, std::size_t{1}, std::size_t{0}}) {
      std::uint16_t version = 0xBEEF;
      EXPECT_FALSE(ReadImageVersion("Tag", Image(chip, size), mode, version));
      EXPECT_EQ(0xBEEF, version);
      ExpectTooShort("Tag", size);
    }
  };
  expect(0x4A17, 0, 0x1701, 0x7F54);
  expect(0x4A26, 0, 0x2603, 0x7F70);
  expect(0x93E5, 0, 0xE580, 0x7FA8);
  expect(0x1234, 0, 0x00FF, 0x7F60);
  expect(0x174A, 0, 0x00FF, 0x7F60);
  expect(0x4A26, 2, 0x2603, 0x7F70);
  expect(0x93E5, 1, 0xA1A2, 0x7EFB);
}

TEST_F(FwImageTest, TheIdsAreReadTogetherOrNotAtAll) {
  FwImageIds ids;
  EXPECT_TRUE(ReadImageIds("Tag", Image(0, 0x7F18), ids));
  EXPECT_EQ(0x1234, ids.vid);
  EXPECT_EQ(0xFEDC, ids.hspid);
  for (std::size_t size : {0x7F17u, 0x7F14u, 0x7F13u, 0u}) {
    ids = {1, 2};
    EXPECT_FALSE(ReadImageIds("Tag", Image(0, size), ids));
    EXPECT_TRUE(ids.vid == 1 && ids.hspid == 2);
    ExpectTooShort("Tag", size);
  }
}

TEST_F(FwImageTest, ADeviceReadsTheVersionOfItsFirmwareBuffer) {
  CHidDev dev;
  std::uint16_t version = 0xBEEF;
  EXPECT_FALSE(dev.GetBinVersion(&version, 0));
  EXPECT_TRUE(log.lines.empty()) << "nothing is said of an empty buffer";
  dev.SetFwBuffer(Image(0x4A26, 0x7F6F));
  EXPECT_FALSE(dev.GetBinVersion(&version, 0));
  EXPECT_EQ(0xBEEF, version);
  ExpectTooShort("CHidDev::GetBinVersion", 0x7F6F);
  EXPECT_TRUE(dev.GetBinVersion(&version, 1));
  EXPECT_EQ(0xA1A2, version);
  dev.SetFwBuffer(Image(0x4A26, 0x7F70));
  EXPECT_TRUE(dev.GetBinVersion(&version, 0));
  EXPECT_EQ(0x2603, version);
}

/// Delivers two blocks, then breaks.
class BreakingBuffer final : public std::streambuf {
  int_type underflow() override {
    if (m_nBlocks++ == 2) throw std::runtime_error("broken");
    setg(m_Block, m_Block, m_Block + 3);
    return traits_type::to_int_type(m_Block[0]);
  }

  int m_nBlocks = 0;
  char m_Block[3] = {1, 2, 3};
};

TEST_F(FwImageTest, WhatWasReadBeforeAnErrorCounts) {
  BreakingBuffer buffer;
  std::istream stream(&buffer);
  EXPECT_EQ((FwBuffer{1, 2, 3, 1, 2, 3}), ReadWhole(stream));
}

}  // namespace
}  // namespace qzhid::test
