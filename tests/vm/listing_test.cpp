// What is listed, and how devices that come and go are told apart.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <linux/uhid.h>
#include <unistd.h>

#include <atomic>
#include <cstring>
#include <thread>

#include "vm/host.h"

namespace qzhid::vm {
namespace {

using ::testing::AllOf;
using ::testing::EndsWith;
using ::testing::IsEmpty;
using ::testing::SizeIs;
using ::testing::StartsWith;

TEST(Listing, TwoHubsAndAForeignDevice) {
  const Attached attached(R"({"devices": [
      {"name": "first", "port": "1"},
      {"name": "other", "kind": "other", "port": "5", "vid": "0x1234", "pid": "0x5678"},
      {"name": "second", "port": "2", "running": "rom"}]})",
                          3);
  const auto records = List();
  ASSERT_THAT(records, SizeIs(2));
  const struct { const char *name, *pid; } expected[] = {{"first", "0818"}, {"second", "0810"}};
  for (const auto& [name, pid] : expected) {
    const std::uint32_t port = attached.PortOf(name);
    const auto record = std::find_if(records.begin(), records.end(),
                                     [&](const auto& listed) { return listed.Port == port; });
    ASSERT_NE(record, records.end()) << name;
    EXPECT_EQ("HID\\VID_2E7C&PID_" + std::string(pid) + "&REV_0100", Plain(record->HwID));
    EXPECT_EQ("2E7C", Plain(record->VID));
    EXPECT_EQ(pid, Plain(record->PID));
    EXPECT_EQ(1u, record->Level);
    EXPECT_EQ("DEV(platform)#DEV(vhci_hcd.0)#USBROOT(0)#USB(" + std::to_string(port) + ")",
              Plain(record->LocationPath));
    EXPECT_EQ(QZ_DEVICE_TYPE_HID, record->dwDevType);
  }
  EXPECT_NE(records[0].dwInst, records[1].dwInst);

  HidDevRecord* list = nullptr;
  std::uint32_t count = 0;
  EXPECT_EQ(1, QZ_ListAllHidDevByVIDPID(0x1234, 0x5678, &list, &count));
  EXPECT_EQ(1u, count);
  EXPECT_EQ("1234", Plain(list[0].VID));
  QZ_FreeDevList(list);
}

TEST(Listing, AnotherVendorIsAcceptedByItsProductText) {
  const std::pair<const char*, std::size_t> rows[] = {{"my WQ HID", 1}, {"W\u00D6 HID", 0}};
  for (const auto& [text, count] : rows) {
    const Attached attached(HubScenario(R"(, "image": {"vid": "0x1A2B", "pid": "0x3C4D"},
        "product_text": ")" + std::string(text) +
                                        '"'));
    const auto records = List();
    ASSERT_THAT(records, SizeIs(count)) << text;
    if (count != 0) {
      EXPECT_EQ("1A2B", Plain(records[0].VID));
    }
  }
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

TEST(Listing, WhileDevicesComeAndGo) {
  std::atomic<bool> isOver{false};
  std::atomic<int> complete{0};
  std::thread bus([&] {
    for (int round = 1; round <= 4; ++round) {
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
      EXPECT_EQ("2E7C", Plain(record.VID));
      EXPECT_THAT(Plain(record.LocationPath), AllOf(StartsWith("DEV("), EndsWith(")")));
    }
  }
  bus.join();
  EXPECT_GE(complete, 4);
}

}  // namespace
}  // namespace qzhid::vm
