// Scans: which nodes they find, and what they do to the device objects.
#include <cctype>
#include <deque>
#include <map>

#include "device/dev.h"
#include "discovery/hid_find.h"
#include "support/layer_test.h"

namespace qzhid::test {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using virtualhub::HandleKind;

using Notes = std::vector<std::string>;

constexpr const char* kExTag = "CUSBDevFind::ArriveAllDevsEx";

/// What happened to the device objects, and the letters of the nodes.
struct Diary {
  Notes notes;
  std::map<std::uint32_t, char> names;
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
    diary.notes.push_back({number, what, name});
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
  Notes Scan(void (IDevFinder::*scan)() = &IDevFinder::ScanDevs) {
    diary.notes.clear();
    log.Clear();
    (*find.*scan)();
    return diary.notes;
  }
  /// A scan that queues nodes must say how many there are, before it serves one.
  void ExpectScanEx(const Notes& notes, int queued, bool usesLastAttempt = false) {
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
  EXPECT_THAT(Scan(), ElementsAre("1?A", "1?B", "1?C"));  // sorted, however they were enumerated
  EXPECT_THAT(Scan(), IsEmpty());
  machine->Unplug("c");
  Replug("a", 'x');
  EXPECT_THAT(Scan(), ElementsAre("1~a", "1~c", "1?X"));
  EXPECT_EQ("bx", Nodes());

  Watch({"", ""});
  find->AddDev(&devs[0]);
  find->DelDev(&devs[0]);  // both registrations
  EXPECT_THAT(Scan(), ElementsAre("2?B", "2?X"));
}

TEST_F(ScanTest, AReturnUnderTheSameNumberIsSeenOnlyIfAScanSawItAway) {
  const Notes leaves = {"1~a", "1-0"}, arrives = {"1?A", "1+a"};
  for (const auto numbers :
       {virtualhub::InstanceNumbers::ById, virtualhub::InstanceNumbers::ByArrival}) {
    virtualhub::Scenario scenario = RecordedScenario();
    scenario.instanceNumbers = numbers;
    Install(scenario);
    diary.names.clear();
    Name("hub", 'a');
    Watch({"A"});
    Scan();
    Replug("hub", 'a');
    const bool isSame = numbers == virtualhub::InstanceNumbers::ById;
    EXPECT_EQ(isSame ? Notes() : Notes({"1~a", "1-0", "1?A", "1+a"}), Scan());
    machine->Unplug("hub");
    EXPECT_EQ(leaves, Scan());
    machine->Plug("hub");
    Name("hub", 'a');
    EXPECT_EQ(arrives, Scan());
  }
}

TEST_F(ScanTest, OfAHubsCollectionsTheOneThatAnswersArrives) {
  InstallJson(R"({"devices": [
      {"name": "mouse", "kind": "other", "port": "1", "part": "Col01", "siblings": ["Col02"]},
      {"name": "hub", "port": "3", "part": "MI_01&Col02", "siblings": ["MI_00", "MI_01&Col01"]}]})");
  diary.names.clear();
  Watch({"P"});
  find->EnumAllDevs();
  ASSERT_EQ(3u, find->CurrentDevInsts().size()) << "each of them is of the family";
  char letter = 'x';  // MI_00, MI_01&Col01, MI_01&Col02
  for (const auto node : find->CurrentDevInsts()) {
    platform::DevInst parent = 0;
    EXPECT_TRUE(platform::GetParent(node, parent));
    diary.names[parent] = letter == 'x' ? 'O' : 'P';
    diary.names[node] = letter++;
  }
  ClearRecords();
  EXPECT_THAT(Scan(), ElementsAre("1?O", "1?P", "1?P", "1+z"));
  EXPECT_EQ(std::vector<std::uint32_t>(50, 100), Pauses()) << "the other collection stalls";
}

TEST_F(ScanTest, ANodeThatVanishesOrIsTakenBetweenTwoOpensIsPassedOver) {
  struct Case {
    Fault::Action action;
    std::uint32_t open;  // of node a: the first asks for its family, the second is to arrive it
    Notes scan, next;
  };
  using enum Fault::Action;
  for (const Case& c :
       {Case{Unplug, 1, {"1?B", "1+b"}, {}}, Case{Unplug, 2, {"1?A", "1?B", "1+b"}, {"1~a"}},
        Case{Hold, 1, {"1?B", "1+b"}, {"1?A", "1+a"}}, Case{Hold, 2, {"1?A", "1?B", "1+b"}, {}}}) {
    SCOPED_TRACE(::testing::Message() << static_cast<int>(c.action) << " at open " << c.open);
    InstallJson(R"({"devices": [{"name": "a", "port": "1"}, {"name": "b", "port": "2"}]})");
    Name("a", 'a');
    Name("b", 'b');
    Watch({"AB"});
    machine->AddFault({.on = Fault::On::Call,
                       .service = Service::OpenHidDevice,
                       .device = "a",
                       .nth = c.open,
                       .action = c.action,
                       .releaseMs = 1});
    EXPECT_EQ(c.scan, Scan());
    machine->SleepMs(1);
    EXPECT_EQ(c.next, Scan()) << "what was free again at once is no longer new";
  }
}

TEST_F(ScanTest, OnlyNodesOfTheFamilyAreKeptAndAllWhereNoneCanBeAsked) {
  Install(RecordedScenario());
  Name("hub", 'h');
  Name("keyboard", 'k');
  EXPECT_TRUE(find->EnumAllDevs());
  EXPECT_EQ("h", Nodes());
  CRequestCMD::Instance().SetProperty(nullptr);
  Watch({"H"});
  EXPECT_THAT(Scan(), ElementsAre("1?H", "1?K"));
}

TEST_F(ScanTest, AFailedEnumerationChangesNothing) {
  Watch({""});
  Scan();
  machine->Unplug("c");
  machine->AddFault(CallFault(Service::OpenNodeSet, 1, 2));
  EXPECT_THAT(Scan(), IsEmpty());
  EXPECT_FALSE(find->EnumAllDevsWithFilter(0x2E7C, 0x0818));
  const std::string text = "SetupDiGetClassDevs failed 13\n";
  EXPECT_THAT(log.Lines(), ElementsAre(LogLine{1, "CHidFind::EnumAllDevs", text},
                                       LogLine{1, "CUSBDevFind::EnumAllDevsWithFilter", text}));
  EXPECT_EQ("abc", Nodes());
  machine->AddFault(CallFault(Service::CloseNodeSet));
  EXPECT_FALSE(find->EnumAllDevs());
  EXPECT_EQ("ab", Nodes());
  EXPECT_EQ(0, machine->openHandles(HandleKind::NodeSet));
}

TEST_F(ScanTest, TheFilterLooksForBothIdsAnywhereInTheFirstHardwareIdItCanRead) {
  machine->AddFault(CallFault(Service::HardwareIds));  // of c, which is enumerated first
  EXPECT_TRUE(find->EnumAllDevsWithFilter(0x2E7C, 0x0818));
  EXPECT_EQ("ab", Nodes());
  EXPECT_EQ(
      LinesOf("CUSBDevFind::EnumAllDevsWithFilter", {{3, "Get Dev Hw Id Fail,ErrorCode:0xd\n"}}),
      Logged());
  const std::string usual = "HID\\VID_2E7C&PID_0818&REV_0100";
  using Ids = std::vector<std::string>;
  for (const auto& [vid, pid, hardwareIds, isKept] :
       {std::tuple{0x0818u, 0x2E7Cu, Ids{usual}, true},
        std::tuple{0x2E7Cu, 0x0819u, Ids{usual}, false},
        std::tuple{0x2E7Du, 0x0818u, Ids{usual}, false},
        std::tuple{0x12342E7Cu, 0xFFFF0818u, Ids{usual}, true},
        std::tuple{0xABCDu, 0x12u, Ids{"hid\\vid_abcd&pid_0120"}, true},
        std::tuple{0x2E7Cu, 0x0818u, Ids{"HID\\OTHER", usual}, false},
        std::tuple{0u, 0u, Ids{}, false}}) {
    SCOPED_TRACE(::testing::PrintToString(hardwareIds));
    virtualhub::Scenario scenario = RecordedScenario();
    scenario.devices[0].hid.hardwareIds = hardwareIds;
    scenario.devices.pop_back();
    Install(scenario);
    EXPECT_TRUE(find->EnumAllDevsWithFilter(vid, pid));
    EXPECT_EQ(isKept ? 1u : 0u, find->CurrentDevInsts().size());
    EXPECT_THAT(machine->recorder().Calls(Service::OpenHidDevice), IsEmpty())
        << "the family is not asked";
  }
}

TEST_F(ScanTest, ADepartureClosesTheDeviceAndRemovesTheFirstObjectOnIt) {
  Watch({"", "A", ""});
  EXPECT_THAT(Scan(), ElementsAre("1?A", "2?A", "2+a"));
  devs[2].inst = devs[1].inst;
  for (const char* device : {"a", "b", "c"}) machine->Unplug(device);
  EXPECT_THAT(Scan(), ElementsAre("1~a", "2~a", "2-0", "1~b", "2~b", "3~b", "1~c", "2~c", "3~c"));
}

TEST_F(ScanTest, AHidNodeWithoutParentEndsTheArrivals) {
  Watch({"B"});
  machine->AddFault(CallFault(Service::GetParent));
  EXPECT_THAT(Scan(), IsEmpty());
  EXPECT_EQ(1u, Count({3, "CHidFind::ArriveAllDevs", "Get Hid parent devinst fail\n"}));
  EXPECT_THAT(Scan(), IsEmpty());
}

TEST_F(ScanTest, AHubHas50AttemptsAndIsLeftForTheNextNodeWithoutALine) {
  for (const std::uint32_t stalls : {49u, 50u}) {
    Watch({"AB", "AB"});
    Stall(stalls);
    EXPECT_EQ(stalls == 49 ? Notes({"1?A", "1+a"}) : Notes({"1?A", "1?B", "1+b"}), Scan());
    EXPECT_EQ(std::vector<std::uint16_t>(stalls + 1, 0x4002), Keys());
    EXPECT_EQ(std::vector<std::uint32_t>(stalls, 100), Pauses());  // after the last one, too
    EXPECT_EQ(1, Handles()[0]);
    for (const LogLine& line : log.Lines()) EXPECT_EQ(line.text.npos, line.text.find("Polling"));
  }
}

TEST_F(ScanTest, AtMostOneObjectArrivesInAScanAndTheOtherNodesAreOldAfterIt) {
  Watch({"A", "BX"});
  EXPECT_THAT(Scan(), ElementsAre("1?A", "1+a"));
  EXPECT_THAT(Scan(), IsEmpty());
  Replug("b", 'x');
  EXPECT_THAT(Scan(), ElementsAre("1~b", "2~b", "1?X", "2?X", "2+x"));

  Watch({"A", "", "A"});
  machine->AddFault(
      CallFault(Service::OpenHidDevice, 4));  // the three hubs were asked for their family
  EXPECT_THAT(Scan(),
              ElementsAre("1?A", "2?A", "3?A", "3+a"));  // offered to the next object that matches
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

TEST_F(ScanTest, APlainFinderMatchesTheNodesThatNoFilterClaimsAndHas100Attempts) {
  for (const std::uint32_t stalls : {99u, 100u}) {
    Watch({"bc"});
    Stall(stalls);
    PlainFinder finder(machine->HidInstance("b"));
    finder.AddDev(&devs[0]);
    diary.notes.clear();
    finder.ScanDevs();
    const Notes found = {"1?a", "1?c"};
    EXPECT_EQ(stalls == 99 ? Notes({"1?a", "1?c", "1+c"}) : found, diary.notes);
    EXPECT_EQ(std::vector<std::uint32_t>(stalls, 100), Pauses());
  }
}

TEST_F(ScanTest, ForgettingTheNodesMakesThemNewAgain) {
  Watch({"A"});
  Scan();
  EXPECT_EQ(1, find->DummyRemove(&devs[0]));
  EXPECT_EQ("1-1", diary.notes.back()) << "closing is left to the device object";
  EXPECT_EQ(1u, Count({0, "CUSBDevFind::DummyRemove", "Into dummy remove function\n"}));
  EXPECT_THAT(Scan(), ElementsAre("1?A", "1+a"));
  EXPECT_EQ(1, find->ForceRemove(&devs[0]));
  EXPECT_EQ("1!0", diary.notes.back());
  EXPECT_EQ(1u, Count({0, "CUSBDevFind::ForceRemove", "Into force remove function\n"}));
  EXPECT_THAT(Scan(), ElementsAre("1?A", "1+a"));
}

TEST_F(ScanTest, MatchingNodesAreQueuedOnceAndServedOneAScanToTheFirstObject) {
  Watch({"abx", "b"});
  ExpectScanEx({"1?a", "2?a", "1?b", "2?b", "1?c", "2?c", "1+a"}, 3);
  ExpectScanEx({"1+b"}, 2);
  ExpectScanEx({"1+b"}, 1);
  Replug("c", 'x');
  ExpectScanEx({"1~c", "2~c"}, 0);

  Watch({"", "y"});  // the first matches nothing, and still gets the queued node
  ExpectScanEx({"1?a", "2?a", "1?b", "2?b", "1?x", "2?x"}, 0);
  Replug("c", 'y');
  ExpectScanEx({"1~x", "2~x", "1?y", "2?y", "1+y"}, 1);
}

TEST_F(ScanTest, AQueuedNodeHasTenAttemptsAndTheUseOfTheLastOneIsLogged) {
  for (const std::uint32_t stalls : {0u, 9u, 10u}) {
    SCOPED_TRACE(stalls);
    Watch({"b"});
    Stall(stalls);
    Notes notes = {"1?a", "1?b", "1?c"};
    if (stalls < 10) notes.emplace_back("1+b");
    ExpectScanEx(notes, 1, stalls == 9);
    EXPECT_EQ(std::vector<std::uint16_t>(std::min(stalls + 1, 10u), 0x4002), Keys());
    EXPECT_EQ(std::vector<std::uint32_t>(stalls, 100), Pauses());
    ExpectScanEx({}, 0);
  }
}

TEST_F(ScanTest, AQueuedNodeThatCannotBeOpenedGoesToTheNextObjectOrIsDropped) {
  Watch({"ab", ""});
  machine->AddFault(CallFault(Service::OpenHidDevice, 4, 2));
  ExpectScanEx({"1?a", "2?a", "1?b", "2?b", "1?c", "2?c"}, 2);  // a: fails for both
  machine->AddFault(CallFault(Service::OpenHidDevice, 4));
  ExpectScanEx({"2+b"}, 1);  // b: fails for the first
}

}  // namespace
}  // namespace qzhid::test
