// Listing of attached devices.
#include "api/api_test.h"

namespace qzhid::test {
namespace {

constexpr const char* kTag = "QZ_ListAllHidDev";
constexpr const char* kFilterTag = "QZ_ListAllHidDevByVIDPID";

/// The texts of a list, joined by "|".
std::u16string Joined(const QZ_Utf16* list) {
  std::u16string joined;
  for (; *list != 0; list += std::u16string(list).size() + 1) joined += std::u16string(list) + u"|";
  return joined;
}

/// Two hubs and a device of another family, enumerated against the order of their numbers.
class ListTest : public ApiTest {
 protected:
  ListTest() {
    Install(virtualhub::ReadScenario(R"({"record": true, "devices": [
        {"name": "keyboard", "kind": "other", "port": "5", "vid": "0x045E", "pid": "0x0750"},
        {"name": "near", "port": "4", "image": {"pid": "0x0AB9"}},
        {"name": "far", "port": "2-3.1.7"}],
      "enumeration_order": ["far", "keyboard", "near"]})"));
    far = world->HidInstance("far");
    near = world->HidInstance("near");
  }

  HidDevRecord untouched{};
  HidDevRecord* list = &untouched;
  std::uint32_t count = 77, far = 0, near = 0;
};

TEST_F(ListTest, HubsAreListedInTheSystemsOrderWithWhatTheirNodesSay) {
  ASSERT_GT(far, near);
  ASSERT_EQ(1, QZ_ListAllHidDev(&list, &count));
  ASSERT_EQ(2u, count);
  const HidDevRecord& first = list[0];
  EXPECT_EQ(far, first.dwInst);
  EXPECT_EQ(
      u"HID\\VID_2E7C&PID_0818&REV_0100|HID\\VID_2E7C&PID_0818|HID_DEVICE_UP:FF00_U:0001|HID_"
      u"DEVICE|",
      Joined(first.HwID));
  EXPECT_EQ(
      u"PCIROOT(0)#PCI(1500)#USBROOT(0)#USB(3)#USB(1)#USB(7)|"
      u"ACPI(_SB_)#ACPI(PCI0)#ACPI(XHC2)#ACPI(RHUB)#ACPI(PRT3)#ACPI(PRT1)#ACPI(PRT7)|",
      Joined(first.LocationPath));
  EXPECT_EQ(u"0818", std::u16string(first.PID));
  EXPECT_EQ(u"2E7C", std::u16string(first.VID));
  EXPECT_EQ(near, list[1].dwInst);
  const std::uint32_t numbers[] = {3, 7, 4, 4, 1, 4, 4, 4};
  const auto* expected = numbers;
  for (const HidDevRecord* record : {&list[0], &list[1]}) {
    EXPECT_EQ(*expected++, record->Level);
    EXPECT_EQ(*expected++, record->Port);
    EXPECT_EQ(*expected++, record->dwDevType);
    EXPECT_EQ(*expected++, record->dwDevSubType);
  }
  QZ_FreeDevList(list);
  constexpr const char* kLine =
      "Index:%d,dwInst:%u,Port:%d,Level:%d,HwID:HID\\VID_2E7C&PID_%s&REV_0100,\n";
  const Lines lines = {{1, kTag, "Enter --->\n"},
                       {1, kTag, "List Device Success,Hid Count is 2\n"},
                       {1, kTag, Text(kLine, 0, far, 7, 3, "0818")},
                       {1, kTag, Text(kLine, 1, near, 4, 1, "0AB9")},
                       {1, kTag, "<--- Exit\n"}};
  EXPECT_EQ(lines, log.Of(kTag));
  EXPECT_EQ(0, OpenHandles());
  for (const std::uint32_t number : {far, near}) {
    void* const opened = QZ_OpenHid(number);
    EXPECT_NE(nullptr, opened);
    QZ_CloseDev(opened);
  }
}

TEST_F(ListTest, TheFilterTakesIdsAsTextAndAnyFamily) {
  const struct {
    std::uint32_t vid, pid;
    std::vector<const char*> found;
  } cases[] = {{0xABCD045E, 0xFFFF0750, {"keyboard"}},  // 16 bits count
               {0x2E7C, 0x0818, {"far"}},
               {0xE7C, 0xAB, {"near"}},  // parts of an id match
               {0x100, 0x8, {"far"}},    // "rev_0100" matches, too
               {0x0, 0x0, {"far", "keyboard", "near"}}};
  for (const auto& wanted : cases) {
    SCOPED_TRACE(Text("%x %x", wanted.vid, wanted.pid));
    ASSERT_EQ(1, QZ_ListAllHidDevByVIDPID(wanted.vid, wanted.pid, &list, &count));
    ASSERT_EQ(wanted.found.size(), count);
    for (std::size_t i = 0; i < count; ++i) {
      EXPECT_EQ(world->HidInstance(wanted.found[i]), list[i].dwInst);
    }
    QZ_FreeDevList(list);
  }
  EXPECT_EQ(0, OpenHandles());
}

TEST_F(ListTest, FindingNothingKeepsTheListPointerAndTheCountOfTheCache) {
  EXPECT_EQ(2u, List());
  ClearRecords();
  EXPECT_EQ(0, QZ_ListAllHidDevByVIDPID(0x2E7C, 0x4711, &list, &count));
  EXPECT_EQ(0u, count);
  EXPECT_EQ(&untouched, list);
  const Lines lines = {{1, kFilterTag, "Enter --->\n"},
                       {0, kFilterTag, "Filter VID:2e7c,PID:4711\n"},
                       {3, kFilterTag, "List Hid Device Fail\n"},
                       {1, kFilterTag, "<--- Exit\n"}};
  EXPECT_EQ(lines, log.Of(kFilterTag));
  EXPECT_EQ(0, OpenHandles());
  // The count of the last list is left, its records are not.
  ClearRecords();
  EXPECT_EQ(nullptr, QZ_OpenHid(far));
  EXPECT_TRUE(log.lines.empty());
}

TEST_F(ListTest, AnUnreadableRecordFailsTheListingAndKeepsTheCount) {
  Fault broken = Failing(Fault::On::Call, 0x2A);
  broken.service = "LocationPaths";
  broken.device = "near";
  world->AddFault(broken);
  EXPECT_EQ(0, QZ_ListAllHidDev(&list, &count));
  EXPECT_EQ(nullptr, list);
  EXPECT_EQ(2u, count);
  EXPECT_EQ(1u, log.Count({3, "CHidFind::ListHidDevice", "Get Dev Path Fail,ErrorCode:0x2a\n"}));
  const Lines lines = {
      {1, kTag, "Enter --->\n"}, {3, kTag, "List Hid Device Fail\n"}, {1, kTag, "<--- Exit\n"}};
  EXPECT_EQ(lines, log.Of(kTag));
  EXPECT_EQ(0, OpenHandles());
  EXPECT_EQ(nullptr, QZ_OpenHid(far)) << "two are counted, none is kept";
}

}  // namespace
}  // namespace qzhid::test
