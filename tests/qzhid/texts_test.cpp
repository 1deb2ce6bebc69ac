#include "common/texts.h"

#include <gtest/gtest.h>

namespace tools {

TEST(HexTextTest, HasTwoDigitsForEachByte) {
  EXPECT_EQ("00ff1a", HexText(Bytes{0x00, 0xFF, 0x1A}));
  EXPECT_EQ("0a15", HexText(std::uint16_t{0x0A15}));
}

TEST(HexTextTest, ANumberHasOneToFourDigits) {
  const std::pair<const char*, std::optional<std::uint16_t>> rows[] = {
      {"0", 0},   {"0x2e7C", 0x2E7C}, {"0XFFFF", 0xFFFF}, {"818", 0x818},
      {"", {}},   {"0x", {}},         {"12345", {}},      {"00001", {}},
      {"1g", {}}, {"-1", {}},         {" 1", {}},         {"0x0x1", {}}};
  for (const auto& [text, number] : rows) EXPECT_EQ(number, ParseHexNumber(text)) << text;
}

TEST(HexTextTest, BytesMayHaveBlanksAndCommasBetweenThem) {
  EXPECT_EQ(Bytes{}, ParseHexBytes(""));
  EXPECT_EQ(Bytes{0xFF}, ParseHexBytes("0xFf"));
  EXPECT_EQ((Bytes{0x01, 0xA0, 0xFF}), ParseHexBytes("01, a0ff"));
  for (const char* bad : {"1", "0g", "+1", "01 0xff"}) EXPECT_FALSE(ParseHexBytes(bad)) << bad;
}

}  // namespace tools
