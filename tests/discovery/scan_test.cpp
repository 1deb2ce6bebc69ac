// Scans: which nodes they find, and what they do to the device objects.
#include <cctype>
#include <deque>
#include <map>

#include "device/dev.h"
#include "discovery/hid_find.h"
#include "support/layer_test.h"

namespace qzhid::test {
namespace {

using ::testing::IsEmpty;
using virtualhub::HandleKind;

constexpr const char* kExTag = "CUSBDevFind::ArriveAllDevsEx";

struct Diary {
  std::string notes;                    // what happened to the device objects
  std::map<std::uint32_t, char> names;  // the letters of the nodes
};

/// A device object that matches the nodes of some letters. The second one notes "2?A" when it is
/// asked whether it matches node A, "2~a" whether it is on node a, "2+a" when it is to arrive; "2-"
/// when it is removed and "2!" by force, each with the number of open devices.
struct ProbeDev final : IDev {
  ProbeDev(Diary& notes, std::size_t index, const std::string& nodes)
      : diary(notes), number(static_cast<char>('1' + index)), matching(nodes) {}
  bool IsMatch(std::uint32_t node) override {
    return matching.find(Note('?', diary.names.at(node))) != std::string::npos;
  }
  bool IsDevInst(std::uint32_t node) override {
    return Note('~', diary.names.at(node)) != 0 && node == inst;
  }
  bool Arrive(std::uint32_t node) override { return Note('+', diary.names.at(inst = node)) != 0; }
  bool Remove() override { return Note('-', OpenDevices()) != 0; }
  void ForceRemove() override { Note('!', OpenDevices()); }

  char Note(char what, char name) {
    diary.notes += {number, what, name, ' '};
    return name;
  }
  static char OpenDevices() {
    return static_cast<char>('0' + virtualhub::CurrentMachine().openHandles(HandleKind::HidDevice));
  }

  Diary& diary;
  const char number;
  const std::string matching;
  std::uint32_t inst = 0;
};

/// Hubs enumerated in another order than that of their numbers. Their HID nodes are a, b and c, the
/// USB nodes above them A, B and C.
class ScanTest : public LayerTest {
 protected:
  ScanTest() {
    InstallJson(R"({"devices": [{"name": "a", "port": "1"}, {"name": "b", "port": "2.2"},
                                {"name": "c", "port": "3"}],
                    "enumeration_order": ["c", "a", "b"]})");
    for (const char* device : {"a", "b", "c"}) Name(device, *device);
  }
  void Name(const std::string& device, char letter) {
    diary.names[machine->HidInstance(device)] = letter;
    diary.names[machine->UsbInstance(device)] = static_cast<char>(std::toupper(letter));
  }
  /// The device comes back on new nodes of another letter.
  void Replug(const std::string& device, char letter) {
    machine->Unplug(device);
    machine->Plug(device);
    Name(device, letter);
  }
  /// A fresh finder with a device object for each that matches the nodes of those letters.
  void Watch(const std::vector<std::string>& matching) {
    devs.clear();
    find = std::make_unique<CHidFind>();
    for (const auto& nodes : matching) find->AddDev(&devs.emplace_back(diary, devs.size(), nodes));
  }
  std::string Scan(void (IDevFinder::*scan)() = &IDevFinder::ScanDevs) {
    diary.notes.clear();
    log.Clear();
    (*find.*scan)();
    return diary.notes.substr(0, diary.notes.find_last_not_of(' ') + 1);
  }
  /// A scan that queues nodes must say how many there are, before it serves one.
  void ExpectScanEx(const std::string& notes, int queued, bool usesLastAttempt = false) {
    EXPECT_EQ(notes, Scan(&IDevFinder::ScanDevsEx));
    std::vector<std::pair<int, std::string>> lines = {{1, "Can not find suit device.\n"}};
    if (queued > 0) lines = {{1, "Suit device num is " + std::to_string(queued) + "\n."}};
    if (usesLastAttempt) lines.emplace_back(1, "Polling connect with hub fail.\n");
    EXPECT_EQ(LinesOf(kExTag, lines), Logged(kExTag));
  }
  std::string Nodes() const {
    std::string names;
    for (const auto node : find->CurrentDevInsts()) names += diary.names.at(node);
    return names;
  }
  /// That many enable requests to a hub stall from now on.
  void Stall(std::uint32_t count) {
    machine->ClearFaults();
    if (count > 0) machine->AddFault(RequestFault(0x4002, 1, count));
    ClearRecords();
  }

  Diary diary;
  std::deque<ProbeDev> devs;
  std::unique_ptr<CHidFind> find = std::make_unique<CHidFind>();
};

TEST_F(ScanTest, ANodeIsNewOnceAndGoneOnce) {
  Watch({""});
  EXPECT_EQ("1?A 1?B 1?C", Scan());  // sorted, however they were enumerated
  EXPECT_EQ("", Scan());
  machine->Unplug("c");
  Replug("a", 'x');
  EXPECT_EQ("1~a 1~c 1?X", Scan());
  EXPECT_EQ("bx", Nodes());

  Watch({"", ""});
  find->AddDev(&devs[0]);
  find->DelDev(&devs[0]);  // both registrations
  EXPECT_EQ("2?B 2?X", Scan());
}

TEST_F(ScanTest, AFailedEnumerationChangesNothing) {
  Watch({""});
  Scan();
  machine->Unplug("c");
  machine->AddFault(CallFault(Service::OpenNodeSet, 1, 2));
  EXPECT_EQ("", Scan());
  EXPECT_FALSE(find->EnumAllDevsWithFilter(0x2E7C, 0x0818));
  const std::string text = "SetupDiGetClassDevs failed 13\n";
  EXPECT_EQ((std::vector<LogLine>{{1, "CHidFind::EnumAllDevs", text},
                                  {1, "CUSBDevFind::EnumAllDevsWithFilter", text}}),
            Logged());
  EXPECT_EQ("abc", Nodes());
  machine->AddFault(CallFault(Service::CloseNodeSet));
  EXPECT_FALSE(find->EnumAllDevs());
  EXPECT_EQ("ab", Nodes());
  EXPECT_EQ(0, machine->openHandles(HandleKind::NodeSet));
}

TEST_F(ScanTest, TheFilterReadsTheFirstHardwareIdInLowerCaseAndAsksNoFamily) {
  machine->AddFault(CallFault(Service::HardwareIds));  // of c, which is enumerated first
  EXPECT_TRUE(find->EnumAllDevsWithFilter(0x2E7C, 0x0818));
  EXPECT_EQ("ab", Nodes());
  EXPECT_EQ("Get Dev Hw Id Fail,ErrorCode:0xd\n",
            Logged("CUSBDevFind::EnumAllDevsWithFilter").at(0).text);
  EXPECT_THAT(machine->recorder().Calls(Service::OpenHidDevice), IsEmpty());
  InstallJson(R"({"devices": [
      {"name": "a", "port": "1", "hid": {"hardware_ids": ["HID\\OTHER", "HID\\VID_ABCD&PID_0012"]}},
      {"name": "b", "port": "2", "hid": {"hardware_ids": ["hid\\vid_abCD&PID_0120"]}}]})");
  Name("b", 'b');
  EXPECT_TRUE(find->EnumAllDevsWithFilter(0xABCD, 0x12));
  EXPECT_EQ("b", Nodes());
}

TEST_F(ScanTest, ADepartureClosesTheDeviceAndRemovesTheFirstObjectOnIt) {
  Watch({"", "A", ""});
  EXPECT_EQ("1?A 2?A 2+a", Scan());
  devs[2].inst = devs[1].inst;
  for (const char* device : {"a", "b", "c"}) machine->Unplug(device);
  EXPECT_EQ("1~a 2~a 2-0 1~b 2~b 3~b 1~c 2~c 3~c", Scan());
}

TEST_F(ScanTest, AHidNodeWithoutParentEndsTheArrivals) {
  Watch({"B"});
  machine->AddFault(CallFault(Service::GetParent));
  EXPECT_EQ("", Scan());
  EXPECT_EQ(1u, Count({3, "CHidFind::ArriveAllDevs", "Get Hid parent devinst fail\n"}));
  EXPECT_EQ("", Scan());
}

TEST_F(ScanTest, AHubIsTried50TimesBeforeTheNextNodeAndNothingIsLogged) {
  for (const std::uint32_t stalls : {49u, 50u}) {
    Watch({"AB", "AB"});
    Stall(stalls);
    EXPECT_EQ(stalls == 49 ? "1?A 1+a" : "1?A 1?B 1+b", Scan());
    EXPECT_EQ(std::vector<std::uint16_t>(stalls + 1, 0x4002), Keys());
    EXPECT_EQ(std::vector<std::uint32_t>(stalls, 100), Pauses());  // after the last one, too
    EXPECT_EQ(1, Handles()[0]);
    for (const LogLine& line : log.Lines()) EXPECT_EQ(line.text.npos, line.text.find("Polling"));
  }
}

TEST_F(ScanTest, AtMostOneObjectArrivesInAScanAndTheOtherNodesAreOldAfterIt) {
  Watch({"A", "BX"});
  EXPECT_EQ("1?A 1+a", Scan());
  EXPECT_EQ("", Scan());
  Replug("b", 'x');
  EXPECT_EQ("1~b 2~b 1?X 2?X 2+x", Scan());

  Watch({"A", "", "A"});
  machine->AddFault(CallFault(Service::OpenHidDevice, 4));  // after those that ask for the family
  EXPECT_EQ("1?A 2?A 3?A 3+a", Scan()) << "offered to the next object that matches";
}

/// A finder of the nodes themselves, but for one.
struct PlainFinder final : CUSBDevFind, IDevFilter {
  explicit PlainFinder(std::uint32_t claimed) : claimedNode(claimed) {
    m_ExcludeFilters.push_back(this);
  }
  const platform::Guid* GetClassGuid() override { return &classGuid; }
  bool Claims(std::uint32_t node) override { return node == claimedNode; }

  const std::uint32_t claimedNode;
  const platform::Guid classGuid = platform::HidClassGuid();
};

TEST_F(ScanTest, APlainFinderMatchesTheNodesThatNoFilterClaimsAndTriesThem100Times) {
  for (const std::uint32_t stalls : {99u, 100u}) {
    Watch({"bc"});
    Stall(stalls);
    PlainFinder finder(machine->HidInstance("b"));
    finder.AddDev(&devs[0]);
    diary.notes.clear();
    finder.ScanDevs();
    EXPECT_EQ(stalls == 99 ? "1?a 1?c 1+c " : "1?a 1?c ", diary.notes);
    EXPECT_EQ(std::vector<std::uint32_t>(stalls, 100), Pauses());
  }
}

TEST_F(ScanTest, ForgettingTheNodesMakesThemNewAgain) {
  Watch({"A"});
  Scan();
  EXPECT_EQ(1, find->DummyRemove(&devs[0]));
  EXPECT_EQ("1?A 1+a 1-1 ", diary.notes) << "closing is left to the device object";
  EXPECT_EQ(1u, Count({0, "CUSBDevFind::DummyRemove", "Into dummy remove function\n"}));
  EXPECT_EQ("1?A 1+a", Scan());
  EXPECT_EQ(1, find->ForceRemove(&devs[0]));
  EXPECT_EQ("1?A 1+a 1!0 ", diary.notes);
  EXPECT_EQ(1u, Count({0, "CUSBDevFind::ForceRemove", "Into force remove function\n"}));
  EXPECT_EQ("1?A 1+a", Scan());
}

TEST_F(ScanTest, MatchingNodesAreQueuedOnceAndServedOneAScanToTheFirstObject) {
  Watch({"abx", "b"});
  ExpectScanEx("1?a 2?a 1?b 2?b 1?c 2?c 1+a", 3);
  ExpectScanEx("1+b", 2);
  ExpectScanEx("1+b", 1);
  Replug("c", 'x');
  ExpectScanEx("1~c 2~c", 0);

  Watch({"", "y"});  // the first matches nothing, and still gets the queued node
  ExpectScanEx("1?a 2?a 1?b 2?b 1?x 2?x", 0);
  Replug("c", 'y');
  ExpectScanEx("1~x 2~x 1?y 2?y 1+y", 1);
}

TEST_F(ScanTest, AQueuedNodeIsTriedTenTimesAndTheLastTimeIsLogged) {
  for (const std::uint32_t stalls : {0u, 9u, 10u}) {
    SCOPED_TRACE(stalls);
    Watch({"b"});
    Stall(stalls);
    ExpectScanEx(stalls < 10 ? "1?a 1?b 1?c 1+b" : "1?a 1?b 1?c", 1, stalls == 9);
    EXPECT_EQ(std::vector<std::uint16_t>(std::min(stalls + 1, 10u), 0x4002), Keys());
    EXPECT_EQ(std::vector<std::uint32_t>(stalls, 100), Pauses());
    ExpectScanEx("", 0);
  }
}

TEST_F(ScanTest, AQueuedNodeThatCannotBeOpenedGoesToTheNextObjectOrIsDropped) {
  Watch({"ab", ""});
  machine->AddFault(CallFault(Service::OpenHidDevice, 4, 2));
  ExpectScanEx("1?a 2?a 1?b 2?b 1?c 2?c", 2);  // a: fails for both
  machine->AddFault(CallFault(Service::OpenHidDevice, 4));
  ExpectScanEx("2+b", 1);  // b: fails for the first
}

}  // namespace
}  // namespace qzhid::test
