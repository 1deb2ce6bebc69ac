// The hub: its flash and code, what an update does to it, and everything attached to it.
#include "hub_bench.h"
#include "support/temp_file.h"
#include "virtualhub/base/crc32.h"
#include "virtualhub/hub/image.h"

namespace virtualhub::test {

using HubTest = HubBench;

const std::string kRead = "C0 D8 0 0 0 0 1 0", kWrite = "40 C8 0 0 0 0 1 0: 0";

static Bytes NewImage() { return BuildImage({.version = 0x0210}, 0x9000); }

// The same without its seal, as of a maker that knows no seals.
static Bytes UnsealedImage() {
  Bytes image = NewImage();
  image[0x7F80] = 0;
  return image;
}

TEST_F(HubTest, TheStatusBlockSaysWhatRuns) {
  const std::pair<std::string, std::string> rows[] = {
      {R"("vid": "0x1234", "pid": "0x5678", "chip": "0x4A26", "version": "0x0315")",
       "12 34 00 00 56 78 00 00 00 00 03 15 00 02 00 82 00 00 00 00"},
      {R"("cut_after": 65535)", "2E 7C 00 00 08 10 00 00 00 00 00 01 00 02 00 80 00 00 00 00"}};
  for (const auto& [image, status] : rows) {
    Install(OneHub(R"("isp_supported": true, "dual_bank": true, "image": {)" + image + "}"));
    EXPECT_EQ("ok, " + status, Ask({kEnable1, kStatus}));
  }
}

TEST_F(HubTest, ARequestNeedsItsEnableValue) {
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

TEST_F(HubTest, AnEraseSetsBitsAndAWriteOnlyClearsThem) {
  Install(OneHub());
  EXPECT_EQ("ok, stall, stall", Ask({kEnable3, kErase, kWrite})) << "of the running bank";
  ASSERT_TRUE(Reset(kToRom));
  const std::string end = "C0 D8 FD FF 1 0 3 0";
  EXPECT_EQ("ok, ok, FF FF FF", Ask({kEnable3, kErase, end}));
  EXPECT_EQ("ok, ok, FF 10 3C",
            Ask({"40 C8 FE FF 1 0 2 0: F0 3C", "40 C8 FE FF 1 0 2 0: 1F FF", end}));
  EXPECT_EQ("stall, stall", Ask({"40 C8 FF FF 1 0 2 0: 0 0", "C0 D8 FF FF 1 0 2 0"}));
}

TEST_F(HubTest, AnUpdateRunsTheNewImageIfItIsComplete) {
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

TEST_F(HubTest, AWriteThatWasCutOffNeedsASeal) {
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

TEST_F(HubTest, DualBankWritesTheBankThatDoesNotRun) {
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

TEST_F(HubTest, HubsWithOneImageFileHaveFlashOfTheirOwnThatIsErasedAfterIt) {
  Bytes image = NewImage();
  std::fill(image.end() - 3, image.end(), std::uint8_t{0xFF});
  const ByteView sealed(image);
  PutLittleEndian32(image, 0x7F8C, Crc32(sealed.subspan(0x7F90), Crc32(sealed.first(0x7F8C))));
  const qzhid::test::ScratchFolder folder;
  qzhid::test::WriteText(folder.At("image"), std::string(image.begin(), image.end() - 3));
  const std::string file = R"("image": {"file": ")" + folder.At("image") + R"("})";
  Install(OneHub(file + R"(}, {"name": "other", "port": "3.2", )" + file));
  EXPECT_EQ("flash 02 10", State()) << "what is erased belongs to the image, too";
  ASSERT_TRUE(Reset(kToRom));
  const std::string atEnd = "C0 D8 FC 8F 0 0 5 0";
  EXPECT_EQ("ok, " + HexText(sealed.subspan(0x8FFC, 1)) + " FF FF FF FF", Ask({kEnable3, atEnd}));
  EXPECT_EQ("ok, FF FF FF FF FF", Ask({kErase, atEnd}));
  EXPECT_EQ(0x0210, machine->hub("other").Identity().version);
  const ByteView others = machine->hub("other").bank(0).contents().first(image.size());
  EXPECT_EQ(image, Bytes(others.begin(), others.end()));
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
  EXPECT_EQ("", Errors(Json()));
  EXPECT_EQ("", Errors(""));
  EXPECT_EQ(start + " belongs to a hub with another flash size" + end, Errors(Json("65536")));
  EXPECT_EQ("flash 01 02", State());
  EXPECT_EQ("", Errors(""));
  std::fstream(file, std::ios::in | std::ios::out).seekp(1000).put('!');
  EXPECT_EQ(start + " is damaged" + end, Errors(Json("65536")));
  std::filesystem::remove_all(folder.path);
  std::ofstream(folder.path) << "a file";
  EXPECT_EQ(0u, Errors("").find(start + " is in a folder that cannot be created: "));
}

class BridgeTest : public HubBench {
 protected:
  BridgeTest() {
    Install(OneHub(R"("bridge_flash": {"busy_polls": 1}, "i2c": [
        {"kind": "eeprom", "address": "0xA0", "size": 256, "page_size": 16},
        {"kind": "eeprom", "address": "0xA2", "address_bytes": 5},
        {"kind": "block", "address": "0x42", "busy_polls": 2, "size": "0x20000"},
        {"kind": "block", "address": "0x43", "final_status": 3}])"));
  }
};

TEST_F(BridgeTest, EepromReadsContinueWherePageWritesWrap) {
  EXPECT_EQ("ok, 03 FF, 01 02 FF, FF",
            Ask({"40 C6 1E 0 0 0 3 0 A0 2 81: 1 2 3", "40 D6 10 0 0 0 2 0 A0 2 82",
                 "C0 D6 1E 0 0 0 3 0 A0 2 82", "40 D6 0 0 0 0 1 0 A0 0 82"}));
  EXPECT_EQ("ok, 09 FF", Ask({"40 C6 FF 0 0 0 1 0 A0 2 80: 9", "40 D6 FF 1 0 0 2 0 A0 2 80"}));
  EXPECT_EQ("ok", Ask("40 C6 1 2 3 4 1 5 A2 5 80: 7"));
  EXPECT_EQ(7, machine->hub("hub").eeprom(0xA2)->memory()[0x0201]) << "at 05 04 03 02 01";
  // Too few and too many address bytes, no such target, no configuration, no such speed.
  for (const char* end : {"A0 1 81", "A2 6 81", "A4 2 81", "A0 2 01", "A0 2 83"}) {
    EXPECT_EQ("stall", Ask(std::string("40 C6 0 0 0 0 1 0 ") + end + ": 1")) << end;
  }
}

TEST_F(BridgeTest, BlockCommandsStoreAndFetch) {
  const std::string status = "40 D6 0 0 0 0 1 0 42 0 82", fetch = "40 D6 80 0 0 0 5 0 42 1 82";
  const auto command = [](const std::string& bytes) {
    return "40 C6 0 0 0 0 " + HexText({{static_cast<std::uint8_t>(Hex(bytes).size())}}) +
           " 0 42 0 82: " + bytes;
  };
  EXPECT_EQ("01, ok, 00, 00, 01",
            Ask({status, command("6 5 10 2 2 AB CD"), status, status, status}));
  EXPECT_EQ("ok, 03 FF AB CD 00", Ask({command("3 3 0F 2 3"), fetch}));
  EXPECT_EQ("ok, 3B AB CD FF FF", Ask({command("10 4 10 2"), fetch})) << "it announces four bytes";
  // More or fewer bytes than the command or its data announces.
  for (const char* wrong :
       {"3 4 10 2", "6 4 10 2 2 1 2", "6 6 10 2 2 1 2 3", "6 4 10 2 2 1", "7 7 10 2 0 2 1 2 3"}) {
    EXPECT_EQ("stall", Ask(command(wrong))) << wrong;
  }
  EXPECT_EQ("ok, ok, AB CD", Ask({command("7 6 2 0 1 2 EF 5"), "40 DC 42 7 0 0 5 0: 20 0 1 1 77",
                                  "C0 EC 42 27 10 2 2 0"}));
  EXPECT_EQ("ok, 03", Ask({"40 DC 43 5 0 0 3 0: 0 0 0", "40 D6 0 0 0 0 1 0 43 0 82"}));
  BlockTarget& target = *machine->hub("hub").blockTarget(0x42);
  EXPECT_EQ("EF 05", HexText(ByteView(target.memory()).subspan(0x10002, 2)));
  EXPECT_EQ(0x77, target.memory()[0x10020]);
  EXPECT_EQ("06 03 10 07 07 27", HexText(target.commands()));
}

TEST_F(BridgeTest, ABlockCommandHasTheLengthOfItsForm) {
  std::map<std::string, std::string> commands;  // by the lengths, of 1 to 4 zeros, that they take
  for (std::uint8_t command = 0; command < 255; ++command) {
    std::string lengths;
    for (std::uint8_t length = 1; length <= 4; ++length) {
      const Error error = Send({0x40, 0xDC, 0x42, command, 0, 0, length, 0});
      if (error == Error::None) lengths += std::to_string(length);
    }
    if (!lengths.empty()) commands[lengths] += std::to_string(command) + " ";
  }
  // Plain commands, those that store, the long one, those that fetch, and that of one byte.
  const std::map<std::string, std::string> expected{{"34", "1 2 5 "},
                                                    {"3", "4 6 19 20 "},
                                                    {"4", "7 "},
                                                    {"234", "3 16 36 38 51 52 53 58 "},
                                                    {"1", "22 "}};
  EXPECT_EQ(expected, commands);
}

TEST_F(BridgeTest, TheBridgeFlashIsNorAndRejectsWhatComesWhileItIsBusy) {
  const std::string write = "40 F1 1 0 0 0 1 0: F3", stage = "00 CF 1 0 0 0 1 0: 3F";
  const std::string erase = "40 F4 0 0 0 0 0 0", status = "C0 F3 0 0 0 0 1 0";
  for (const auto& [begun, byte] : {std::pair(write, 0xF3), {stage, 0x33}, {erase, 0xFF}}) {
    EXPECT_EQ("ok, stall, stall, stall, 01, 00, 00",
              Ask({begun, write, stage, erase, status, status, status}));
    EXPECT_EQ(byte, machine->hub("hub").bridgeFlash().memory()[1]) << begun;
  }
  EXPECT_EQ("ok", Ask("40 F1 FF FF 0F 0 1 0: 0")) << "the last byte";
}

TEST_F(BridgeTest, SettingsAreKept) {
  EXPECT_EQ("ok, ok, ok", Ask({"40 06 1 0 0 0 0 0", "40 08 2 50 0 0 0 0", "40 F6 4 A0 82 80 0 0"}));
  Hub& hub = machine->hub("hub");
  EXPECT_TRUE(hub.highClock());
  EXPECT_EQ(0x5002, hub.downloadSlave());
  EXPECT_EQ("04 A0 82", HexText(hub.i2cSetting()));
  ASSERT_TRUE(Reset(kToRom));
  EXPECT_FALSE(hub.highClock()) << "until a reset";
}

TEST_F(BridgeTest, RequestsWithWrongArgumentsStall) {
  // GPIO line 24; other values; resets and the clock; unknown, and past the end of reports or
  // flash.
  for (const char* request :
       {"C0 04 0 18 0 0 1 0", "40 0C 0 18 0 1 0 0", "40 04 1 1 18 0 0 0", "C0 04 5 0 0 0 1 0",
        "40 0C 0 2 1 0 0 0", "40 04 0 1 5 0 0 0", "40 00 0 0 0 0 1 0", "40 E9 1 0 0 0 0 0",
        "40 06 2 0 0 0 0 0", "40 77 0 0 0 0 0 0", "40 F1 0 0 0 0 1 1", "40 F1 FF FF F 0 2 0"}) {
    EXPECT_EQ("stall", Ask(request)) << request;
    Bytes answer;
    EXPECT_EQ(Error::Stall, Read(answer).error) << request;
  }
}

}  // namespace virtualhub::test
