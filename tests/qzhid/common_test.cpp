// What the tools share: whole files, and bytes as text.
#include "common/files.h"
#include "common/texts.h"

#include "support/temp_file.h"

namespace tools {

class FilesTest : public ::testing::Test {
 protected:
  /// Why a file cannot be read or written; empty when it can.
  template <typename Step>
  static std::string Refusal(Step step) {
    try {
      step();
      return "";
    } catch (const FileError& error) {
      return error.what();
    }
  }
  const qzhid::test::ScratchFolder folder;
  const std::string file = folder.At("a");
};

TEST_F(FilesTest, AFileIsReplacedAsAWholeOrStays) {
  WriteFile(file, Bytes{1, 2, 3});
  EXPECT_EQ((Bytes{1, 2, 3}), ReadFile(file, 3));
  WriteFile(file, Bytes{});
  EXPECT_EQ(Bytes{}, ReadFile(file, 3));
  std::filesystem::remove(file);
  std::filesystem::create_directory(file);
  EXPECT_EQ("cannot be created: Is a directory", Refusal([this] { WriteFile(file, Bytes{1}); }));
  EXPECT_EQ("cannot be created: No such file or directory",
            Refusal([this] { WriteFile(file + "/b/c", Bytes{1}); }));
  const std::filesystem::directory_iterator left(folder.path);
  EXPECT_TRUE(left->is_directory());
  EXPECT_EQ(1, std::distance(begin(left), end(left))) << "no temporary file";
}

TEST_F(FilesTest, OnlyWholeFilesUpToALimitAreRead) {
  WriteFile(file, Bytes(70000, 7));
  EXPECT_EQ(Bytes(70000, 7), ReadFile(file, 70000));
  EXPECT_EQ("has more than 69999 bytes", Refusal([this] { ReadFile(file, 69999); }));
  EXPECT_EQ("has more than 5 bytes", Refusal([] { ReadFile("/dev/zero", 5); }));
  EXPECT_EQ("is a folder", Refusal([this] { ReadFile(folder.path.string(), 5); }));
  EXPECT_EQ("cannot be opened: No such file or directory",
            Refusal([this] { ReadFile(file + "x", 5); }));
}

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
