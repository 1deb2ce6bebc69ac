// Flash, the code that runs, and what an update does to a hub.
#include "hub_bench.h"
#include "support/temp_file.h"
#include "virtualhub/hub/image.h"

namespace virtualhub::test {

namespace {

using FirmwareTest = HubBench;

const std::string kRead = "C0 D8 0 0 0 0 1 0", kWrite = "40 C8 0 0 0 0 1 0: 0";

Bytes NewImage() { return BuildImage({.version = 0x0210}, 0x9000); }

// The same without its seal, as of a maker that knows no seals.
Bytes UnsealedImage() {
  Bytes image = NewImage();
  image[0x7F80] = 0;
  return image;
}

TEST_F(FirmwareTest, TheStatusBlockSaysWhatRuns) {
  const std::pair<std::string, std::string> rows[] = {
      {R"("vid": "0x1234", "pid": "0x5678", "chip": "0x4A26", "version": "0x0315")",
       "12 34 00 00 56 78 00 00 00 00 03 15 00 02 00 82 00 00 00 00"},
      {R"("cut_after": 65535)", "2E 7C 00 00 08 10 00 00 00 00 00 01 00 02 00 80 00 00 00 00"}};
  for (const auto& [image, status] : rows) {
    Install(OneHub(R"("isp_supported": true, "dual_bank": true, "image": {)" + image + "}"));
    EXPECT_EQ("ok, " + status, Ask({kEnable1, kStatus}));
  }
}

TEST_F(FirmwareTest, ARequestNeedsItsEnableValue) {
  Install(OneHub());
  EXPECT_EQ("ok, stall, stall", Ask({kEnable3, "40 02 1 0 7D 2E 0 0", "40 02 4 0 7C 2E 0 0"}));
  ASSERT_TRUE(Reset(kToRom)) << "which clears the enable value";
  const std::string status1 = "C0 09 0 0 0 0 1 0";
  EXPECT_EQ("stall, stall, stall, stall", Ask({status1, kErase, kRead, kWrite}));
  EXPECT_EQ("ok, 2E, ok, FF, stall", Ask({kEnable1, status1, kErase, kRead, kWrite}));
  EXPECT_EQ("ok, stall, 2E", Ask({"40 02 2 0 7C 2E 0 0", kWrite, status1}));
  EXPECT_EQ("ok, ok, 00", Ask({kEnable3, kWrite, kRead}));
  EXPECT_EQ("ok, stall", Ask({"40 02 0 0 7C 2E 0 0", status1}));
}

TEST_F(FirmwareTest, AnEraseSetsBitsAndAWriteOnlyClearsThem) {
  Install(OneHub());
  EXPECT_EQ("ok, stall, stall", Ask({kEnable3, kErase, kWrite})) << "of the running bank";
  ASSERT_TRUE(Reset(kToRom));
  const std::string end = "C0 D8 FD FF 1 0 3 0";
  EXPECT_EQ("ok, ok, FF FF FF", Ask({kEnable3, kErase, end}));
  EXPECT_EQ("ok, ok, FF 10 3C",
            Ask({"40 C8 FE FF 1 0 2 0: F0 3C", "40 C8 FE FF 1 0 2 0: 1F FF", end}));
  EXPECT_EQ("stall, stall", Ask({"40 C8 FF FF 1 0 2 0: 0 0", "C0 D8 FF FF 1 0 2 0"}));
}

TEST_F(FirmwareTest, AnUpdateRunsTheNewImageIfItIsComplete) {
  const std::size_t all = 0x9000;
  const std::tuple<const char*, Bytes, std::size_t, std::size_t, std::string, bool> cases[] = {
      {"sealed", NewImage(), all, 0, kStatus, true},
      {"unsealed", UnsealedImage(), all, 0, kStatus, true},
      {"another byte in it", NewImage(), all, 0, kWrite, false},
      {"the last byte missing", NewImage(), all - 1, 0, kStatus, false},
      {"an early part written again", UnsealedImage(), all, 0, "40 C8 0 0 0 0 1 0: FF", true},
      {"up to the end of the identity", UnsealedImage(), 0x7FA8, 0, kStatus, true},
      {"one byte of the identity missing", UnsealedImage(), 0x7FA7, 0, kStatus, false},
      {"the first chunk missing", UnsealedImage(), all, 128, kStatus, false}};
  for (const auto& [what, image, end, from, more, isComplete] : cases) {
    SCOPED_TRACE(what);
    Install(OneHub(R"("isp_supported": true)"));
    ASSERT_TRUE(Reset(kToRom));
    WriteImage(image, end, from);
    EXPECT_NE("stall", Ask(more));
    EXPECT_EQ(isComplete ? "ok" : "stall", Ask("40 D9 1 0 0 0 0 0")) << "the hub's own check";
    ASSERT_TRUE(Reset(kToFlash));
    EXPECT_EQ(isComplete ? "flash 02 10" : "rom 00 01", State());
  }
}

TEST_F(FirmwareTest, AWriteThatWasCutOffNeedsASeal) {
  Install(OneHub());
  ASSERT_TRUE(Reset(kToRom));
  const std::function<void()> cuts[] = {[&] { Ask(kToRom); }, [&] { machine->Unplug("hub", 10); },
                                        [&] { machine->PowerLoss("hub", 10); }};
  for (const auto& cut : cuts) {
    WriteImage(UnsealedImage());
    cut();
    ASSERT_TRUE(Pause());
    EXPECT_EQ("stall", Ask(kStatus)) << "the enable value is lost";
    ASSERT_TRUE(Reset(kToFlash));
    EXPECT_EQ("rom 00 01", State());
  }
  WriteImage(NewImage());
  cuts[2]();
  ASSERT_TRUE(Pause());
  EXPECT_EQ("flash 02 10", State());
}

TEST_F(FirmwareTest, DualBankWritesTheBankThatDoesNotRun) {
  Install(OneHub(R"("dual_bank": true, "image": {"version": "0x0110"},
                    "second_image": {"version": "0x0100"})"));
  EXPECT_EQ("flash 01 10", State());
  WriteImage(NewImage(), 0x1000);
  ASSERT_TRUE(Reset(kToFlash));
  EXPECT_EQ("flash 01 10", State()) << "an incomplete update leaves the running bank";
  WriteImage(NewImage());
  ASSERT_TRUE(Reset(kToFlash));
  EXPECT_EQ("flash 02 10", State());
}

class StateFolderTest : public HubBench {
 protected:
  ~StateFolderTest() override { UninstallMachine(); }

  std::string Json(const std::string& bankSize = "131072") {
    return R"({"time": "virtual", "state_folder": ")" + folder.path.string() + "\", " +
           OneHub(R"("bank_size": )" + bankSize).substr(1);
  }
  /// Installs such a machine, or none; what that prints on standard error.
  std::string Errors(const std::string& json) {
    ::testing::internal::CaptureStderr();
    json.empty() ? UninstallMachine() : Install(json);
    return ::testing::internal::GetCapturedStderr();
  }

  const qzhid::test::ScratchFolder folder;
  const std::string file = folder.At("hub.flash");
};

TEST_F(StateFolderTest, TheNextMachineHasTheFlashAsTheOldOneLeftIt) {
  Install(Json());
  ASSERT_TRUE(Reset(kToRom));
  WriteImage(UnsealedImage());
  Install(Json());
  EXPECT_EQ("rom 00 01", State()) << "the end of the machine cuts a write off";
  WriteImage(NewImage());
  Install(Json());
  EXPECT_EQ("flash 02 10", State());
}

TEST_F(StateFolderTest, AResetSavesTheFlashAndAMachineThatChangedNothingSavesNothing) {
  Machine& unchanged = InstallMachine(Json());
  {
    Machine other(ReadScenario(Json()));
    machine = &other;
    ASSERT_TRUE(Reset(kToRom));
    WriteImage(NewImage());
    ASSERT_TRUE(Reset(kToFlash));
    EXPECT_EQ(0x0210, Machine(ReadScenario(Json())).hub("hub").Identity().version);
  }
  machine = &unchanged;
  Install(Json());
  EXPECT_EQ("flash 02 10", State());
}

TEST_F(StateFolderTest, AFileThatCannotBeUsedIsReportedAndNotUsed) {
  const std::string start = "virtualhub: the state file " + file;
  const std::string end = "; the hub starts with the image of the scenario\n";
  EXPECT_EQ("", Errors(Json()) + Errors(""));
  EXPECT_EQ(start + " belongs to a hub with another flash size" + end, Errors(Json("65536")));
  EXPECT_EQ("flash 01 02", State());
  EXPECT_EQ("", Errors(""));
  std::fstream(file, std::ios::in | std::ios::out).seekp(1000).put('!');
  EXPECT_EQ(start + " is damaged" + end, Errors(Json("65536")));
  std::filesystem::remove_all(folder.path);
  std::ofstream(folder.path) << "a file";
  EXPECT_EQ(start + " is in a folder that cannot be created: Not a directory\n", Errors(""));
}

}  // namespace

}  // namespace virtualhub::test
