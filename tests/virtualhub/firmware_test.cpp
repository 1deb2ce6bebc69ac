// Flash, code modes and what an update does to a hub.
#include <fstream>

#include "hub_bench.h"
#include "support/temp_file.h"
#include "virtualhub/hub/image.h"

namespace virtualhub::test {

namespace {

using FirmwareTest = HubBench;

Bytes NewImage() { return BuildImage({.version = 0x0210}, 0x9000); }

// The same image with its seal's first byte gone, as of a maker that knows no seals.
Bytes UnsealedImage() {
  Bytes image = NewImage();
  image[0x7F80] = 0;
  return image;
}

TEST_F(FirmwareTest, TheStatusBlockSaysWhatRuns) {
  const std::string identity = R"("vid": "0x1234", "pid": "0x5678", "chip": "0x4A26")";
  const std::pair<std::string, std::string> cases[] = {
      {identity + R"(, "version": "0x0315")",
       "12 34 00 00 56 78 00 00 00 00 03 15 00 02 00 82 00 00 00 00"},
      {R"("cut_after": 65535)", "2E 7C 00 00 08 10 00 00 00 00 00 01 00 02 00 80 00 00 00 00"}};
  for (const auto& [image, status] : cases) {
    Install(OneHub(R"("isp_supported": true, "dual_bank": true, "image": {)" + image + "}"));
    ASSERT_TRUE(Enable(1));
    Expect({{kStatus, status}});
  }
}

TEST_F(FirmwareTest, ARequestNeedsItsEnableValue) {
  Install(OneHub());
  ASSERT_TRUE(Enable(3));
  ASSERT_TRUE(ResetToRom()) << "which clears the enable value";
  const std::pair<const char*, int> gated[] = {
      {kStatus, 1}, {"C0 D8 0 0 0 0 1 0", 1}, {kErase, 1}, {"40 C8 0 0 0 0 1 0: AA", 3}};
  for (int value = 0; value < 4; ++value) {
    if (value > 0) {
      ASSERT_TRUE(Enable(value));
    }
    for (const auto& [request, least] : gated) {
      EXPECT_EQ(value < least, Ask(request) == "stall") << request << " with " << value;
    }
  }
  Expect({{"40 02 1 0 7D 2E 0 0", "stall"}});  // wrong index
}

TEST_F(FirmwareTest, AnEraseSetsBitsAndAWriteOnlyClearsThem) {
  Install(OneHub());
  ASSERT_TRUE(Enable(3));
  Expect({{kErase, "stall"}, {"40 C8 0 0 0 0 1 0: 0", "stall"}});  // of the running bank
  ASSERT_TRUE(ResetToRom());
  ASSERT_TRUE(Enable(3));
  ASSERT_TRUE(Ok(kErase));
  Expect({{"C0 D8 FD FF 1 0 3 0", "FF FF FF"},  // the whole bank is erased
          {"40 C8 FE FF 1 0 2 0: F0 3C", "ok"},
          {"40 C8 FE FF 1 0 2 0: 1F FF", "ok"},
          {"C0 D8 FD FF 1 0 3 0", "FF 10 3C"},
          {"40 C8 FF FF 1 0 2 0: 0 0", "stall"},  // past the bank
          {"C0 D8 FF FF 1 0 2 0", "stall"}});
}

TEST_F(FirmwareTest, AnUpdateRunsTheNewImageIfItIsComplete) {
  const std::size_t all = 0x9000;
  const std::tuple<const char*, Bytes, std::size_t, std::size_t, const char*, bool> cases[] = {
      {"sealed", NewImage(), all, 0, kStatus, true},
      {"unsealed", UnsealedImage(), all, 0, kStatus, true},
      {"a place written twice", NewImage(), all, 0, "40 C8 0 2 0 0 1 0: 0", false},
      {"the last byte missing", NewImage(), all - 1, 0, kStatus, false},
      {"up to the end of the identity", UnsealedImage(), 0x7FA8, 0, kStatus, true},
      {"one byte of the identity missing", UnsealedImage(), 0x7FA7, 0, kStatus, false},
      {"the first chunk missing", UnsealedImage(), all, 128, kStatus, false}};
  for (const auto& [what, image, end, from, more, isComplete] : cases) {
    SCOPED_TRACE(what);
    Install(OneHub(R"("isp_supported": true)"));
    ASSERT_TRUE(ResetToRom());
    ASSERT_TRUE(WriteImage(image, end, from));
    EXPECT_NE("stall", Ask(more));
    EXPECT_EQ(isComplete ? "ok" : "stall", Ask("40 D9 1 0 0 0 0 0")) << "the hub's own check";
    ASSERT_TRUE(ResetToFlash());
    EXPECT_EQ(isComplete ? "flash 02 10" : "rom 00 01", State());
  }
}

TEST_F(FirmwareTest, AWriteThatWasCutOffNeedsASeal) {
  Install(OneHub());
  ASSERT_TRUE(ResetToRom());
  const std::function<void()> cuts[] = {[&] { machine->PowerLoss("hub", 10); },
                                        [&] { machine->Unplug("hub", 10); },
                                        [&] { ASSERT_TRUE(ResetToRom()); }};
  for (const auto& cut : cuts) {
    ASSERT_TRUE(WriteImage(UnsealedImage()));
    cut();
    ASSERT_TRUE(Pause());
    EXPECT_EQ("stall", Ask(kStatus)) << "the enable value is lost";
    ASSERT_TRUE(ResetToFlash());
    EXPECT_EQ("rom 00 01", State());
  }
  ASSERT_TRUE(WriteImage(NewImage()));
  machine->Unplug("hub", 10);
  ASSERT_TRUE(Pause());
  EXPECT_EQ("rom 00 01", State()) << "an unplug keeps the running code";
  machine->PowerLoss("hub", 10);
  ASSERT_TRUE(Pause());
  EXPECT_EQ("flash 02 10", State());
}

TEST_F(FirmwareTest, DualBankWritesTheBankThatDoesNotRun) {
  Install(OneHub(R"("dual_bank": true, "image": {"version": "0x0110"},
                    "second_image": {"version": "0x0100"})"));
  EXPECT_EQ("flash 01 10", State());
  ASSERT_TRUE(WriteImage(NewImage(), 0x1000));
  ASSERT_TRUE(ResetToFlash());
  EXPECT_EQ("flash 01 10", State()) << "an incomplete update leaves the running bank";
  ASSERT_TRUE(WriteImage(NewImage()));
  ASSERT_TRUE(ResetToFlash());
  EXPECT_EQ("flash 02 10", State());
}

class StateFolderTest : public HubBench {
 protected:
  StateFolderTest() { std::filesystem::remove_all(folder); }
  ~StateFolderTest() override {
    UninstallMachine();
    std::filesystem::remove_all(folder);
  }

  void Start(const std::string& members = R"("plugged": true)") {
    Install(R"({"state_folder": ")" + folder + "\", " + OneHub(members).substr(1));
  }
  /// What a step prints on standard error.
  template <typename Step>
  static std::string Errors(Step step) {
    ::testing::internal::CaptureStderr();
    step();
    return ::testing::internal::GetCapturedStderr();
  }

  const std::string folder = qzhid::test::UniquePath("state");
  const std::string file = folder + "/hub.flash";
};

TEST_F(StateFolderTest, FlashSurvivesTheMachine) {
  Start();
  ASSERT_TRUE(ResetToRom());
  ASSERT_TRUE(WriteImage(NewImage()));
  ASSERT_TRUE(ResetToFlash());
  Start();
  EXPECT_EQ("flash 02 10", State());
}

TEST_F(StateFolderTest, TheEndOfTheMachineCutsAWriteOff) {
  Start();
  ASSERT_TRUE(ResetToRom());
  ASSERT_TRUE(WriteImage(UnsealedImage()));
  Start();
  EXPECT_EQ("rom 00 01", State());
}

TEST_F(StateFolderTest, AFileThatDoesNotFitIsReportedAndNotUsed) {
  const std::string end = "; the hub starts with the image of the scenario\n";
  Start();
  UninstallMachine();
  EXPECT_EQ(
      "virtualhub: the state file " + file + " belongs to a hub with another flash size" + end,
      Errors([this] { Start(R"("bank_size": 65536)"); }));
  EXPECT_EQ("flash 01 02", State());
  UninstallMachine();
  std::fstream(file, std::ios::in | std::ios::out).seekp(1000).put('!');
  EXPECT_EQ("virtualhub: the state file " + file + " is damaged" + end,
            Errors([this] { Start(R"("bank_size": 65536)"); }));
  EXPECT_EQ("flash 01 02", State());
}

TEST_F(StateFolderTest, AFolderThatCannotBeMadeIsReported) {
  std::ofstream(folder) << "a file";
  Start();
  const std::string errors = Errors([] { UninstallMachine(); });
  EXPECT_EQ(0u, errors.find("virtualhub: the state file " + file +
                            " is in a folder that cannot be created: "))
      << errors;
  EXPECT_EQ(1, std::count(errors.begin(), errors.end(), '\n'));
}

}  // namespace

}  // namespace virtualhub::test
