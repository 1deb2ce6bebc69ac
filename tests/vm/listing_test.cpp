// What is listed of attached devices, also of those that come and go or are not attached by qzhub.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <linux/uhid.h>
#include <unistd.h>

#include <atomic>
#include <cstring>
#include <regex>
#include <thread>

#include "vm/host.h"

namespace qzhid::vm {
namespace {

using ::testing::HasSubstr;
using ::testing::MatchesRegex;
using ::testing::Pair;
using ::testing::SizeIs;
using ::testing::UnorderedElementsAre;

std::string Plain(const QZ_Utf16* text) {
  std::string plain;
  for (; *text != 0; ++text) plain += *text < 0x80 ? static_cast<char>(*text) : '?';
  return plain;
}

/// All that a record says of its device but its number.
std::string TextOf(const HidDevRecord& record) {
  return Plain(record.HwID) + ' ' + Plain(record.VID) + ':' + Plain(record.PID) + " level " +
         std::to_string(record.Level) + " port " + std::to_string(record.Port) + " type " +
         std::to_string(record.dwDevType) + ' ' + Plain(record.LocationPath);
}

TEST(Listing, HubsAreListedAndOtherDevicesOnlyByTheirIds) {
  const Attached attached(R"({"devices": [
      {"name": "first", "port": "1"},
      {"name": "other", "kind": "other", "port": "5", "vid": "0x1234", "pid": "0x5678"},
      {"name": "second", "port": "2", "running": "rom"}]})",
                          3);
  const auto expected = [&](const std::string& name, const std::string& pid) {
    const std::string port = std::to_string(attached.PortOf(name));
    return "HID\\VID_2E7C&PID_" + pid + "&REV_0100 2E7C:" + pid + " level 1 port " + port +
           " type " + std::to_string(QZ_DEVICE_TYPE_HID) +
           " DEV(platform)#DEV(vhci_hcd.0)#USBROOT(0)#USB(" + port + ')';
  };
  const auto records = List();
  ASSERT_THAT(records, SizeIs(2));
  EXPECT_THAT((std::vector{TextOf(records[0]), TextOf(records[1])}),
              UnorderedElementsAre(expected("first", "0818"), expected("second", "0810")));
  EXPECT_NE(records[0].dwInst, records[1].dwInst);

  HidDevRecord* list = nullptr;
  std::uint32_t count = 0;
  EXPECT_EQ(1, QZ_ListAllHidDevByVIDPID(0x1234, 0x5678, &list, &count));
  ASSERT_EQ(1u, count);
  EXPECT_EQ("1234", Plain(list[0].VID));
  QZ_FreeDevList(list);
}

TEST(Listing, AHubThatTheStockClientAttachesWorks) {
  WriteFile("/tmp/served.json", HubScenario(R"(, "i2c": [{"kind": "eeprom", "address": "0x50"}])"));
  Program server("qzhub serve --scenario /tmp/served.json");
  ASSERT_TRUE(Eventually([] {
    const std::string list = RunProgram("usbip list -r 127.0.0.1").second;
    return std::regex_search(list, std::regex("1-1:.*2e7c:0818"));
  })) << server.Output();
  EXPECT_THAT(RunProgram("usbip attach -r 127.0.0.1 -b 1-1"), Pair(0, ::testing::_));
  ASSERT_TRUE(Eventually([] { return List().size() == 1; }));
  EXPECT_THAT(RunProgram("gpio_blink"), Pair(0, HasSubstr("line 5 driven 1, reads 1\n")));
  EXPECT_THAT(RunProgram("i2c_eeprom"), Pair(0, HasSubstr("compare   ok\n")));
  EXPECT_THAT(RunProgram("usbip port").second, HasSubstr("Port 00"));
  EXPECT_EQ(0, RunProgram("usbip detach -p 0").first);
  EXPECT_TRUE(Eventually([] { return HidrawDevices().empty(); }));
  EXPECT_EQ(0, server.Stop()) << server.Output();
}

TEST(Listing, DevicesOnOtherBusesDoNoHarm) {
  const int file = open("/dev/uhid", O_RDWR | O_CLOEXEC);
  uhid_event event{};
  event.type = UHID_CREATE2;
  event.u.create2.bus = 5;  // Bluetooth
  event.u.create2.vendor = 0x1234;
  event.u.create2.product = 0x5678;
  const unsigned char descriptor[] = {0x06, 0x00, 0xFF, 0x09, 0x01, 0xA1, 0x01, 0x09,
                                      0x02, 0x75, 0x08, 0x95, 0x04, 0x81, 0x02, 0xC0};
  event.u.create2.rd_size = sizeof(descriptor);
  std::memcpy(event.u.create2.rd_data, descriptor, sizeof(descriptor));
  ASSERT_EQ(static_cast<ssize_t>(sizeof(event)), write(file, &event, sizeof(event)));
  ASSERT_TRUE(Eventually([] { return !HidrawDevices().empty(); }));
  {
    const Attached attached(HubScenario());
    EXPECT_THAT(List(), SizeIs(1));
  }
  close(file);
  EXPECT_TRUE(Eventually([] { return HidrawDevices().empty(); }));
}

TEST(Listing, HubsThatComeAndGoAreListedWholeOrNotAtAll) {
  constexpr int kRounds = 4;
  std::atomic<bool> isOver{false};
  std::atomic<int> complete{0};
  std::thread bus([&] {
    for (int round = 1; round <= kRounds; ++round) {
      const Attached attached(
          R"({"devices": [{"name": "a", "port": "1"}, {"name": "b", "port": "2"}]})", 2);
      Eventually([&] { return complete >= round; });
    }
    isOver = true;
  });
  while (!isOver) {
    const auto records = List();
    complete += records.size() == 2 ? 1 : 0;
    EXPECT_LE(records.size(), 2u);
    for (const HidDevRecord& record : records) {
      EXPECT_THAT(TextOf(record), MatchesRegex("HID.* 2E7C:0818 .* DEV\\(.*\\)"));
    }
  }
  bus.join();
  EXPECT_GE(complete, kRounds);
}

}  // namespace
}  // namespace qzhid::vm
