// Flash: in 4096-byte chunks, and in the 128-byte chunks that fit HID reports.
#include "device/device_test.h"

namespace qzhid::test {
namespace {

class FlashTest : public DeviceTest {
 protected:
  /// What is printed while the flash is read or written, at these percentages.
  static Lines Prints(const std::string& verb, const std::vector<int>& percents) {
    Lines prints;
    for (const int percent : percents) {
      const std::string text = verb + " flash complete " + std::to_string(percent);
      prints.push_back({2, "", text + (percent == 100 ? "%\n" : "%\r")});
    }
    return prints;
  }
};

TEST_F(FlashTest, AsMuchIsReadAsTheFirmwareBufferHoldsAndALongerBufferKeepsItsEnd) {
  const auto reads =
      Requests("C0 D8 00 00 00 00 00 10", "C0 D8 00 10 00 00 00 10", "C0 D8 00 20 00 00 10 07");
  const std::tuple<std::uint64_t, std::size_t, std::ptrdiff_t, std::vector<int>> rows[] = {
      // which fail, size of the buffer, requests, percents
      {0, 0, 3, {0, 40, 100}},
      {0, 10003, 3, {0, 40, 100}},
      {2, 0, 2, {0, 40}},
      {4, 0, 3, {0, 40, 100}}};
  for (const auto& [failing, room, sent, percents] : rows) {
    Renew(failing);
    hub.flash = Pattern(0x4000);
    usb.SetFwBuffer(Bytes(10000, 0xEE));
    FwBuffer buffer(room, 0x55), expected = Pattern(10000);
    if (room > 0) expected.resize(room, 0x55);
    EXPECT_EQ(failing == 0, usb.ReadFlash(buffer));
    EXPECT_EQ(std::vector(reads.begin(), reads.begin() + sent), hub.sent);
    EXPECT_EQ(Prints("read", percents), log.prints);
    if (failing != 0) continue;
    EXPECT_EQ(expected, buffer);
  }
}

TEST_F(FlashTest, AChunksAddressHas32Bits) {
  EXPECT_TRUE(hid.WriteFlashEx(Pattern(0x10080)));
  EXPECT_EQ(Hex("40 C8 00 00 01 00 80 00"), hub.sent.back());
}

TEST_F(FlashTest, AnImageIsWrittenInChunksWithProgressUntilARequestFailsButForTheFastClock) {
  const std::string fast = "Enable High Clock Mode return true\n";
  const auto plain = Requests("40 02 03 00 7C 2E 00 00", "40 C8 00 00 00 00 00 10",
                              "40 C8 00 10 00 00 00 10", "40 C8 00 20 00 00 10 07");
  const auto inHid =
      Requests("40 02 03 00 7C 2E 00 00", "C0 09 00 00 00 00 14 00", "40 06 01 00 00 00 00 00",
               "40 E8 00 01 00 00 00 00", "40 C8 00 00 00 00 80 00", "40 C8 80 00 00 00 80 00",
               "40 C8 00 01 00 00 2C 00");
  const struct {
    bool isHid;
    std::size_t size, failing;  // the request that fails; 0: none
    std::size_t sent;
    std::vector<int> percents, progress;
    std::string lines = "";
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
      {true, 300, 1, 1, {}, {}, "Set VdCmdEnable Value 3 Fail\n"},
      {true, 300, 2, 2, {}, {}, "Read Status Fail\n"},
      {true, 300, 3, 7, {0, 42, 100}, {30, 46}, "Enable High Clock Mode return false\n", true},
      {true, 300, 4, 4, {}, {}, fast + "Erase Flash Fail\n"},
      {true, 300, 5, 5, {0}, {30}, fast},
      {true, 300, 7, 7, {0, 42, 100}, {30, 46}, fast}};
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
