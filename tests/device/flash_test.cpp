// Flash: in 4096-byte chunks, and in the 128-byte chunks that fit HID reports.
#include "device/device_test.h"

namespace qzhid::test {
namespace {

class FlashTest : public DeviceTest {
 protected:
  /// The percentages printed for "write" or "read".
  std::string Percents(const std::string& verb) const {
    const std::string before = verb + " flash complete ";
    std::string percents;
    for (const LogLine& print : log.prints) {
      const std::string percent = std::to_string(std::stoi(print.text.substr(before.size())));
      EXPECT_EQ((LogLine{2, "", before + percent + (percent == "100" ? "%\n" : "%\r")}), print);
      percents += percent + " ";
    }
    return percents;
  }
};

// In front of the first chunk.
const Strings kUsbStart{"40 02 03 00 7C 2E 00 00 5000"};
const Strings kHidStart{"40 02 03 00 7C 2E 00 00 5000", "C0 09 00 00 00 00 14 00 5000",
                        "40 06 01 00 00 00 00 00 5000", "40 E8 00 01 00 00 00 00 5000"};

TEST_F(FlashTest, ImagesTravelInChunksWithProgress) {
  const auto expect = [&](CKmoHubPDDev& dev, std::size_t size, const Strings& chunks,
                          const char* percents, const std::vector<int>& progress) {
    SCOPED_TRACE(size);
    Strings writes = &dev == &hid ? kHidStart : kUsbStart, reads;
    for (const std::string& chunk : chunks) {
      writes.push_back("40 C8 " + chunk + " 5000");
      reads.push_back("C0 D8 " + chunk + " 5000");
    }
    Renew();
    EXPECT_TRUE(dev.WriteFlashEx(Image(size)));
    EXPECT_EQ(writes, property.sent);
    EXPECT_EQ(Image(size), property.written);
    EXPECT_EQ(percents, Percents("write"));
    EXPECT_EQ(progress, log.progress);
    for (const std::size_t room : {std::size_t{0}, size + 3}) {
      Renew();
      property.flash = Image(0x4000);
      dev.SetFwBuffer(Bytes(size, 0xEE));  // its length is what is read
      FwBuffer buffer(room, 0x55), expected = Image(size);
      expected.resize(std::max(size, room), 0x55);
      EXPECT_TRUE(dev.ReadFlash(buffer));
      EXPECT_EQ(expected, buffer);
      EXPECT_EQ(reads, property.sent);
      EXPECT_EQ(percents, Percents("read"));
    }
  };
  expect(usb, 0, {}, "100 ", {});
  expect(usb, 10000, {"00 00 00 00 00 10", "00 10 00 00 00 10", "00 20 00 00 10 07"}, "0 40 100 ",
         {30, 46});
  expect(hid, 0, {}, "100 ", {});
  expect(hid, 127, {"00 00 00 00 7F 00"}, "100 ", {});
  expect(hid, 128, {"00 00 00 00 80 00"}, "0 100 ", {30});
  expect(hid, 129, {"00 00 00 00 80 00", "80 00 00 00 01 00"}, "0 100 ", {30});
  expect(hid, 300, {"00 00 00 00 80 00", "80 00 00 00 80 00", "00 01 00 00 2C 00"}, "0 42 100 ",
         {30, 46});
  EXPECT_TRUE(hid.WriteFlashEx(Image(0x10080)));
  EXPECT_EQ("40 C8 00 00 01 00 80 00 5000", property.sent.back()) << "beyond 16 bits";
}

TEST_F(FlashTest, AFailedStepFailsTheTransferButForTheClock) {
  const std::string kFast = "0 Enable High Clock Mode return true\n";
  // Device and image size; the request that fails, of which the last three are the chunks; whether
  // the write succeeds, and after how many requests; what it shows.
  using Row =
      std::tuple<CKmoHubPDDev*, std::size_t, int, bool, std::size_t, std::string, std::string>;
  const Row cases[] = {
      {&usb, 0, 1, false, 1, "100 ", ""},
      {&usb, 10000, 1, true, 4, "0 40 100 ", ""},
      {&usb, 10000, 2, false, 2, "0 ", ""},
      {&hid, 300, 1, false, 1, "", "3 Set VdCmdEnable Value 3 Fail\n"},
      {&hid, 300, 2, false, 2, "", "3 Read Status Fail\n"},
      {&hid, 300, 3, true, 7, "0 42 100 ", "0 Enable High Clock Mode return false\n"},
      {&hid, 300, 4, false, 4, "", kFast + "3 Erase Flash Fail\n"},
      {&hid, 300, 5, false, 5, "0 ", kFast},
      {&hid, 300, 6, false, 6, "0 42 ", kFast},
      {&hid, 300, 7, false, 7, "0 42 100 ", kFast}};
  for (const auto& [dev, size, failing, result, count, percents, said] : cases) {
    SCOPED_TRACE(::testing::Message() << size << ", request " << failing);
    Renew(std::uint64_t{1} << (failing - 1));
    EXPECT_EQ(result, dev->WriteFlashEx(FwBuffer(size)));
    EXPECT_EQ(count, property.sent.size());
    EXPECT_EQ(percents, Percents("write"));
    EXPECT_EQ(said, Said("CHidDev::WriteFlashEx"));
    const int start = dev == &hid ? 4 : 1;
    if (failing <= start) continue;
    Renew(std::uint64_t{1} << (failing - 1 - start));  // the same chunk read
    property.flash = FwBuffer(size);
    dev->SetFwBuffer(property.flash);
    FwBuffer buffer;
    EXPECT_FALSE(dev->ReadFlash(buffer));
    EXPECT_EQ(count - static_cast<std::size_t>(start), property.sent.size());
    EXPECT_EQ(percents, Percents("read"));
  }
}

}  // namespace
}  // namespace qzhid::test
