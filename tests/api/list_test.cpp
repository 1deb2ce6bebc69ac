// Listing of attached devices. What a record holds: see discovery/listing_test.cpp.
#include "api/api_test.h"

namespace qzhid::test {
namespace {

/// Two hubs and a device of another family, enumerated against the order of their numbers.
class ListTest : public ApiTest {
 protected:
  ListTest() {
    InstallJson(R"({"devices": [
        {"name": "keyboard", "kind": "other", "port": "5", "vid": "0x045E", "pid": "0x0750"},
        {"name": "near", "port": "4", "image": {"pid": "0x0AB9"}},
        {"name": "far", "port": "2-3.1.7"}],
      "enumeration_order": ["far", "keyboard", "near"]})");
    far = machine->HidInstance("far");
    near = machine->HidInstance("near");
  }

  /// What the listing of that name logged is these lines between its first and its last one.
  void ExpectLogged(const char* tag, Lines lines) {
    lines.insert(lines.begin(), {1, tag, "Enter --->\n"});
    lines.push_back({1, tag, "<--- Exit\n"});
    EXPECT_EQ(lines, Logged(tag));
    EXPECT_EQ(kNoHandles, Handles());
  }

  HidDevRecord untouched{};
  HidDevRecord* list = &untouched;
  std::uint32_t count = 77, far = 0, near = 0;
};

constexpr const char* kAll = "QZ_ListAllHidDev";
constexpr const char* kFiltered = "QZ_ListAllHidDevByVIDPID";

TEST_F(ListTest, HubsAreListedInTheSystemsOrderAndNothingElseCanBeOpened) {
  ASSERT_GT(far, near);
  ASSERT_EQ(1, QZ_ListAllHidDev(&list, &count));
  ASSERT_EQ(2u, count);
  EXPECT_EQ(far, list[0].dwInst);
  EXPECT_EQ(near, list[1].dwInst);
  QZ_FreeDevList(list);
  constexpr const char* kLine =
      "Index:%d,dwInst:%u,Port:%d,Level:%d,HwID:HID\\VID_2E7C&PID_%s&REV_0100,\n";
  ExpectLogged(kAll, {{1, kAll, "List Device Success,Hid Count is 2\n"},
                      {1, kAll, Text(kLine, 0, far, 7, 3, "0818")},
                      {1, kAll, Text(kLine, 1, near, 4, 1, "0AB9")}});
  ClearRecords();
  EXPECT_EQ(nullptr, QZ_OpenHid(machine->HidInstance("keyboard")));
  EXPECT_EQ(nullptr, QZ_OpenHid(machine->UsbInstance("near")));
  EXPECT_THAT(Outputs(), IsEmpty());
  handle = QZ_OpenHid(near);
  EXPECT_NE(nullptr, handle);
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
    std::vector<std::uint32_t> listed, expected;
    for (std::size_t i = 0; i < count; ++i) listed.push_back(list[i].dwInst);
    for (const char* name : found) expected.push_back(machine->HidInstance(name));
    EXPECT_EQ(expected, listed);
    QZ_FreeDevList(list);
  }
  EXPECT_EQ(kNoHandles, Handles());
}

TEST_F(ListTest, AListingWithoutOutputsFailsAndAFreeingIsLogged) {
  EXPECT_EQ(0, QZ_ListAllHidDev(nullptr, &count));
  EXPECT_EQ(0, QZ_ListAllHidDev(&list, nullptr));
  QZ_FreeDevList(nullptr);
  const LogLine enter = {1, kAll, "Enter --->\n"}, invalid = {3, kAll, "Invalidate parameter\n"},
                freed = {1, "QZ_FreeDevList", "In QZ_FreeAllDevice,Free Memory\n"};
  EXPECT_THAT(Logged(), ElementsAre(enter, invalid, enter, invalid, freed));
  EXPECT_EQ(77u, count);
}

TEST_F(ListTest, FindingNothingKeepsTheListPointerAndTheCountOfTheCache) {
  EXPECT_EQ(2u, List());
  EXPECT_EQ(0, QZ_ListAllHidDevByVIDPID(0x2E7C, 0x4711, &list, &count));
  EXPECT_EQ(0u, count);
  EXPECT_EQ(&untouched, list);
  ExpectLogged(kFiltered, {{0, kFiltered, "Filter VID:2e7c,PID:4711\n"},
                           {3, kFiltered, "List Hid Device Fail\n"}});
  EXPECT_EQ(nullptr, QZ_OpenHid(far)) << "the records of the last list are gone";
}

TEST_F(ListTest, AnUnreadableRecordFailsTheListingAndKeepsTheCount) {
  machine->AddFault(
      {.on = Fault::On::Call, .service = Service::LocationPaths, .device = "near", .code = 5});
  EXPECT_EQ(0, QZ_ListAllHidDev(&list, &count));
  EXPECT_EQ(nullptr, list);
  EXPECT_EQ(2u, count);
  ExpectLogged(kAll, {{3, kAll, "List Hid Device Fail\n"}});
  EXPECT_EQ(nullptr, QZ_OpenHid(far)) << "two are counted, none is kept";
}

}  // namespace
}  // namespace qzhid::test
