// Flash, code modes and what an update does to a hub.
#include <fstream>

#include "hub_bench.h"
#include "virtualhub/image.h"

namespace virtualhub::test {

namespace {

using FirmwareTest = HubBench;

Bytes NewImage(std::uint16_t version = 0x0210) { return BuildImage({.version = version}, 0x9000); }

// The same image with its seal's first byte gone, as of a maker that knows no seals.
Bytes UnsealedImage() {
  Bytes image = NewImage();
  image[0x7F80] = 0;
  return image;
}

TEST_F(FirmwareTest, StatusBlockSaysWhatRuns) {
  Install(OneHub(R"("isp_supported": true, "dual_bank": true,
      "image": {"vid": "0x1234", "pid": "0x5678", "chip": "0x4A26", "version": "0x0315"})"));
  Expect({{"40 02 1 0 7C 2E 0 0", "ok"},
          {kStatus, "12 34 00 00 56 78 00 00 00 00 03 15 00 02 00 82 00 00 00 00"}});
}

TEST_F(FirmwareTest, EnableValueGates) {
  Install(OneHub());
  ASSERT_TRUE(ResetToRom());
  const char* const gated[] = {kStatus, "C0 D8 0 0 0 0 1 0", "40 E8 0 1 0 0 0 0",
                               "40 C8 0 0 0 0 1 0: AA"};
  const std::size_t allowed[] = {0, 3, 3, 4};  // by value
  for (int value = 0; value < 4; ++value) {
    ASSERT_TRUE(Enable(value));
    for (std::size_t i = 0; i < 4; ++i) {
      EXPECT_EQ(i < allowed[value], Ask(gated[i]) != "failed") << value << ' ' << gated[i];
    }
  }
  Expect({{"40 02 1 0 7D 2E 0 0", "failed"}});  // wrong index
  ASSERT_TRUE(ResetToRom());
  Expect({{kStatus, "failed"}});  // a reset clears the value
}

TEST_F(FirmwareTest, FlashIsNor) {
  Install(OneHub());
  ASSERT_TRUE(Enable(3));
  EXPECT_FALSE(Erase()) << "a single bank cannot be erased while it runs";
  Expect({{"40 C8 0 0 0 0 1 0: 0", "failed"}});
  ASSERT_TRUE(ResetToRom() && Enable(3) && Erase());
  Expect({{"C0 D8 FD FF 1 0 3 0", "FF FF FF"},  // the whole bank is erased
          {"40 C8 FE FF 1 0 2 0: F0 3C", "ok"},
          {"40 C8 FE FF 1 0 2 0: 1F FF", "ok"},
          {"C0 D8 FD FF 1 0 3 0", "FF 10 3C"},
          {"40 C8 FF FF 1 0 2 0: 0 0", "failed"},  // behind the bank
          {"C0 D8 FF FF 1 0 2 0", "failed"}});
}

TEST_F(FirmwareTest, AnUpdateRunsTheNewImageIfItIsComplete) {
  const std::size_t all = 0x9000;
  struct {
    const char* what;
    Bytes image;
    std::size_t end, from;
    const char* more;
    bool isComplete;
  } const cases[] = {
      {"sealed", NewImage(), all, 0, kStatus, true},
      {"unsealed", UnsealedImage(), all, 0, kStatus, true},
      {"a place written twice", NewImage(), all, 0, "40 C8 0 2 0 0 1 0: 0", false},
      {"the last byte missing", NewImage(), all - 1, 0, kStatus, false},
      {"up to the end of the identity", UnsealedImage(), 0x7FA8, 0, kStatus, true},
      {"one byte of the identity missing", UnsealedImage(), 0x7FA7, 0, kStatus, false},
      {"the first chunk missing", UnsealedImage(), all, 128, kStatus, false}};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.what);
    Install(OneHub(R"("isp_supported": true)"));
    EXPECT_EQ("flash 01 02", State());
    ASSERT_TRUE(ResetToRom());
    EXPECT_EQ("rom 00 01", State());
    ASSERT_TRUE(WriteImage(c.image, c.end, c.from));
    EXPECT_NE("failed", Ask(c.more));
    EXPECT_EQ(c.isComplete, Validate());
    ASSERT_TRUE(ResetToFlash());
    EXPECT_EQ(c.isComplete ? "flash 02 10" : "rom 00 01", State());
  }
}

TEST_F(FirmwareTest, AnUnsealedImageMustNotBeCut) {
  Install(OneHub());
  ASSERT_TRUE(ResetToRom());
  const std::function<void()> cuts[] = {[&] { world->PowerLoss("hub", 10); },
                                        [&] { world->Unplug("hub", 10); },
                                        [&] { ASSERT_TRUE(ResetToRom()); }};
  for (const auto& cut : cuts) {
    ASSERT_TRUE(WriteImage(UnsealedImage()));
    cut();
    ASSERT_TRUE(Pause() && ResetToFlash());
    EXPECT_EQ("rom 00 01", State());
  }
}

TEST_F(FirmwareTest, PowerLossAndUnplugDuringWriting) {
  Install(R"({"devices": [{"name": "hub", "port": "1", "running": "rom"}], "faults": [
      {"on": "request", "request": "40/C8", "nth": 100, "action": "power_loss",
       "return_ms": 500}]})");
  EXPECT_FALSE(WriteImage(NewImage()));
  EXPECT_EQ(0u, world->HidInstance("hub"));
  ASSERT_TRUE(Pause());
  EXPECT_EQ("rom 00 01", State()) << "the old image is gone, the new one incomplete";
  Expect({{"C0 D8 80 31 0 0 1 0", "FF"}});  // the write that was cut off did not happen
  ASSERT_TRUE(WriteImage(NewImage()) && ResetToFlash());
  EXPECT_EQ("flash 02 10", State());
  ASSERT_TRUE(ResetToRom() && Enable(1));
  world->Unplug("hub", 10);
  ASSERT_TRUE(Pause());
  Expect({{kStatus, "failed"}});  // the enable value is lost
  EXPECT_EQ("rom 00 01", State()) << "an unplug keeps ROM code running";
  world->PowerLoss("hub", 10);
  ASSERT_TRUE(Pause());
  EXPECT_EQ("flash 02 10", State());
}

TEST_F(FirmwareTest, DualBankWritesTheBankThatDoesNotRun) {
  Install(OneHub(R"("dual_bank": true, "image": {"version": "0x0110"},
                    "second_image": {"version": "0x0100"})"));
  EXPECT_EQ("flash 01 10", State());
  const Bytes second = BuildImage({.version = 0x0100}, 0x10000);
  Expect({{"C0 D8 0 0 0 0 10 0", Hex(ByteView(second).first(16))}});
  ASSERT_TRUE(WriteImage(NewImage(), 0x1000) && ResetToFlash());
  EXPECT_EQ("flash 01 10", State()) << "an incomplete update leaves the running bank";
  ASSERT_TRUE(WriteImage(NewImage()) && ResetToFlash());
  EXPECT_EQ("flash 02 10", State());
  EXPECT_EQ(1u, world->hub("hub").activeBank());
  ASSERT_TRUE(WriteImage(NewImage(0x0300)));
  EXPECT_EQ("flash 02 10", State());
  world->PowerLoss("hub", 1);
  ASSERT_TRUE(Pause());
  EXPECT_EQ("flash 03 00", State()) << "a sealed image is complete without a proper end";
}

TEST_F(FirmwareTest, FlashSurvivesInTheStateFolder) {
  const auto folder = std::filesystem::path(::testing::TempDir()) / "virtualhub-state";
  std::filesystem::remove_all(folder);
  const std::string json = R"({"devices": [{"name": "hub", "port": "1"}], "state_folder": ")" +
                           folder.generic_string() + "\"}";
  Install(json);
  ASSERT_TRUE(ResetToRom() && WriteImage(NewImage()) && ResetToFlash());
  Install(json);
  EXPECT_EQ("flash 02 10", State());
  ASSERT_TRUE(ResetToRom() && WriteImage(UnsealedImage()));
  Install(json);
  EXPECT_EQ("rom 00 01", State()) << "the end of the process cut the session";

  UninstallWorld();
  const auto mode = std::ios::in | std::ios::out | std::ios::binary;
  std::fstream(folder / "hub.flash", mode).seekp(1000).put('!');
  ::testing::internal::CaptureStderr();
  Install(json);
  const std::string errors = ::testing::internal::GetCapturedStderr();
  EXPECT_NE(std::string::npos, errors.find("hub.flash: the state file is damaged"));
  EXPECT_EQ(1, std::count(errors.begin(), errors.end(), '\n'));
  EXPECT_EQ("flash 01 02", State());
}

TEST_F(FirmwareTest, IncompleteOrBlankStartsInRom) {
  for (const char* image : {"null", R"({"cut_behind": 65535})"}) {
    Install(OneHub(std::string("\"image\": ") + image));
    EXPECT_EQ("rom 00 01", State()) << image;
  }
}

}  // namespace

}  // namespace virtualhub::test
