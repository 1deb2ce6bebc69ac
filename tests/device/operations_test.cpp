// What a device object sends for each operation, and what comes of it: code mode, flash, version,
// status, I2C.
#include "device/device_test.h"
#include "device/states.h"

namespace qzhid::test {
namespace {

TEST_F(DeviceTest, TheStatusBlockSaysWhichCodeRunsAndHowManyBanksThereAre) {
  const std::string rom = "CUSBDev::IsRomCode", banks = "CUSBDev::IsDualBank";
  const LogLine isFlash{1, rom, "dev is not rom code\n"}, isRom{0, rom, "dev is rom code\n"};
  const LogLine isOne{1, banks, "Flash is not dual bank\n"},
      areTwo{0, banks, "Flash is dual bank\n"};
  const std::tuple<std::uint8_t, LogLine, LogLine, std::string, std::string> rows[] = {
      {0x02, isOne, isFlash, "2", "FlashState"},
      {0x7D, isOne, isRom, "7d", "RomState"},
      {0x80, areTwo, isRom, "80", "RomState"}};
  for (const auto& [byte15, bankLine, codeLine, hex, state] : rows) {
    SCOPED_TRACE(hex);
    Renew();
    hub.answer = Pattern(64);
    hub.answer[15] = byte15;
    usb.SetState(usb.GetStateById(kStateUnknown));
    EXPECT_EQ(bankLine == areTwo, usb.IsDualBank());
    EXPECT_TRUE(usb.JudgeCodeMode(&usb));
    EXPECT_EQ(state, usb.GetState()->name);
    EXPECT_EQ(Requests(kStatusRequest, kStatusRequest), hub.sent);
    const LogLine judged{0, "CKmoHubPDDev::JudgeCodeMode", "current state is " + state + "\n"};
    EXPECT_EQ((Lines{bankLine,
                     codeLine,
                     {0, rom, "Status:1 8 f 16 1d\n"},
                     {0, rom, "Status:24 2b 32 39 40\n"},
                     {0, rom, "Status:47 4e 55 5c 63\n"},
                     {0, rom, "Status:" + hex + " 71 78 7f 86\n"},
                     judged}),
              Logged());
  }
}

TEST_F(DeviceTest, AHubThatDoesNotAnswerHasNoCodeModeAndOneBank) {
  usb.SetState(usb.GetStateById(kStateUnknown));
  hub.answer = Pattern(64);
  EXPECT_EQ(1, usb.IsRomCode());  // leaves a status where the next one is read to
  Renew(3);
  hub.answer = {};
  EXPECT_FALSE(usb.IsDualBank());
  EXPECT_FALSE(usb.JudgeCodeMode(&usb));
  EXPECT_EQ("UnknownState", usb.GetState()->name);
  const std::string zeros = "Status:0 0 0 0 0\n";
  EXPECT_EQ("dev is not connect\n" + zeros + zeros + zeros + zeros,
            LoggedText("CUSBDev::IsRomCode"));
  EXPECT_EQ("IsRomCode return -1,Fail\n", LoggedText("CKmoHubPDDev::JudgeCodeMode"));
}

TEST_F(DeviceTest, TheHubValidatesItsFlashIfItsStatusSaysSoAndOtherwiseTheFlashIsRead) {
  const std::string validate = "40 D9 01 00 00 00 00 00", read = "C0 D8 00 00 00 00 03 00";
  const std::tuple<std::uint8_t, std::uint64_t, std::string, std::uint8_t, bool> rows[] = {
      // byte 13 of the status, requests that fail, the second one, last byte of the flash, result
      {0x02, 0, validate, 4, true}, {0xFF, 2, validate, 3, false}, {0xFD, 0, read, 4, true},
      {0x00, 2, read, 4, false},    {0x00, 2, read, 3, true},      {0x02, 1, read, 3, true}};
  for (const auto& [byte13, failing, second, last, passes] : rows) {
    SCOPED_TRACE(::testing::Message() << int{byte13} << ' ' << failing);
    Renew(failing);
    usb.SetFwBuffer({1, 2, 3});
    hub.flash = {1, 2, last};
    hub.answer[13] = byte13;
    EXPECT_EQ(passes, usb.CheckFlashWithISP());
    EXPECT_EQ(Requests(kStatusRequest, second), hub.sent);
    const std::string text =
        std::string("check flash with compare return ") + (passes ? "true\n" : "false\n");
    const Lines compared = LinesOf("CKmoHubPDDev::CheckFlashWithCmp",
                                   {{0, "Read Flash Success\n"}, {passes ? 0 : 1, text}});
    EXPECT_EQ(second == read ? compared : Lines{}, Logged());
  }
}

TEST_F(DeviceTest, VersionStatusAndEraseEnableTheHubsCommandsFirstButNotTheDownloadSlave) {
  const std::string enable = "40 02 01 00 7C 2E 00 00";
  std::uint16_t version = 0xBEEF;
  Bytes block(21, 0x55);
  const std::pair<std::string, std::function<bool()>> operations[] = {
      {kStatusRequest, [&] { return usb.ReadVersion(&version); }},
      {kStatusRequest, [&] { return usb.GetICStatus(block.data()); }},
      {"40 E8 00 00 00 00 00 00", [&] { return usb.EraseFlash(); }}};
  for (const std::uint64_t failing : {2u, 1u, 0u}) {
    EXPECT_EQ(0xBEEF, version) << "a failure leaves it as it is";
    for (const auto& [request, run] : operations) {
      Renew(failing);
      hub.answer = Pattern(64);
      EXPECT_EQ(failing == 0, run());
      EXPECT_EQ(failing == 1 ? Requests(enable) : Requests(enable, request), hub.sent);
    }
    EXPECT_EQ(failing == 1 ? Bytes(20, 0) : Pattern(20), Part(block, 0, 20));
  }
  EXPECT_EQ(0x474E, version);
  EXPECT_EQ(0x55, block[20]);
  Renew(2);
  EXPECT_FALSE(usb.SetDLSlaveAddr(0x03, 0xA6));
  EXPECT_TRUE(usb.SetDLSlaveAddr(0x03, 0xA6)) << "true for a failure";
  EXPECT_EQ(Requests("40 08 03 A6 00 00 00 00", "40 08 03 A6 00 00 00 00"), hub.sent);
}

TEST_F(DeviceTest, AnI2CTransferWithinItsLimitsIsOneRequestAndItsFailureIsLogged) {
  Bytes data = Pattern(0x103), room;
  const std::string noWrite = "Write Data Fail,ErrorCode:0x0000001f",
                    noRead = "Read Data Fail,ErrorCode:0x0000001f";
  const struct {
    std::string tag;
    std::function<std::int32_t()> transfer;
    std::string request, failure;  // none: refused with that line
    std::size_t moved = 0;
  } rows[] = {
      {"CUSBDev::I2CConfigImpl", [&] { return usb.I2CConfigImpl(0x12, 0x34, 0x02); },
       "40 F6 34 12 82 80 00 00",
       "Config Data Fail,steup pkt:0x40,0xf6,0x34,0x12,0x82,0x80,0x00,0x00\n"},
      {"CUSBDev::I2CWriteImpl", [&] { return usb.I2CWriteImpl(0xA1B2C3D4, data.data(), 0x103); },
       "40 C6 D4 C3 B2 A1 03 01 00 00 00",
       noWrite + ",steup pkt:0x40,0xc6,0xd4,0xc3,0xb2,0xa1,0x03,0x01\n", 0x103},
      {"CUSBDev::I2CReadImpl", [&] { return usb.I2CReadImpl(0xA1B2C3D4, room.data(), 0x103); },
       "C0 D6 D4 C3 B2 A1 03 01 00 00 00",
       noRead + ",steup pkt:0xc0,0xd6,0xd4,0xc3,0xb2,0xa1,0x03,0x01\n", 0x103},
      {"CHidDev::I2CWriteImpl", [&] { return hid.I2CWriteImpl(0x1234, data.data(), 128); },
       "40 C6 34 12 00 00 80 00 A8 04 82",
       noWrite + "\nsteup pkt:0x40 0xc6 0x34 0x12 0x00 0x00 0x80 0x00 0xa8 0x04 0x82\n", 128},
      {"CHidDev::I2CReadImpl", [&] { return hid.I2CReadImpl(0x1234, room.data(), 192); },
       "40 D6 34 12 00 00 C0 00 A8 04 82",
       noRead + "\nsteup pkt:0x40 0xd6 0x34 0x12 0x00 0x00 0xc0 0x00 0xa8 0x04 0x82\n", 192},
      {"CHidDev::I2CReadImpl", [&] { return hid.I2CReadImpl(1, room.data(), 193); }, "",
       "Read Data Fail,Data Length Value:193\n"},
      {"CHidDev::I2CReadImpl", [&] { return hid.I2CReadImpl(1, room.data(), 0); }, "",
       "Read Data Fail,Data Length Value:0\n"},
      {"CUSBDev::I2CReadImpl", [&] { return usb.I2CReadImpl(1, room.data(), 0); }, "",
       "Read Data Fail,Data Length is < 1,Value:0\n"},
      {"CHidDev::I2CWriteImpl", [&] { return hid.I2CWriteImpl(1, data.data(), 129); }, "",
       "Write Data Fail,Data Length is < 1,Value:129\n"}};
  EXPECT_EQ(0, hid.I2CConfigImpl(0xA8, 4, 2));
  for (const auto& [tag, transfer, request, failure, moved] : rows) {
    const bool isRefused = request.empty();
    for (const std::uint64_t failing : {0u, 1u}) {
      SCOPED_TRACE(tag);
      Renew(failing);
      hub.answer = Pattern(0x200);
      room.assign(0x104, 0xEE);
      const std::int32_t result = transfer();
      EXPECT_EQ(isRefused ? -1 : failing != 0 ? 31 : 0, result);
      EXPECT_EQ(isRefused ? Requests() : Requests(request), hub.sent);
      EXPECT_EQ(result == 0 ? "" : failure, LoggedText(tag));
      EXPECT_EQ(Logged(tag), Failures());
      EXPECT_EQ(Part(data, 0, moved), Part(hub.written.empty() ? room : hub.written, 0, moved));
    }
  }
}

/// What is printed while the flash is read or written, at these percentages.
Lines Prints(const std::string& verb, const std::vector<int>& percents) {
  Lines prints;
  for (const int percent : percents) {
    const std::string text = verb + " flash complete " + std::to_string(percent);
    prints.push_back({2, "", text + (percent == 100 ? "%\n" : "%\r")});
  }
  return prints;
}

TEST_F(DeviceTest, AsMuchIsReadAsTheFirmwareBufferHoldsAndALongerBufferKeepsItsEnd) {
  using Row = std::tuple<std::uint64_t, std::size_t, std::size_t, std::vector<int>>;
  const Row rows[] = {// which fail, size of the buffer, requests, percents
                      Row{0, 0, 3, {0, 40, 100}}, Row{0, 10003, 3, {0, 40, 100}},
                      Row{2, 0, 2, {0, 40}}, Row{4, 0, 3, {0, 40, 100}}};
  for (const auto& [failing, room, sent, percents] : rows) {
    auto reads =
        Requests("C0 D8 00 00 00 00 00 10", "C0 D8 00 10 00 00 00 10", "C0 D8 00 20 00 00 10 07");
    reads.resize(sent);
    Renew(failing);
    hub.flash = Pattern(0x4000);
    usb.SetFwBuffer(Bytes(10000, 0xEE));
    FwBuffer buffer(room, 0x55);
    EXPECT_EQ(failing == 0, usb.ReadFlash(buffer));
    EXPECT_EQ(reads, hub.sent);
    EXPECT_EQ(Prints("read", percents), log.prints);
    const Bytes read = Pattern(sent == 3 ? 10000 : 8192), end(room == 0 ? 0 : 3, 0x55);
    EXPECT_EQ(read, Part(buffer, 0, read.size()));
    EXPECT_EQ(end, Part(buffer, 10000, buffer.size() - 10000));
  }
}

TEST_F(DeviceTest, AnImageIsWrittenInChunksUntilARequestOtherThanTheFastClockFails) {
  const std::string fast = "Enable High Clock Mode return true\n";
  const auto plain = Requests("40 02 03 00 7C 2E 00 00", "40 C8 00 00 00 00 00 10",
                              "40 C8 00 10 00 00 00 10", "40 C8 00 20 00 00 10 07");
  const auto inHid =
      Requests("40 02 03 00 7C 2E 00 00", "C0 09 00 00 00 00 14 00", "40 06 01 00 00 00 00 00",
               "40 E8 00 01 00 00 00 00", "40 C8 00 00 00 00 80 00", "40 C8 80 00 00 00 80 00",
               "40 C8 00 01 00 00 7C 00");
  const struct {
    bool isHid;
    std::size_t size, failing;  // the request that fails; 0: none
    std::size_t sent;
    std::vector<int> percents, progress;
    std::string lines{};
    bool isWritten = false;
  } rows[] = {
      {false, 0, 0, 1, {100}, {}, "", true},
      {false, 0, 1, 1, {100}, {}},
      {false, 10000, 0, 4, {0, 40, 100}, {30, 46}, "", true},
      {false, 10000, 1, 4, {0, 40, 100}, {30, 46}, "", true},
      {false, 10000, 3, 3, {0, 40}, {30, 46}},
      {false, 10000, 4, 4, {0, 40, 100}, {30, 46}},
      {true, 0, 0, 4, {100}, {}, fast, true},
      {true, 128, 0, 5, {0, 100}, {30}, fast, true},
      {true, 380, 1, 1, {}, {}, "Set VdCmdEnable Value 3 Fail\n"},
      {true, 380, 2, 2, {}, {}, "Read Status Fail\n"},
      {true, 380, 3, 7, {0, 33, 100}, {30, 43}, "Enable High Clock Mode return false\n", true},
      {true, 380, 4, 4, {}, {}, fast + "Erase Flash Fail\n"},
      {true, 380, 5, 5, {0}, {30}, fast},
      {true, 380, 7, 7, {0, 33, 100}, {30, 43}, fast}};
  for (const auto& row : rows) {
    SCOPED_TRACE(::testing::Message() << row.size << " bytes, request " << row.failing);
    CUSBDev& dev = row.isHid ? hid : usb;
    auto sent = row.isHid ? inHid : plain;
    sent.resize(row.sent);
    Renew(row.failing == 0 ? 0 : std::uint64_t{1} << (row.failing - 1));
    EXPECT_EQ(row.isWritten, dev.WriteFlashEx(Pattern(row.size)));
    EXPECT_EQ(sent, hub.sent);
    EXPECT_EQ(Part(Pattern(row.size), 0, hub.written.size()), hub.written);
    EXPECT_EQ(Prints("write", row.percents), log.prints);
    EXPECT_EQ(row.progress, log.progress);
    EXPECT_EQ(row.lines, LoggedText("CHidDev::WriteFlashEx"));
  }
}

}  // namespace
}  // namespace qzhid::test
