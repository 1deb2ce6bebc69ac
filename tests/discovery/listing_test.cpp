// The exported records.
#include "discovery/hid_find.h"
#include "support/proxy_test.h"

namespace qzhid::test {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using namespace std::string_literals;

constexpr const char* kTag = "CHidFind::ListHidDevice";

/// The whole field without the zeros at its end.
template <std::size_t N>
std::u16string Text(const QZ_Utf16 (&field)[N]) {
  const std::u16string all(field, N);
  return all.substr(0, all.find_last_not_of(u'\0') + 1);
}

class ListingTest : public ProxyTest {
 protected:
  ~ListingTest() override { std::free(list == &marker ? nullptr : list); }

  /// Two hubs on the root hub; the second one's HID node may have other hardware ids.
  void InstallTwo(const std::string& hidOfSecond = "{}") {
    InstallJson(R"({"devices": [{"name": "a", "port": "1"},
                                {"name": "b", "port": "2", "hid": )" +
                hidOfSecond + "}]}");
  }
  int List() { return find.ListHidDevice(&list, &count); }
  int List(std::uint32_t vid, std::uint32_t pid) {
    return find.ListHidDevice(vid, pid, &list, &count);
  }

  HidDevRecord marker{};
  HidDevRecord* list = &marker;
  std::uint32_t count = 99;
  CHidFind find;
};

TEST_F(ListingTest, ARecordHoldsTheNodesIdsAndThePlaceOfTheUsbNodeAboveIt) {
  InstallJson(R"({"devices": [
      {"name": "deep", "port": "3.1"},
      {"name": "keyboard", "kind": "other", "port": "5", "vid": "0x045E", "pid": "0x0750"},
      {"name": "odd", "port": "2-7", "usb": {"address": 4000000000, "location_paths": ["\ud83d\ude00"]},
       "hid": {"hardware_ids": ["HID\\VID_AB&PID_1"]}}],
      "enumeration_order": ["odd", "keyboard", "deep"]})");
  ASSERT_EQ(1, List());
  ASSERT_EQ(2u, count);
  struct Expected {
    std::uint32_t instance;
    std::u16string hwId, path, vid, pid;
    std::uint32_t level, port;
  };
  const Expected expected[] = {
      {world->HidInstance("odd"), u"HID\\VID_AB&PID_1", u"\U0001F600", u"AB&P", u"1", 1,
       4000000000},
      {world->HidInstance("deep"),
       u"HID\\VID_2E7C&PID_0818&REV_0100\0HID\\VID_2E7C&PID_0818\0"
       u"HID_DEVICE_UP:FF00_U:0001\0HID_DEVICE"s,
       u"PCIROOT(0)#PCI(1400)#USBROOT(0)#USB(3)#USB(1)\0"
       u"ACPI(_SB_)#ACPI(PCI0)#ACPI(XHC1)#ACPI(RHUB)#ACPI(PRT3)#ACPI(PRT1)"s,
       u"2E7C", u"0818", 2, 1}};
  for (int i = 0; i < 2; ++i) {
    SCOPED_TRACE(i);
    EXPECT_EQ(expected[i].instance, list[i].dwInst);
    EXPECT_EQ(expected[i].hwId, Text(list[i].HwID));
    EXPECT_EQ(expected[i].path, Text(list[i].LocationPath));
    EXPECT_EQ(expected[i].vid, Text(list[i].VID));
    EXPECT_EQ(expected[i].pid, Text(list[i].PID));
    EXPECT_EQ(expected[i].level, list[i].Level);
    EXPECT_EQ(expected[i].port, list[i].Port);
    EXPECT_EQ(4u, list[i].dwDevType);
    EXPECT_EQ(4u, list[i].dwDevSubType);
  }
  EXPECT_THAT(log.Of(kTag),
              ElementsAre(LogLine{1, kTag, "List All Hid Device\n"},
                          LogLine{1, kTag, "Index:0,HwID:HID\\VID_AB&PID_1\n"},
                          LogLine{1, kTag, "Index:1,HwID:HID\\VID_2E7C&PID_0818&REV_0100\n"}));
}

TEST_F(ListingTest, WithoutVendorIdThereIsNoProductId) {
  struct Case {
    std::string id;
    std::u16string vid, pid;
  };
  for (const Case& c :
       {Case{"HID\\PID_0818&2E7C", u"", u""}, Case{"HID\\VID_2E7C&0818", u"2E7C", u""},
        Case{"HID\\PID_0818&VID_2E7C", u"2E7C", u"0818"}, Case{"hid\\vid_2e7c&pid_0818", u"", u""},
        Case{"HID\\2E7C&PID_0818VID_", u"", u"0818"},
        Case{"HID\\VID_2E7C1&PID_08182", u"2E7C", u"0818"}}) {
    SCOPED_TRACE(c.id);
    virtualhub::Scenario scenario = RecordedScenario();
    scenario.devices[0].hid.hardwareIds = {c.id, "HID\\VID_1111&PID_2222"};
    Install(scenario);
    ASSERT_EQ(1, List(0x2E7C, 0x0818));
    EXPECT_EQ(c.vid, Text(list->VID));
    EXPECT_EQ(c.pid, Text(list->PID));
    std::free(std::exchange(list, &marker));
  }
}

TEST_F(ListingTest, NothingFoundIsAnEmptyCountAndNoList) {
  EXPECT_EQ(0, List(0x2E7C, 0xFFFF));
  EXPECT_EQ(0u, count);
  EXPECT_EQ(&marker, list);
  EXPECT_THAT(log.Of(kTag), ElementsAre(LogLine{1, kTag, "List All Hid Device\n"}));
  EXPECT_EQ(1, List(0x45E, 0x750)) << "other families are listed when asked for";
  EXPECT_EQ(1u, count);
}

TEST_F(ListingTest, AFailingStepTakesTheListBackAndKeepsTheCount) {
  struct Case {
    const char* service;
    std::uint32_t nth;  // of the calls, the first that concerns the second record
    const char* message;
  };
  for (const Case& c : {Case{"HardwareIds", 4, "Get Dev Hw Id Fail,ErrorCode:0xd\n"},
                        Case{"GetParent", 3, "Get Parent Devinst fail,Error:0xd\n"},
                        Case{"GetAddressProperty", 2, "Get Dev Port Fail,ErrorCode:0xd\n"},
                        Case{"GetDeviceIdA", 2, "Get Dev Level Fail\n"},
                        Case{"LocationPaths", 2, "Get Dev Path Fail,ErrorCode:0xd\n"}}) {
    SCOPED_TRACE(c.service);
    InstallTwo();
    world->AddFault(FailingCall(c.service, c.nth));
    list = &marker;
    EXPECT_EQ(0, List(0x2E7C, 0x0818));
    EXPECT_EQ(nullptr, list);
    EXPECT_EQ(2u, count);
    EXPECT_EQ(1u, log.From(3).size());
    EXPECT_EQ((LogLine{3, kTag, c.message}), log.lines.back());
  }
}

TEST_F(ListingTest, TextsThatDoNotFitTheirFieldsBufferFailTheListing) {
  // A list with its two terminators must fit 512 characters.
  for (const std::size_t length : {510u, 511u}) {
    for (const bool isPath : {false, true}) {
      SCOPED_TRACE(length);
      virtualhub::Scenario scenario = RecordedScenario();
      auto& device = scenario.devices[0];
      (isPath ? device.usb.locationPaths : device.hid.hardwareIds) = {std::string(length, 'x')};
      Install(scenario);
      log.Clear();
      list = &marker;
      EXPECT_EQ(length == 510 ? 1 : 0, List());
      EXPECT_EQ(1u, count);
      if (length == 510) {
        EXPECT_EQ(std::u16string(510, u'x'), Text(isPath ? list->LocationPath : list->HwID));
        std::free(std::exchange(list, &marker));
      } else {
        EXPECT_EQ(nullptr, list);
        EXPECT_EQ(0u,
                  log.Of(kTag).back().text.find(isPath ? "Get Dev Path Fail" : "Get Dev Hw Id"));
      }
    }
  }
}

TEST_F(ListingTest, AFailedEnumerationListsWhatTheFinderFoundBefore) {
  InstallTwo();
  find.EnumAllDevs();
  world->AddFault(FailingCall("OpenNodeSet"));
  EXPECT_EQ(1, List());
  EXPECT_EQ(2u, count);
}

TEST_F(ListingTest, ListingLeavesNothingOpenAndDoesNotCountAsAScan) {
  InstallTwo();
  ASSERT_EQ(1, List());
  using virtualhub::HandleKind;
  for (const HandleKind kind :
       {HandleKind::HidDevice, HandleKind::Event, HandleKind::NodeSet, HandleKind::PreparsedData}) {
    EXPECT_EQ(0, world->openHandles(kind));
  }
  world->Unplug("a");
  ClearRecords();
  find.ScanDevs();
  EXPECT_THAT(world->recorder().Calls("GetParent"), ::testing::SizeIs(1)) << "b is new";
}

}  // namespace
}  // namespace qzhid::test
