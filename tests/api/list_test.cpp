// Listing of attached devices. What a record holds: see discovery/listing_test.cpp.
#include "api/api_test.h"

namespace qzhid::test {
namespace {

/// Two hubs and a device of another family, enumerated against the order of their numbers.
class ListTest : public ApiTest {
 protected:
  ListTest() {
    Install(virtualhub::ReadScenario(R"({"record": true, "devices": [
        {"name": "keyboard", "kind": "other", "port": "5", "vid": "0x045E", "pid": "0x0750"},
        {"name": "near", "port": "4", "image": {"pid": "0x0AB9"}},
        {"name": "far", "port": "2-3.1.7"}],
      "enumeration_order": ["far", "keyboard", "near"]})"));
    far = machine->HidInstance("far");
    near = machine->HidInstance("near");
  }

  HidDevRecord untouched{};
  HidDevRecord* list = &untouched;
  std::uint32_t count = 77, far = 0, near = 0;
};

TEST_F(ListTest, HubsAreListedInTheSystemsOrderAndCanBeOpened) {
  ASSERT_GT(far, near);
  ASSERT_EQ(1, QZ_ListAllHidDev(&list, &count));
  ASSERT_EQ(2u, count);
  EXPECT_EQ(far, list[0].dwInst);
  EXPECT_EQ(near, list[1].dwInst);
  QZ_FreeDevList(list);
  constexpr const char* kLine =
      "1 Index:%d,dwInst:%u,Port:%d,Level:%d,HwID:HID\\VID_2E7C&PID_%s&REV_0100,\n";
  EXPECT_EQ("1 Enter --->\n1 List Device Success,Hid Count is 2\n" +
                Text(kLine, 0, far, 7, 3, "0818") + Text(kLine, 1, near, 4, 1, "0AB9") +
                "1 <--- Exit\n",
            Said("QZ_ListAllHidDev"));
  EXPECT_EQ(0, OpenHandles());
  handle = QZ_OpenHid(near);
  EXPECT_NE(nullptr, handle);
  EXPECT_EQ(nullptr, QZ_OpenHid(machine->HidInstance("keyboard"))) << "not listed";
  EXPECT_EQ(nullptr, QZ_OpenHid(machine->UsbInstance("near")));
}

TEST_F(ListTest, TheFilterTakesIdsAsTextAndAnyFamily) {
  const std::tuple<std::uint32_t, std::uint32_t, std::vector<const char*>> cases[] = {
      {0xABCD045E, 0xFFFF0750, {"keyboard"}},  // 16 bits count
      {0x2E7C, 0x0818, {"far"}},
      {0xE7C, 0xAB, {"near"}},  // parts of an id match
      {0x100, 0x8, {"far"}},    // "rev_0100" matches, too
      {0x0, 0x0, {"far", "keyboard", "near"}}};
  for (const auto& [vid, pid, found] : cases) {
    SCOPED_TRACE(Text("%x %x", vid, pid));
    ASSERT_EQ(1, QZ_ListAllHidDevByVIDPID(vid, pid, &list, &count));
    ASSERT_EQ(found.size(), count);
    for (std::size_t i = 0; i < count; ++i)
      EXPECT_EQ(machine->HidInstance(found[i]), list[i].dwInst);
    QZ_FreeDevList(list);
  }
  EXPECT_EQ(0, OpenHandles());
}

TEST_F(ListTest, FindingNothingKeepsTheListPointerAndTheCountOfTheCache) {
  EXPECT_EQ(2u, List());
  EXPECT_EQ(0, QZ_ListAllHidDevByVIDPID(0x2E7C, 0x4711, &list, &count));
  EXPECT_EQ(0u, count);
  EXPECT_EQ(&untouched, list);
  EXPECT_EQ("1 Enter --->\n0 Filter VID:2e7c,PID:4711\n3 List Hid Device Fail\n1 <--- Exit\n",
            Said("QZ_ListAllHidDevByVIDPID"));
  EXPECT_EQ(0, OpenHandles());
  EXPECT_EQ(nullptr, QZ_OpenHid(far)) << "the records of the last list are gone";
}

TEST_F(ListTest, AnUnreadableRecordFailsTheListingAndKeepsTheCount) {
  machine->AddFault({.on = Fault::On::Call,
                     .service = virtualhub::Service::LocationPaths,
                     .device = "near",
                     .code = 5});
  EXPECT_EQ(0, QZ_ListAllHidDev(&list, &count));
  EXPECT_EQ(nullptr, list);
  EXPECT_EQ(2u, count);
  EXPECT_EQ("1 Enter --->\n3 List Hid Device Fail\n1 <--- Exit\n", Said("QZ_ListAllHidDev"));
  EXPECT_EQ(0, OpenHandles());
  EXPECT_EQ(nullptr, QZ_OpenHid(far)) << "two are counted, none is kept";
}

TEST_F(ListTest, PlacesWithAnyCharacterAreFoundAgain) {
  OpenHub(R"(, "usb": {"location_paths": ["ROOT#\uD83D\uDD0C#\u00BD"]})");
  const HidDevRecord* const record = (QZ_ListAllHidDev(&list, &count), list);
  EXPECT_EQ(std::u16string(u"ROOT#\xD83D\xDD0C#\xBD"), record->LocationPath);
  QZ_FreeDevList(list);
}

}  // namespace
}  // namespace qzhid::test
