// What is listed of attached devices, also of those that come and go or are not attached by qzhub.
#include <gmock/gmock.h>

#include <atomic>
#include <chrono>
#include <regex>
#include <thread>

#include "vm/host.h"

namespace qzhid::vm {
namespace {

using ::testing::Each;
using ::testing::HasSubstr;
using ::testing::MatchesRegex;
using ::testing::Pair;
using ::testing::ResultOf;
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
  EXPECT_THAT(List(), UnorderedElementsAre(ResultOf(&TextOf, expected("first", "0818")),
                                           ResultOf(&TextOf, expected("second", "0810"))));
  HidDevRecord* list = nullptr;
  std::uint32_t count = 0;
  EXPECT_EQ(1, QZ_ListAllHidDevByVIDPID(0x1234, 0x5678, &list, &count));
  ASSERT_EQ(1u, count);
  EXPECT_EQ("1234", Plain(list[0].VID));
  QZ_FreeDevList(list);
}

/// What the first group of the pattern matches in the program's list.
std::string Listed(const char* pattern, const std::string& options = "") {
  const std::string list = RunProgram("qzhid list --json " + options).second;
  std::smatch found;
  return std::regex_search(list, found, std::regex(pattern)) ? found[1].str() : list;
}

TEST(Listing, TheProgramShowsAHubWithoutNodeInItsPlace) {
  constexpr const char *kPlace = "(\"port_id\"[^}]*)\"level\"", *kState = "\"state\": \"([^\"]*)";
  const Attached attached(HubScenario());
  const std::string place = Listed(kPlace),
                    interface = "1-" + std::to_string(attached.PortOf("hub")) + ":1.0";
  EXPECT_EQ("firmware", Listed(kState));
  EXPECT_EQ(place, Listed(kPlace, "--library /none"));
  EXPECT_EQ("unknown", Listed(kState, "--library /none"));
  WriteFile("/sys/bus/usb/drivers/usbhid/unbind", interface);
  ASSERT_TRUE(Eventually([] { return HidrawDevices().empty(); }));
  EXPECT_EQ(place, Listed(kPlace));
  EXPECT_EQ("no node", Listed(kState));
  EXPECT_THAT(RunProgram("qzhid info"), Pair(5, HasSubstr("the hub has no HID node")));
  WriteFile("/sys/bus/usb/drivers/usbhid/bind", interface);
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

TEST(Listing, TheEndOfAnAttachmentDoesNotWaitForATransfer) {
  Attached attached(HubScenario(R"(, "timing": {"latency_us": 60000000})"));
  const Program silent("qzhid gpio get 3");
  ASSERT_TRUE(Eventually([&] { return silent.HasWritten("waiting for hub"); }));
  const auto start = std::chrono::steady_clock::now();
  EXPECT_EQ(0, attached.Detach());
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(30));
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
    EXPECT_THAT(records, Each(ResultOf(&TextOf, MatchesRegex("HID.* 2E7C:0818 .* DEV\\(.*\\)"))));
  }
  bus.join();
  EXPECT_GE(complete, kRounds);
}

}  // namespace
}  // namespace qzhid::vm
