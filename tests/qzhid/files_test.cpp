#include "common/files.h"

#include <gtest/gtest.h>

#include <fstream>

namespace tools {

namespace {

class FilesTest : public ::testing::Test {
 protected:
  FilesTest() {
    std::filesystem::remove_all(folder);
    std::filesystem::create_directory(folder);
  }
  ~FilesTest() override { std::filesystem::remove_all(folder); }

  std::size_t Entries() const {
    const std::filesystem::directory_iterator entries(folder);
    return static_cast<std::size_t>(std::distance(begin(entries), end(entries)));
  }
  // Why a file cannot be read or written; empty when it can.
  template <typename Step>
  static std::string Refusal(Step step) {
    try {
      step();
      return "";
    } catch (const FileError& error) {
      return error.what();
    }
  }

  const std::filesystem::path folder = ::testing::TempDir() + "tools-files";
  const std::string file = (folder / "a").string();
};

TEST_F(FilesTest, AFileIsReplacedAsAWhole) {
  WriteFile(file, Bytes{1, 2, 3});
  EXPECT_EQ((Bytes{1, 2, 3}), ReadFile(file, 3));
  WriteFile(file, Bytes{});
  EXPECT_EQ(Bytes{}, ReadFile(file, 3));
  EXPECT_EQ(1u, Entries()) << "no temporary file is left";
}

TEST_F(FilesTest, AFileThatCannotBeReplacedStays) {
  std::filesystem::create_directory(file);
  const std::string refusal = Refusal([this] { WriteFile(file, Bytes{1}); });
  EXPECT_EQ(0u, refusal.find("cannot be replaced: ")) << refusal;
  EXPECT_TRUE(std::filesystem::is_directory(file));
  EXPECT_EQ(1u, Entries()) << "no temporary file is left";
  EXPECT_EQ("cannot be created", Refusal([this] { WriteFile(file + "/b/c", Bytes{1}); }));
}

TEST_F(FilesTest, OnlyWholeFilesUpToALimitAreRead) {
  WriteFile(file, Bytes(70000, 7));
  EXPECT_EQ(Bytes(70000, 7), ReadFile(file, 70000));
  EXPECT_EQ("has more than 69999 bytes", Refusal([this] { ReadFile(file, 69999); }));
  EXPECT_EQ("has more than 5 bytes", Refusal([] { ReadFile("/dev/zero", 5); }));
  EXPECT_EQ("is a folder", Refusal([this] { ReadFile(folder.string(), 5); }));
  EXPECT_EQ("cannot be opened", Refusal([this] { ReadFile(file + "x", 5); }));
}

}  // namespace

}  // namespace tools
