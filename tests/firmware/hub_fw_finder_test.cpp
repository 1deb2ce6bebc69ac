// Loading an image file.
#include "firmware/hub_fw_finder.h"

#include "support/library_test.h"

namespace qzhid::test {
namespace {

using ::testing::ElementsAre;

constexpr const char* kTag = "CHubFwFinder::LoadFwbin2Buf";

class HubFwFinderTest : public LibraryTest {
 protected:
  bool Load(const std::string& path) {
    log.Clear();
    const bool loaded = CHubFwFinder(path).LoadFwbin2Buf(image);
    EXPECT_THAT(log.lines,
                ElementsAre(LogLine{0, kTag, "Current fw path is " + path + ".\n"},
                            loaded ? LogLine{0, kTag, "load fw to buf return success.\n"}
                                   : LogLine{1, kTag, "load fw to buf return failed.\n"}));
    return loaded;
  }

  FwBuffer image = {1, 2, 3};
};

TEST_F(HubFwFinderTest, AFileReplacesTheOldContentsWhole) {
  for (std::size_t size : {1u, 2u, 4096u, 65535u, 65536u, 65537u, 300000u}) {
    SCOPED_TRACE(size);
    virtualhub::Bytes bytes(size);  // with every byte value, line ends and end-of-file marks too
    for (std::size_t i = 0; i < size; ++i) bytes[i] = static_cast<std::uint8_t>(26 - i - i / 256);
    EXPECT_TRUE(Load(TempFile(bytes).path()) && bytes == image);
  }
}

TEST_F(HubFwFinderTest, WithoutAByteTheOldContentsStay) {
  const TempFile empty({});
  for (const std::string& path :
       {std::string(empty.path()), UniquePath("missing"), ::testing::TempDir(), std::string()}) {
    EXPECT_FALSE(Load(path));
    EXPECT_THAT(image, ElementsAre(1, 2, 3));
  }
}

TEST_F(HubFwFinderTest, AFileWithoutEndIsRefused) {
  EXPECT_FALSE(CHubFwFinder("/dev/zero").LoadFwbin2Buf(image));
  EXPECT_THAT(image, ElementsAre(1, 2, 3));
  EXPECT_FALSE(IsTooLong(kTag, FwBuffer(kMaxImageSize)));
}

}  // namespace
}  // namespace qzhid::test
