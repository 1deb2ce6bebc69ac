// The exported records.
#include "discovery/hid_find.h"
#include "discovery/record_text.h"
#include "support/layer_test.h"

namespace qzhid::test {
namespace {

using namespace std::string_literals;

constexpr const char* kTag = "CHidFind::ListHidDevice";

/// The whole field without the zeros at its end.
template <std::size_t N>
std::u16string FieldText(const QZ_Utf16 (&field)[N]) {
  const std::u16string all(field, N);
  return all.substr(0, all.find_last_not_of(u'\0') + 1);
}

class ListingTest : public LayerTest {
 protected:
  ~ListingTest() override { Forget(); }
  void Forget() {
    if (list != &marker) std::free(list);
    list = &marker;
  }
  int List() {
    Forget();
    return find.ListHidDevice(&list, &count);
  }

  HidDevRecord marker{};
  HidDevRecord* list = &marker;
  std::uint32_t count = 99;
  CHidFind find;
};

TEST_F(ListingTest, ARecordHoldsTheIdsOfTheNodeAndThePlaceOfTheUsbNodeAboveIt) {
  InstallJson(R"({"devices": [
      {"name": "keyboard", "kind": "other", "port": "5", "vid": "0x045E", "pid": "0x0750"},
      {"name": "odd", "port": "2-7", "usb": {"address": 4000000000, "location_paths": ["\ud83d\ude00"]},
       "hid": {"hardware_ids": ["HID\\VID_AB&PID_1", "second"]}}]})");
  ASSERT_EQ(1, List());
  ASSERT_EQ(1u, count);
  EXPECT_EQ(machine->HidInstance("odd"), list->dwInst);
  EXPECT_EQ(u"HID\\VID_AB&PID_1\0second"s, FieldText(list->HwID));
  EXPECT_EQ(u"\U0001F600", FieldText(list->LocationPath));
  EXPECT_EQ(u"AB&P", FieldText(list->VID));
  EXPECT_EQ(u"1", FieldText(list->PID));
  EXPECT_EQ(1u, list->Level);
  EXPECT_EQ(4000000000u, list->Port);
  EXPECT_EQ(4u, list->dwDevType);
  EXPECT_EQ(4u, list->dwDevSubType);
  EXPECT_EQ(LinesOf(kTag, {{1, "List All Hid Device\n"}, {1, "Index:0,HwID:HID\\VID_AB&PID_1\n"}}),
            Logged(kTag));
  EXPECT_EQ(2u, machine->recorder().Calls(Service::OpenHidDevice).size()) << "each is opened once";
  EXPECT_EQ(kNoHandles, Handles());
}

TEST_F(ListingTest, WithoutAVendorIdTheProductIdIsNotLookedFor) {
  for (const auto& [id, vid, pid] :
       {std::tuple{"HID\\PID_0818&2E7C", u"", u""}, std::tuple{"HID\\VID_2E7C&0818", u"2E7C", u""},
        std::tuple{"HID\\PID_0818&VID_2E7C", u"2E7C", u"0818"},
        std::tuple{"hid\\vid_2e7c&pid_0818", u"", u""},
        std::tuple{"HID\\2E7C&PID_0818VID_", u"", u"0818"}}) {
    SCOPED_TRACE(id);
    virtualhub::Scenario scenario = RecordedScenario();
    scenario.devices[0].hid.hardwareIds = {id, "HID\\VID_1111&PID_2222"};
    Install(scenario);
    ASSERT_EQ(1, List());
    EXPECT_EQ(vid, FieldText(list->VID));
    EXPECT_EQ(pid, FieldText(list->PID));
  }
}

TEST_F(ListingTest, AFailedStepReturnsNoListButTheCount) {
  // The number of the call is the first that concerns the second record.
  for (const auto& [service, nth, message] :
       {std::tuple{Service::HardwareIds, 4u, "Get Dev Hw Id Fail,ErrorCode:0xd\n"},
        std::tuple{Service::GetParent, 3u, "Get Parent Devinst fail,Error:0xd\n"},
        std::tuple{Service::GetAddressProperty, 2u, "Get Dev Port Fail,ErrorCode:0xd\n"},
        std::tuple{Service::GetDeviceIdA, 2u, "Get Dev Level Fail\n"},
        std::tuple{Service::LocationPaths, 2u, "Get Dev Path Fail,ErrorCode:0xd\n"}}) {
    SCOPED_TRACE(NameOf(service));
    InstallJson(R"({"devices": [{"name": "a", "port": "1"}, {"name": "b", "port": "2"}]})");
    machine->AddFault(CallFault(service, nth));
    list = &marker;
    EXPECT_EQ(0, find.ListHidDevice(0x2E7C, 0x0818, &list, &count));
    EXPECT_EQ(nullptr, list);
    EXPECT_EQ(2u, count);
    EXPECT_EQ(LinesOf(kTag, {{3, message}}), Failures());
  }
}

TEST_F(ListingTest, ATextListMustFit512CharactersWithItsTwoTerminators) {
  for (const bool isPath : {false, true}) {
    virtualhub::Scenario scenario = RecordedScenario();
    auto& device = scenario.devices[0];
    auto& texts = isPath ? device.usb.locationPaths : device.hid.hardwareIds;
    texts = std::vector{std::string(510, 'x')};
    Install(scenario);
    ASSERT_EQ(1, List());
    EXPECT_EQ(std::u16string(510, u'x'), FieldText(isPath ? list->LocationPath : list->HwID));
    texts->front() += 'x';
    Install(scenario);
    EXPECT_EQ(0, List());
    EXPECT_EQ(0u, log.Lines().back().text.find(isPath ? "Get Dev Path Fail" : "Get Dev Hw Id"));
  }
}

TEST_F(ListingTest, AFieldKeepsAZeroAfterItsTextAndPairsWhole) {
  using Row = std::pair<std::wstring, std::wstring>;
  const Row rows[] = {Row{L"abc", L"abc"}, Row{L"abcd", L"abc"},
                      Row{L"a\U0001F600", L"a\U0001F600"}, Row{L"ab\U0001F600", L"ab"}};
  for (const auto& [text, stored] : rows) {
    QZ_Utf16 field[5] = {0, 0, 0, 0, u'x'};
    StoreText(field, 4, text);
    EXPECT_EQ(stored, qzhid::ReadText(field, 4));
    EXPECT_EQ(u'x', field[4]) << "beyond the field";
  }
}

}  // namespace
}  // namespace qzhid::test
