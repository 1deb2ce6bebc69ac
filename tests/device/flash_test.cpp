// Flash: in 4096-byte chunks, and in the 128-byte chunks that fit HID reports.
#include "device/device_test.h"

namespace qzhid::test {
namespace {

using ::testing::ElementsAre;

/// An image of some size, in the chunks (offset and length) of a device.
struct Image {
  bool isHid;
  std::size_t size;
  std::vector<std::string> chunks;
  std::vector<int> percents;  // that are printed
  std::vector<int> progress;  // of the update when it is written
};
using Chunks = std::vector<std::string>;
const Chunks kLong = {"00 00 00 00 00 10", "00 10 00 00 00 10", "00 20 00 00 10 07"};
const Chunks kShort = {"00 00 00 00 80 00", "80 00 00 00 80 00", "00 01 00 00 2C 00"};
const Image kImages[] = {{false, 0, {}, {100}, {}},
                         {false, 10000, kLong, {0, 40, 100}, {30, 46}},
                         {true, 0, {}, {100}, {}},
                         {true, 127, {"00 00 00 00 7F 00"}, {100}, {}},
                         {true, 128, {"00 00 00 00 80 00"}, {0, 100}, {30}},
                         {true, 129, {"00 00 00 00 80 00", "80 00 00 00 01 00"}, {0, 100}, {30}},
                         {true, 300, kShort, {0, 42, 100}, {30, 46}}};

class FlashTest : public DeviceTest {
 protected:
  /// The prints of those percentages while the flash is read or written.
  static std::vector<LogLine> Prints(const std::string& verb, const std::vector<int>& percents) {
    std::vector<LogLine> prints;
    for (const int percent : percents) {
      const std::string text = verb + " flash complete " + std::to_string(percent);
      prints.push_back({2, "", text + (percent == 100 ? "%\n" : "%\r")});
    }
    return prints;
  }
  CUSBDev& Device(bool isHid) {
    if (isHid) return hid;
    return usb;
  }
};

TEST_F(FlashTest, AnImageIsWrittenInChunksWithProgress) {
  for (const Image& image : kImages) {
    SCOPED_TRACE(image.size);
    Renew();
    EXPECT_TRUE(Device(image.isHid).WriteFlashEx(Pattern(image.size)));
    auto sent = Requests("40 02 03 00 7C 2E 00 00");
    if (image.isHid) {
      sent = Requests("40 02 03 00 7C 2E 00 00", "C0 09 00 00 00 00 14 00",
                      "40 06 01 00 00 00 00 00", "40 E8 00 01 00 00 00 00");
    }
    for (const std::string& chunk : image.chunks) sent.push_back(Hex("40 C8 " + chunk));
    EXPECT_EQ(sent, hub.sent);
    EXPECT_EQ(Pattern(image.size), hub.written);
    EXPECT_EQ(Prints("write", image.percents), log.prints);
    EXPECT_EQ(image.progress, log.progress);
  }
}

TEST_F(FlashTest, AsMuchIsReadAsTheFirmwareBufferHoldsAndALongerBufferKeepsItsEnd) {
  for (const Image& image : kImages) {
    for (const std::size_t room : {std::size_t{0}, image.size + 3}) {
      SCOPED_TRACE(image.size);
      Renew();
      hub.flash = Pattern(0x4000);
      CUSBDev& dev = Device(image.isHid);
      dev.SetFwBuffer(Bytes(image.size, 0xEE));
      FwBuffer buffer(room, 0x55), expected = Pattern(image.size);
      expected.resize(std::max(image.size, room), 0x55);
      EXPECT_TRUE(dev.ReadFlash(buffer));
      EXPECT_EQ(expected, buffer);
      std::vector<Bytes> sent;
      for (const std::string& chunk : image.chunks) sent.push_back(Hex("C0 D8 " + chunk));
      EXPECT_EQ(sent, hub.sent);
      EXPECT_EQ(Prints("read", image.percents), log.prints);
    }
  }
}

TEST_F(FlashTest, AChunksAddressHas32Bits) {
  EXPECT_TRUE(hid.WriteFlashEx(Pattern(0x10080)));
  EXPECT_EQ(Hex("40 C8 00 00 01 00 80 00"), hub.sent.back());
}

TEST_F(FlashTest, AFailedStepEndsTheTransferButForTheFastClock) {
  const std::string tag = "CHidDev::WriteFlashEx";
  const std::pair<int, std::string> fast{0, "Enable High Clock Mode return true\n"};
  const struct {
    bool isHid;
    std::size_t size;
    int failing;  // the request that fails
    bool isWritten;
    std::size_t sent;
    std::vector<int> percents;
    std::vector<std::pair<int, std::string>> lines = {};
  } rows[] = {{false, 0, 1, false, 1, {100}},
              {false, 10000, 1, true, 4, {0, 40, 100}},
              {false, 10000, 2, false, 2, {0}},
              {false, 10000, 3, false, 3, {0, 40}},
              {false, 10000, 4, false, 4, {0, 40, 100}},
              {true, 300, 1, false, 1, {}, {{3, "Set VdCmdEnable Value 3 Fail\n"}}},
              {true, 300, 2, false, 2, {}, {{3, "Read Status Fail\n"}}},
              {true, 300, 3, true, 7, {0, 42, 100}, {{0, "Enable High Clock Mode return false\n"}}},
              {true, 300, 4, false, 4, {}, {fast, {3, "Erase Flash Fail\n"}}},
              {true, 300, 5, false, 5, {0}, {fast}},
              {true, 300, 6, false, 6, {0, 42}, {fast}},
              {true, 300, 7, false, 7, {0, 42, 100}, {fast}}};
  for (const auto& row : rows) {
    SCOPED_TRACE(::testing::Message() << row.size << " bytes, request " << row.failing);
    CUSBDev& dev = Device(row.isHid);
    Renew(std::uint64_t{1} << (row.failing - 1));
    EXPECT_EQ(row.isWritten, dev.WriteFlashEx(FwBuffer(row.size)));
    EXPECT_EQ(row.sent, hub.sent.size());
    EXPECT_EQ(Prints("write", row.percents), log.prints);
    EXPECT_EQ(LinesOf(tag, row.lines), Logged());
    const int chunk = row.failing - (row.isHid ? 4 : 1);
    if (chunk <= 0) continue;
    Renew(std::uint64_t{1} << (chunk - 1));  // the same chunk read
    hub.flash = FwBuffer(row.size);
    dev.SetFwBuffer(hub.flash);
    FwBuffer buffer;
    EXPECT_FALSE(dev.ReadFlash(buffer));
    EXPECT_EQ(static_cast<std::size_t>(chunk), hub.sent.size());
    EXPECT_EQ(Prints("read", row.percents), log.prints);
  }
}

}  // namespace
}  // namespace qzhid::test
