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
      const int percent = std::stoi(print.text.substr(before.size()));
      const std::string end = percent == 100 ? "%\n" : "%\r";
      EXPECT_EQ((LogLine{2, "", before + std::to_string(percent) + end}), print);
      percents += std::to_string(percent) + " ";
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

    Renew();
    property.flash = Image(0x4000);
    dev.SetFwBuffer(Bytes(size, 0xEE));  // its length is what is read
    FwBuffer longer(size + 3, 0x55), shorter;
    EXPECT_TRUE(dev.ReadFlash(longer));
    EXPECT_EQ(reads, property.sent);
    EXPECT_EQ(percents, Percents("read"));
    EXPECT_TRUE(dev.ReadFlash(shorter));
    EXPECT_EQ(Image(size), shorter);
    shorter.resize(size + 3, 0x55);
    EXPECT_EQ(shorter, longer);
    EXPECT_TRUE(log.progress.empty());
  };
  expect(usb, 0, {}, "100 ", {});
  expect(usb, 1, {"00 00 00 00 01 00"}, "100 ", {});
  expect(usb, 4095, {"00 00 00 00 FF 0F"}, "100 ", {});
  expect(usb, 4096, {"00 00 00 00 00 10"}, "0 100 ", {30});
  expect(usb, 4097, {"00 00 00 00 00 10", "00 10 00 00 01 00"}, "0 100 ", {30});
  expect(usb, 10000, {"00 00 00 00 00 10", "00 10 00 00 00 10", "00 20 00 00 10 07"}, "0 40 100 ",
         {30, 46});
  expect(hid, 0, {}, "100 ", {});
  expect(hid, 1, {"00 00 00 00 01 00"}, "100 ", {});
  expect(hid, 127, {"00 00 00 00 7F 00"}, "100 ", {});
  expect(hid, 128, {"00 00 00 00 80 00"}, "0 100 ", {30});
  expect(hid, 129, {"00 00 00 00 80 00", "80 00 00 00 01 00"}, "0 100 ", {30});
  expect(hid, 300, {"00 00 00 00 80 00", "80 00 00 00 80 00", "00 01 00 00 2C 00"}, "0 42 100 ",
         {30, 46});
}

TEST_F(FlashTest, AFailedStepFailsTheTransferButForTheClock) {
  const std::string kFast = "0 Enable High Clock Mode return true\n";
  // The request of that number fails; the last three are the chunks.
  const auto write = [&](CKmoHubPDDev& dev, std::size_t size, int failing, bool result,
                         std::size_t requests, const char* percents, const std::string& said) {
    SCOPED_TRACE(::testing::Message() << "write " << size << ", request " << failing);
    Renew(std::uint64_t{1} << (failing - 1));
    EXPECT_EQ(result, dev.WriteFlashEx(FwBuffer(size)));
    EXPECT_EQ(requests, property.sent.size());
    EXPECT_EQ(percents, Percents("write"));
    EXPECT_EQ(said, Said("CHidDev::WriteFlashEx"));
  };
  write(usb, 0, 1, false, 1, "100 ", "");
  write(usb, 10000, 1, true, 4, "0 40 100 ", "");
  write(usb, 10000, 2, false, 2, "0 ", "");
  write(usb, 10000, 3, false, 3, "0 40 ", "");
  EXPECT_EQ((std::vector{30, 46}), log.progress) << "reported before the failure is noticed";
  write(usb, 10000, 4, false, 4, "0 40 100 ", "");
  write(hid, 300, 1, false, 1, "", "3 Set VdCmdEnable Value 3 Fail\n");
  write(hid, 300, 2, false, 2, "", "3 Read Status Fail\n");
  write(hid, 300, 3, true, 7, "0 42 100 ", "0 Enable High Clock Mode return false\n");
  write(hid, 300, 4, false, 4, "", kFast + "3 Erase Flash Fail\n");
  write(hid, 300, 5, false, 5, "0 ", kFast);
  write(hid, 300, 6, false, 6, "0 42 ", kFast);
  write(hid, 300, 7, false, 7, "0 42 100 ", kFast);
  const std::array<const char*, 3> kUsb{"0 ", "0 40 ", "0 40 100 "},
      kHid{"0 ", "0 42 ", "0 42 100 "};
  for (std::size_t chunk = 0; chunk < 6; ++chunk) {
    CKmoHubPDDev& dev = chunk < 3 ? usb : static_cast<CKmoHubPDDev&>(hid);
    Renew(std::uint64_t{1} << chunk % 3);
    property.flash = FwBuffer(chunk < 3 ? 10000 : 300);
    dev.SetFwBuffer(property.flash);
    FwBuffer buffer;
    EXPECT_FALSE(dev.ReadFlash(buffer));
    EXPECT_EQ(chunk % 3 + 1, property.sent.size());
    EXPECT_EQ((chunk < 3 ? kUsb : kHid)[chunk % 3], Percents("read"));
  }
}

TEST_F(FlashTest, PercentagesOfHugeImagesDoNotWrap) {
  EXPECT_TRUE(usb.WriteFlashEx(FwBuffer(45'000'000)));
  ASSERT_EQ(10986u, log.progress.size());
  EXPECT_EQ(69, log.progress.back()) << "at 99 %";
  EXPECT_TRUE(std::is_sorted(log.progress.begin(), log.progress.end()));
}

TEST_F(OpenTransportTest, AnImageReplacesTheFlashOfAHubAndComesBack) {
  virtualhub::Scenario scenario = RecordedScenario();
  CHidDev dev;
  const Bytes image = Image(0x10080);  // addresses beyond 16 bits
  EXPECT_FALSE(dev.WriteFlashEx(image)) << "flash code does not erase itself";
  scenario.devices[0].hub->running = virtualhub::Code::Rom;
  OpenHub(scenario);
  log.Clear();
  dev.SetFwBuffer(image);
  EXPECT_TRUE(dev.WriteFlashEx(image));
  virtualhub::Hub& hub = world->hub("hub");
  EXPECT_TRUE(hub.highClock());
  Bytes expected = image;
  expected.resize(0x20000, 0xFF);
  EXPECT_TRUE(expected == Part(hub.bank(0).contents(), 0, 0x20000));
  EXPECT_EQ(Channel1({0x40, 0xC8, 0x00, 0x00, 0x01, 0x00, 128}, Part(image, 0x10000, 128)),
            Outputs().back());
  FwBuffer buffer;
  EXPECT_TRUE(dev.ReadFlash(buffer));
  EXPECT_TRUE(image == buffer);
  EXPECT_EQ(513u, log.progress.size());
}

}  // namespace
}  // namespace qzhid::test
