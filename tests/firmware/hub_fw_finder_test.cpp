// Loading an image file.
#include "firmware/hub_fw_finder.h"

#include <sys/stat.h>

#include <filesystem>

#include "support/layer_test.h"

namespace qzhid::test {
namespace {

using ::testing::ElementsAre;

constexpr const char* kTag = "CHubFwFinder::LoadFwbin2Buf";

class HubFwFinderTest : public LayerTest {
 protected:
  bool Load(const std::string& path) {
    log.Clear();
    const bool loaded = CHubFwFinder(path).LoadFwbin2Buf(image);
    const std::pair<int, std::string> first{0, "Current fw path is " + path + ".\n"};
    EXPECT_EQ(loaded ? LinesOf(kTag, {first, {0, "load fw to buf return success.\n"}})
                     : LinesOf(kTag, {first, {1, "load fw to buf return failed.\n"}}),
              Logged());
    return loaded;
  }

  FwBuffer image = {1, 2, 3};
};

TEST_F(HubFwFinderTest, AFileReplacesTheOldImage) {
  for (std::size_t size : {1u, 2u, 4096u, 65535u, 65536u, 65537u, 300000u}) {
    SCOPED_TRACE(size);
    virtualhub::Bytes bytes(size);  // with every byte value, line ends and end-of-file marks too
    for (std::size_t i = 0; i < size; ++i) bytes[i] = static_cast<std::uint8_t>(26 - i - i / 256);
    EXPECT_TRUE(Load(TempFile(bytes).path()));
    EXPECT_EQ(bytes, image);
  }
}

TEST_F(HubFwFinderTest, AFileMayBeOfAnyLength) {
  const TempFile file({});
  std::filesystem::resize_file(file.path(), 17 * 1024 * 1024 + 1);
  EXPECT_TRUE(Load(file.path()));
  EXPECT_EQ(17u * 1024 * 1024 + 1, image.size());
}

TEST_F(HubFwFinderTest, AnythingButAWholeRegularFileIsRejectedAndKeepsTheOldImage) {
  const TempFile empty({});
  const std::string pipe = UniquePath("pipe"), link = UniquePath("link");
  std::remove(pipe.c_str());  // of a run that was stopped
  ASSERT_EQ(0, mkfifo(pipe.c_str(), 0600));
  std::filesystem::create_symlink(pipe, link);
  const std::pair<const char*, std::string> cases[] = {
      {"empty", empty.path()},
      {"missing", UniquePath("missing")},
      {"a folder", ::testing::TempDir()},
      {"no name", ""},
      {"a pipe that nobody writes", pipe},
      {"a link to it", link},
      {"a device without end", "/dev/zero"},
      {"a terminal", "/dev/tty"},
      {"a file that cannot be read", "/proc/self/mem"},
      {"a file that is longer than it says", "/proc/self/status"},
      {"a file that is shorter than it says", "/sys/kernel/mm/transparent_hugepage/enabled"}};
  for (const auto& [what, path] : cases) {
    SCOPED_TRACE(what);
    EXPECT_FALSE(Load(path));
    EXPECT_THAT(image, ElementsAre(1, 2, 3));
  }
  std::filesystem::remove(link);
  std::filesystem::remove(pipe);
}

}  // namespace
}  // namespace qzhid::test
