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
  Install(R"({"devices": [{"name": "hub", "port": "1", "isp_supported": true, "dual_bank": true,
      "image": {"vid": "0x1234", "pid": "0x5678", "chip": "0x4A26", "version": "0x0315"}}]})");
  ASSERT_TRUE(Enable(1));
  const Bytes expected = {0x12, 0x34, 0, 0, 0x56, 0x78, 0, 0, 0, 0,
                          0x03, 0x15, 0, 2, 0,    0x82, 0, 0, 0, 0};
  EXPECT_EQ(expected, Status());
}

TEST_F(FirmwareTest, EnableValueGates) {
  Install(kOneHub);
  ASSERT_TRUE(ResetToRom());
  struct {
    int enable;
    bool status, read, erase, write;
  } const cases[] = {{0, false, false, false, false},
                     {1, true, true, true, false},
                     {2, true, true, true, false},
                     {3, true, true, true, true}};
  for (const auto& c : cases) {
    ASSERT_TRUE(Enable(static_cast<std::uint8_t>(c.enable)));
    EXPECT_EQ(c.status, !Status().empty()) << c.enable;
    EXPECT_EQ(c.read, !ReadFlash(0, 4).empty()) << c.enable;
    EXPECT_EQ(c.erase, Erase()) << c.enable;
    EXPECT_EQ(c.write, WriteFlash(0, {0xAA})) << c.enable;
  }
  EXPECT_FALSE(Sent({0x40, 0x02, 1, 0, 0x7D, 0x2E, 0, 0})) << "wrong index";
  ASSERT_TRUE(ResetToRom());
  EXPECT_TRUE(Status().empty()) << "a reset clears the value";
}

TEST_F(FirmwareTest, FlashIsNor) {
  Install(kOneHub);
  ASSERT_TRUE(Enable(3));
  EXPECT_FALSE(Erase()) << "a single bank cannot be erased while it runs";
  EXPECT_FALSE(WriteFlash(0, {0}));
  ASSERT_TRUE(ResetToRom() && Enable(3));
  ASSERT_TRUE(Erase());
  EXPECT_EQ(Bytes(3, 0xFF), ReadFlash(0x1FFFD, 3)) << "the whole bank is erased";
  EXPECT_TRUE(WriteFlash(0x1FFFE, {0xF0, 0x3C}));
  EXPECT_TRUE(WriteFlash(0x1FFFE, {0x1F, 0xFF}));
  EXPECT_EQ((Bytes{0xFF, 0x10, 0x3C}), ReadFlash(0x1FFFD, 3));
  EXPECT_FALSE(WriteFlash(0x1FFFF, {0, 0})) << "behind the bank";
  EXPECT_TRUE(ReadFlash(0x1FFFF, 2).empty());
}

TEST_F(FirmwareTest, UpdateRunsTheNewImage) {
  for (const Bytes& image : {NewImage(), UnsealedImage()}) {
    Install(R"({"devices": [{"name": "hub", "port": "1", "isp_supported": true}]})");
    EXPECT_EQ("0102F", State());
    ASSERT_TRUE(ResetToRom());
    EXPECT_EQ("0001R", State());
    ASSERT_TRUE(WriteImage(image));
    EXPECT_TRUE(Validate());
    ASSERT_TRUE(ResetToFlash());
    EXPECT_EQ("0210F", State());
  }
}

TEST_F(FirmwareTest, MissingEraseOrByteShows) {
  Install(R"({"devices": [{"name": "hub", "port": "1", "isp_supported": true}]})");
  ASSERT_TRUE(ResetToRom() && WriteImage(NewImage()));
  ASSERT_TRUE(WriteFlash(0x200, Bytes(4, 0)));
  EXPECT_FALSE(Validate());
  ASSERT_TRUE(ResetToFlash());
  EXPECT_EQ("0001R", State());
  ASSERT_TRUE(WriteImage(NewImage(), 0x9000 - 1));
  ASSERT_TRUE(ResetToFlash());
  EXPECT_EQ("0001R", State()) << "the last byte is missing";
}

TEST_F(FirmwareTest, UnsealedImageNeedsGaplessUncutWriting) {
  const Bytes image = UnsealedImage();
  Install(kOneHub);
  ASSERT_TRUE(ResetToRom() && WriteImage(image, 0x7FA7) && ResetToFlash());
  EXPECT_EQ("0001R", State()) << "one byte of the identity is missing";
  ASSERT_TRUE(WriteImage(image, 0x7FA8) && ResetToFlash());
  EXPECT_EQ("0210F", State());

  ASSERT_TRUE(ResetToRom() && Enable(3) && Erase());
  for (std::uint32_t at = 128; at < 0x8000; at += 128) {
    ASSERT_TRUE(WriteFlash(at, Bytes(&image[at], &image[at] + 128)));
  }
  ASSERT_TRUE(ResetToFlash());
  EXPECT_EQ("0001R", State()) << "the first chunk is missing";

  const std::function<void()> cuts[] = {[&] { world->PowerLoss("hub", 10); },
                                        [&] { world->Unplug("hub", 10); },
                                        [&] { ASSERT_TRUE(ResetToRom()); }};
  for (const auto& cut : cuts) {
    ASSERT_TRUE(WriteImage(image));
    cut();
    ASSERT_TRUE(Pause() && ResetToFlash());
    EXPECT_EQ("0001R", State());
  }
}

TEST_F(FirmwareTest, PowerLossAndUnplugDuringWriting) {
  Install(kOneHub);
  ASSERT_TRUE(ResetToRom());
  world->AddFault({.on = Fault::On::Request,
                   .requestType = 0x40,
                   .request = 0xC8,
                   .nth = 100,
                   .action = Fault::Action::PowerLoss,
                   .returnMs = 500});
  EXPECT_FALSE(WriteImage(NewImage()));
  EXPECT_EQ(0u, world->HidInstance("hub"));
  ASSERT_TRUE(Pause());
  EXPECT_EQ("0001R", State()) << "the old image is gone, the new one incomplete";
  EXPECT_EQ(Bytes(1, 0xFF), ReadFlash(99 * 128, 1)) << "the write cut off did not happen";
  ASSERT_TRUE(WriteImage(NewImage()) && ResetToFlash());
  EXPECT_EQ("0210F", State());
  ASSERT_TRUE(ResetToRom() && Enable(1));
  world->Unplug("hub", 10);
  ASSERT_TRUE(Pause());
  EXPECT_TRUE(Status().empty()) << "enable value lost";
  EXPECT_EQ("0001R", State()) << "an unplug keeps ROM code running";
  world->PowerLoss("hub", 10);
  ASSERT_TRUE(Pause());
  EXPECT_EQ("0210F", State());
}

TEST_F(FirmwareTest, DualBankWritesTheBankThatDoesNotRun) {
  Install(R"({"devices": [{"name": "hub", "port": "1", "dual_bank": true,
      "image": {"version": "0x0110"}, "second_image": {"version": "0x0100"}}]})");
  EXPECT_EQ("0110F", State());
  const Bytes second = BuildImage({.version = 0x0100}, 0x10000);
  EXPECT_EQ(Bytes(second.begin(), second.begin() + 16), ReadFlash(0, 16));
  ASSERT_TRUE(WriteImage(NewImage(), 0x1000) && ResetToFlash());
  EXPECT_EQ("0110F", State()) << "an incomplete update leaves the running bank";
  ASSERT_TRUE(WriteImage(NewImage()) && ResetToFlash());
  EXPECT_EQ("0210F", State());
  EXPECT_EQ(1u, world->hub("hub").activeBank());
  ASSERT_TRUE(WriteImage(NewImage(0x0300)));
  EXPECT_EQ("0210F", State());
  world->PowerLoss("hub", 1);
  ASSERT_TRUE(Pause());
  EXPECT_EQ("0300F", State()) << "a sealed image is complete without a proper end";
  EXPECT_EQ(0u, world->hub("hub").activeBank());
}

TEST_F(FirmwareTest, IncompleteOrBlankStartsInRom) {
  for (const char* image : {"null", R"({"cut_behind": 65535})"}) {
    Install(std::string(R"({"devices": [{"name": "hub", "port": "1", "image": )") + image + "}]}");
    EXPECT_EQ("0001R", State()) << image;
  }
}

TEST_F(FirmwareTest, FlashSurvivesInTheStateFolder) {
  const auto folder = std::filesystem::path(::testing::TempDir()) / "virtualhub-state";
  std::filesystem::remove_all(folder);
  const std::string json = R"({"devices": [{"name": "hub", "port": "1"}], "state_folder": ")" +
                           folder.generic_string() + "\"}";
  Install(json);
  ASSERT_TRUE(ResetToRom() && WriteImage(NewImage()) && ResetToFlash());
  Install(json);
  EXPECT_EQ("0210F", State());
  ASSERT_TRUE(ResetToRom() && WriteImage(UnsealedImage()));
  Install(json);
  EXPECT_EQ("0001R", State()) << "the end of the process cut the session";

  const auto file = folder / "hub.flash";
  UninstallWorld();
  std::fstream(file, std::ios::in | std::ios::out | std::ios::binary).seekp(1000).put('!');
  ::testing::internal::CaptureStderr();
  Install(json);
  const std::string errors = ::testing::internal::GetCapturedStderr();
  EXPECT_NE(std::string::npos, errors.find("hub.flash: the state file is damaged"));
  EXPECT_EQ(1, std::count(errors.begin(), errors.end(), '\n'));
  EXPECT_EQ("0102F", State());
}

}  // namespace

}  // namespace virtualhub::test
