// Loading an image file.
#include "firmware/hub_fw_finder.h"

#include <sys/stat.h>

#include <filesystem>

#include "support/layer_test.h"

namespace qzhid::test {
namespace {

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

TEST_F(HubFwFinderTest, AFileOfAnyLengthReplacesTheOldImage) {
  for (std::size_t size : {1u, 65535u, 65537u, 17u * 1024 * 1024 + 1}) {
    SCOPED_TRACE(size);
    Bytes bytes(size);  // with every byte value, line ends and end-of-file marks too
    for (std::size_t i = 0; i < size; ++i) bytes[i] = static_cast<std::uint8_t>(26 - i - i / 256);
    EXPECT_TRUE(Load(TempFile(bytes).path()));
    EXPECT_TRUE(bytes == image);
  }
}

TEST_F(HubFwFinderTest, AnythingButAWholeRegularFileIsRejectedAndKeepsTheOldImage) {
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

}  // namespace
}  // namespace qzhid::test
