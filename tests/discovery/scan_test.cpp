// Scans: which nodes they find, and what they tell the device objects.
#include "device/dev.h"
#include "discovery/hid_find.h"
#include "support/proxy_test.h"

namespace qzhid::test {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;
using virtualhub::Fault;
using Nodes = std::vector<std::uint32_t>;

constexpr const char* kExTag = "CUSBDevFind::ArriveAllDevsEx";

/// A device object that answers as told and keeps what it is told.
class ProbeDev final : public IDev {
 public:
  explicit ProbeDev(Nodes matchingNodes = {}) : matching(std::move(matchingNodes)) {}
  bool IsMatch(std::uint32_t node) override {
    asked.push_back(node);
    return std::count(matching.begin(), matching.end(), node) > 0;
  }
  bool IsDevInst(std::uint32_t node) override {
    askedGone.push_back(node);
    return node == inst;
  }
  bool Arrive(std::uint32_t node) override {
    arrived.push_back(inst = node);
    return true;
  }
  bool Remove() override {
    openWhenRemoved.push_back(
        virtualhub::CurrentWorld().openHandles(virtualhub::HandleKind::HidDevice));
    return true;
  }
  void ForceRemove() override { ++forced; }

  Nodes matching, asked, askedGone, arrived;
  std::uint32_t inst = 0;
  std::vector<int> openWhenRemoved;
  int forced = 0;
};

/// Finds the nodes of the HID class, of whatever family.
class ClassFind final : public CUSBDevFind {
 public:
  const platform::Guid* GetClassGuid() override { return &m_Guid; }
  void AddFilter(IDevFilter& filter) { m_ExcludeFilters.push_back(&filter); }

 private:
  const platform::Guid m_Guid = platform::HidClassGuid();
};

/// Hubs "a", "b" and "c", enumerated in another order than that of their numbers.
class ScanTest : public ProxyTest {
 protected:
  ScanTest() {
    InstallJson(R"({"devices": [{"name": "a", "port": "1"}, {"name": "b", "port": "2.2"},
                                {"name": "c", "port": "3"}],
                    "enumeration_order": ["c", "a", "b"]})");
    Renew();
  }
  void Renew() {
    a = world->HidInstance("a");
    b = world->HidInstance("b");
    c = world->HidInstance("c");
    ClearRecords();
  }
  /// How many enable requests reached the node, each one checked.
  std::size_t Polls(std::uint32_t node) const {
    std::size_t polls = 0;
    for (const auto& request : world->recorder().Of(virtualhub::Record::Kind::Request)) {
      if (request.instance != node) continue;
      EXPECT_THAT(request.setup, ElementsAre(0x40, 2, 1, 0, 0x7C, 0x2E, 0, 0, 0, 0, 0));
      ++polls;
    }
    return polls;
  }

  std::uint32_t a = 0, b = 0, c = 0;
  ClassFind find;
};

TEST_F(ScanTest, ANodeIsNewOnceAndGoneOnce) {
  ProbeDev probe;
  find.AddDev(&probe);
  find.ScanDevs();
  EXPECT_THAT(probe.asked, ElementsAre(a, b, c));  // sorted, however they were enumerated
  EXPECT_THAT(probe.askedGone, IsEmpty());
  find.ScanDevs();
  EXPECT_EQ(3u, probe.asked.size());
  EXPECT_THAT(probe.askedGone, IsEmpty());

  world->Unplug("c");
  world->Unplug("a");
  world->Plug("a");
  probe.asked.clear();
  find.ScanDevs();
  EXPECT_THAT(probe.asked, ElementsAre(world->HidInstance("a")));
  EXPECT_THAT(probe.askedGone, ElementsAre(a, c));
  EXPECT_THAT(find.CurrentDevInsts(), ElementsAre(b, world->HidInstance("a")));
}

TEST_F(ScanTest, RegistrationsCountUntilAllAreTakenBack) {
  ProbeDev probe, other;
  for (ProbeDev* dev : {&probe, &other, &probe}) find.AddDev(dev);
  find.DelDev(&probe);
  find.ScanDevs();
  EXPECT_THAT(probe.asked, IsEmpty());
  EXPECT_THAT(other.asked, ElementsAre(a, b, c));
}

TEST_F(ScanTest, FilteredNodesAreLeftAlone) {
  struct Filter final : IDevFilter {
    bool Claims(std::uint32_t node) override { return node == claimed; }
    std::uint32_t claimed = 0;
  } first, second;
  first.claimed = a;
  second.claimed = c;
  find.AddFilter(first);
  find.AddFilter(second);
  EXPECT_TRUE(find.EnumAllDevs());
  EXPECT_THAT(find.CurrentDevInsts(), ElementsAre(b));
}

TEST_F(ScanTest, TheHidFinderKeepsTheFamilyOrEverythingWhereItCannotAsk) {
  Install(RecordedScenario());
  log.Clear();
  const auto hub = world->HidInstance("hub"), keyboard = world->HidInstance("keyboard");
  CHidFind hidFind;
  EXPECT_TRUE(hidFind.EnumAllDevs());
  EXPECT_THAT(hidFind.CurrentDevInsts(), ElementsAre(hub));

  CRequestCMD::Instance().SetProperty(nullptr);
  log.Clear();
  ProbeDev probe({world->UsbInstance("hub")});
  hidFind.AddDev(&probe);
  hidFind.ScanDevs();
  EXPECT_THAT(hidFind.CurrentDevInsts(), ElementsAre(hub, keyboard));
  EXPECT_THAT(probe.arrived, IsEmpty());
  const LogLine asked{3, "CRequestCMD::YvHid_IsWqHid", "Property Object is null!!\n"};
  EXPECT_THAT(log.lines,
              ElementsAre(asked, asked, LogLine{3, "CRequestCMD::QZ_OpenDevice", asked.text}));
}

TEST_F(ScanTest, AFailedEnumerationChangesNothing) {
  CHidFind hidFind;
  hidFind.EnumAllDevs();
  ProbeDev probe;
  find.AddDev(&probe);
  find.ScanDevs();
  world->Unplug("c");
  ClearRecords();
  world->AddFault(FailingCall("OpenNodeSet", 1, 3));
  find.ScanDevs();
  EXPECT_FALSE(find.EnumAllDevsWithFilter(0x2E7C, 0x0818));
  EXPECT_FALSE(hidFind.EnumAllDevs());
  const std::string text = "SetupDiGetClassDevs failed 13\n";
  EXPECT_THAT(log.lines, ElementsAre(LogLine{1, "CUSBDevFind::EnumAllDevs", text},
                                     LogLine{1, "CUSBDevFind::EnumAllDevsWithFilter", text},
                                     LogLine{1, "CHidFind::EnumAllDevs", text}));
  EXPECT_THAT(find.CurrentDevInsts(), ElementsAre(a, b, c));
  EXPECT_THAT(hidFind.CurrentDevInsts(), ElementsAre(c, a, b));
  EXPECT_THAT(probe.askedGone, IsEmpty());
  world->AddFault(FailingCall("CloseNodeSet"));
  EXPECT_FALSE(find.EnumAllDevs());
  EXPECT_THAT(find.CurrentDevInsts(), ElementsAre(a, b));
  EXPECT_EQ(0, world->openHandles(virtualhub::HandleKind::NodeSet));
}

TEST_F(ScanTest, TheFilterLooksForBothIdsAnywhereInTheFirstHardwareId) {
  const std::string usual = "HID\\VID_2E7C&PID_0818&REV_0100";
  struct Case {
    std::uint32_t vid, pid;
    std::vector<std::string> hardwareIds;
    bool isKept;
  };
  for (const Case& row : {
           Case{0x2E7C, 0x0818, {usual}, true},
           Case{0x0818, 0x2E7C, {usual}, true},
           Case{0x2E7C, 0x0819, {usual}, false},
           Case{0x2E7D, 0x0818, {usual}, false},
           Case{0x12342E7C, 0xFFFF0818, {usual}, true},
           Case{0x2E7C, 0x0100, {usual}, true},
           Case{0xABCD, 0x12, {"HID\\VID_ABCD&PID_0012"}, true},
           Case{0xABCD, 0x12, {"hid\\vid_abcd&pid_0120"}, true},
           Case{0x1234, 0xEF, {"HID\\DEF1234"}, true},
           Case{0x0002, 0x00AB, {"HID\\VID_2E7C&PID_0A0B"}, false},
           Case{0x2E7C, 0x0818, {"HID\\OTHER", usual}, false},
           Case{0, 0, {}, false},
       }) {
    SCOPED_TRACE(row.hardwareIds.empty() ? "none" : row.hardwareIds.front());
    virtualhub::Scenario scenario = RecordedScenario();
    scenario.devices[0].hid.hardwareIds = row.hardwareIds;
    scenario.devices.pop_back();
    Install(scenario);
    EXPECT_TRUE(find.EnumAllDevsWithFilter(row.vid, row.pid));
    EXPECT_EQ(row.isKept ? 1u : 0u, find.CurrentDevInsts().size());
    EXPECT_THAT(world->recorder().Calls("OpenHidDevice"), IsEmpty()) << "the family is not asked";
  }
}

TEST_F(ScanTest, TheFilterGoesOnBehindUnreadableHardwareIds) {
  world->AddFault(FailingCall("HardwareIds"));
  EXPECT_TRUE(find.EnumAllDevsWithFilter(0x2E7C, 0x0818));
  EXPECT_THAT(find.CurrentDevInsts(), ElementsAre(a, b));  // c is enumerated first
  EXPECT_THAT(log.lines, ElementsAre(LogLine{3, "CUSBDevFind::EnumAllDevsWithFilter",
                                             "Get Dev Hw Id Fail,ErrorCode:0xd\n"}));
}

TEST_F(ScanTest, ADepartureClosesTheDeviceAndRemovesTheFirstObjectOnIt) {
  ProbeDev other, first({a}), second;
  for (ProbeDev* dev : {&other, &first, &second}) find.AddDev(dev);
  find.ScanDevs();
  EXPECT_EQ(1, OpenDevices());
  EXPECT_THAT(first.arrived, ElementsAre(a));
  second.inst = a;
  world->Unplug("a");
  find.ScanDevs();
  EXPECT_THAT(first.openWhenRemoved, ElementsAre(0));
  EXPECT_THAT(second.openWhenRemoved, IsEmpty());
  EXPECT_THAT(other.openWhenRemoved, IsEmpty());
  world->Unplug("b");
  find.ScanDevs();
  EXPECT_EQ(1u, first.openWhenRemoved.size());
}

/// The finder that scans, and how often it asks a hub to accept vendor commands.
struct Poller {
  bool isHid;
  std::uint32_t attempts;

  friend void PrintTo(const Poller& poller, std::ostream* out) {
    *out << (poller.isHid ? "CHidFind" : "CUSBDevFind");
  }
};
class ArrivalTest : public ScanTest, public ::testing::WithParamInterface<Poller> {
 protected:
  std::unique_ptr<IDevFinder> MakeFinder(const std::vector<IDev*>& devs) {
    std::unique_ptr<IDevFinder> finder = std::make_unique<ClassFind>();
    if (GetParam().isHid) finder = std::make_unique<CHidFind>();
    for (IDev* dev : devs) finder->AddDev(dev);
    return finder;
  }
  /// The node that a device object is asked about.
  std::uint32_t MatchNode(const char* device) {
    return GetParam().isHid ? world->UsbInstance(device) : world->HidInstance(device);
  }
};
INSTANTIATE_TEST_SUITE_P(, ArrivalTest, ::testing::Values(Poller{false, 100}, Poller{true, 50}));

TEST_P(ArrivalTest, AHubHasSoManyAttemptsAndIsLeftForTheNextNodeWithoutALine) {
  const std::uint32_t attempts = GetParam().attempts;
  for (const std::uint32_t stalls : {attempts - 1, attempts}) {
    world->ClearFaults();
    world->AddFault(RequestFault(0x4002, 1, stalls));
    ClearRecords();
    ProbeDev first({MatchNode("a"), MatchNode("b")}), second({MatchNode("a"), MatchNode("b")});
    const auto finder = MakeFinder({&first, &second});
    finder->ScanDevs();
    EXPECT_EQ(attempts, Polls(a));
    EXPECT_EQ(std::vector<std::uint32_t>(stalls, 100), Pauses());  // after the last one, too
    EXPECT_EQ(Nodes{stalls < attempts ? a : b}, first.arrived);
    EXPECT_THAT(second.asked, IsEmpty());
    EXPECT_EQ(1, OpenDevices());
    for (const LogLine& line : log.lines) EXPECT_THAT(line.text, Not(HasSubstr("Polling")));
  }
}

TEST_P(ArrivalTest, WhatCannotBeOpenedIsOfferedToTheNextObject) {
  ProbeDev first({MatchNode("a")}), other, second({MatchNode("a")});
  const auto finder = MakeFinder({&first, &other, &second});
  // The HID finder has opened the three hubs to see what they are.
  world->AddFault(FailingCall("OpenHidDevice", GetParam().isHid ? 4 : 1));
  finder->ScanDevs();
  EXPECT_THAT(first.arrived, IsEmpty());
  EXPECT_THAT(second.arrived, ElementsAre(a));
}

TEST_P(ArrivalTest, AtMostOneObjectArrivesAScanAndTheOtherNodesAreOldThen) {
  ProbeDev first({MatchNode("a")}), second({MatchNode("b")});
  const auto finder = MakeFinder({&first, &second});
  finder->ScanDevs();
  finder->ScanDevs();
  EXPECT_THAT(first.arrived, ElementsAre(a));
  EXPECT_THAT(second.arrived, IsEmpty());
  world->Unplug("b");
  world->Plug("b");
  second.matching = {MatchNode("b")};
  finder->ScanDevs();
  EXPECT_THAT(second.arrived, ElementsAre(world->HidInstance("b")));
}

TEST_P(ArrivalTest, ForgettingTheNodesMakesThemNewAgain) {
  ProbeDev probe({MatchNode("a")});
  const auto finder = MakeFinder({&probe});
  finder->ScanDevs();
  log.Clear();
  EXPECT_EQ(1, finder->DummyRemove(&probe));
  EXPECT_EQ((LogLine{0, "CUSBDevFind::DummyRemove", "Into dummy remove function\n"}), log.lines[0]);
  EXPECT_THAT(probe.openWhenRemoved, ElementsAre(1));  // closing is the device object's affair
  finder->ScanDevs();
  EXPECT_EQ(1, OpenDevices());
  log.Clear();
  EXPECT_EQ(1, finder->ForceRemove(&probe));
  EXPECT_EQ((LogLine{0, "CUSBDevFind::ForceRemove", "Into force remove function\n"}), log.lines[0]);
  EXPECT_EQ(1, probe.forced);
  EXPECT_EQ(1u, probe.openWhenRemoved.size());
  EXPECT_EQ(0, OpenDevices());
  finder->ScanDevs();
  EXPECT_THAT(probe.arrived, ElementsAre(a, a, a));
  EXPECT_THAT(probe.askedGone, IsEmpty());
}

TEST_F(ScanTest, AHidNodeWithoutParentEndsTheArrivals) {
  CHidFind hidFind;
  ProbeDev probe({world->UsbInstance("b")});
  hidFind.AddDev(&probe);
  world->AddFault(FailingCall("GetParent"));
  hidFind.ScanDevs();
  EXPECT_THAT(probe.asked, IsEmpty());
  EXPECT_THAT(log.From(3),
              ElementsAre(LogLine{3, "CHidFind::ArriveAllDevs", "Get Hid parent devinst fail\n"}));
  hidFind.ScanDevs();
  EXPECT_THAT(probe.asked, IsEmpty());
}

TEST_F(ScanTest, QueuedNodesAreServedOneAScanToTheFirstObjectThatCanOpenThem) {
  ProbeDev first({a, b}), second({b});
  find.AddDev(&first);
  find.AddDev(&second);
  for (int scan = 0; scan < 4; ++scan) find.ScanDevsEx();
  world->Unplug("c");
  world->Plug("c");
  first.matching = {world->HidInstance("c")};
  find.ScanDevsEx();  // the queue is built once
  EXPECT_THAT(log.Of(kExTag), ElementsAre(LogLine{1, kExTag, "Suit device num is 3\n."},
                                          LogLine{1, kExTag, "Suit device num is 2\n."},
                                          LogLine{1, kExTag, "Suit device num is 1\n."},
                                          LogLine{1, kExTag, "Can not find suit device.\n"},
                                          LogLine{1, kExTag, "Can not find suit device.\n"}));
  EXPECT_THAT(first.arrived, ElementsAre(a, b, b));
  EXPECT_THAT(second.arrived, IsEmpty());
}

TEST_F(ScanTest, TheQueueIsBuiltByTheFirstScanThatFindsAMatch) {
  ProbeDev other, probe;
  find.AddDev(&other);  // matches nothing, and still gets the queued node
  find.AddDev(&probe);
  find.ScanDevsEx();
  world->Unplug("c");
  world->Plug("c");
  probe.matching = {world->HidInstance("c")};
  find.ScanDevsEx();
  EXPECT_THAT(log.Of(kExTag), ElementsAre(LogLine{1, kExTag, "Can not find suit device.\n"},
                                          LogLine{1, kExTag, "Suit device num is 1\n."}));
  EXPECT_THAT(other.arrived, ElementsAre(world->HidInstance("c")));
  EXPECT_THAT(probe.arrived, IsEmpty());
}

TEST_F(ScanTest, AQueuedNodeHasTenAttemptsAndTheUseOfTheLastOneIsTold) {
  struct Case {
    std::uint32_t stalls, polls;
    bool arrives, isTold;
  };
  for (const Case& row : {Case{0, 1, true, false}, Case{8, 9, true, false}, Case{9, 10, true, true},
                          Case{10, 10, false, false}}) {
    SCOPED_TRACE(row.stalls);
    world->ClearFaults();
    if (row.stalls > 0) world->AddFault(RequestFault(0x4002, 1, row.stalls));
    ClearRecords();
    ClassFind exFind;
    ProbeDev probe({b}), second;
    exFind.AddDev(&probe);
    exFind.AddDev(&second);
    exFind.ScanDevsEx();
    EXPECT_EQ(row.arrives ? Nodes{b} : Nodes{}, probe.arrived);
    EXPECT_THAT(second.arrived, IsEmpty());
    EXPECT_EQ(row.polls, Polls(b));
    EXPECT_EQ(std::vector<std::uint32_t>(row.stalls, 100), Pauses());
    EXPECT_EQ(row.isTold ? 1u : 0u, log.Count({1, kExTag, "Polling connect with hub fail.\n"}));
    exFind.ScanDevsEx();
    EXPECT_EQ("Can not find suit device.\n", log.Of(kExTag).back().text);
  }
}

TEST_F(ScanTest, AQueuedNodeThatCannotBeOpenedGoesToTheNextObjectOrIsDropped) {
  ProbeDev first({a, b}), second;
  find.AddDev(&first);
  find.AddDev(&second);
  world->AddFault(FailingCall("OpenHidDevice", 1, 3));
  find.ScanDevsEx();  // a: fails for both
  EXPECT_EQ(0u, Polls(a));
  find.ScanDevsEx();  // b: fails for the first
  EXPECT_THAT(first.arrived, IsEmpty());
  EXPECT_THAT(second.arrived, ElementsAre(b));
}

}  // namespace
}  // namespace qzhid::test
