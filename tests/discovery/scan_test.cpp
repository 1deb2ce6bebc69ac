// Scans: which nodes they find, and what they tell the device objects.
#include <cctype>
#include <deque>
#include <map>

#include "device/dev.h"
#include "discovery/hid_find.h"
#include "support/proxy_test.h"

namespace qzhid::test {
namespace {

using ::testing::Each;
using ::testing::ElementsAre;
using ::testing::Field;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;
using virtualhub::HandleKind;

constexpr const char* kExTag = "CUSBDevFind::ArriveAllDevsEx";
const std::string kNone = "Can not find suit device.\n";
std::string Suit(int nodes) { return "Suit device num is " + std::to_string(nodes) + "\n."; }

/// What happens to the device objects, in order.
struct Diary {
  std::map<std::uint32_t, char> names;  // of HID nodes lower case, of USB nodes upper case
  bool isUsbNodeAsked = false;
  std::string text;
};

/// A device object of a number that matches the nodes of some letters. The second one writes "2?a"
/// when it is asked whether it matches node a, "2~a" whether it is on it, "2+a" when it is to
/// arrive; "2-" when it is removed and "2!" by force, each with the number of open devices.
class ProbeDev final : public IDev {
 public:
  ProbeDev(Diary& diary, std::size_t number, std::string matching)
      : m_Diary(diary), m_strNumber(std::to_string(number)), m_strMatching(std::move(matching)) {}
  bool IsMatch(std::uint32_t node) override {
    EXPECT_EQ(m_Diary.isUsbNodeAsked, std::isupper(m_Diary.names.at(node)) != 0);
    return m_strMatching.find(Note('?', node)) != std::string::npos;
  }
  bool IsDevInst(std::uint32_t node) override { return Note('~', node) != '\0' && node == inst; }
  bool Arrive(std::uint32_t node) override { return Note('+', inst = node) != '\0'; }
  bool Remove() override { return NoteOpen('-'); }
  void ForceRemove() override { NoteOpen('!'); }

  std::uint32_t inst = 0;

 private:
  char Note(char what, std::uint32_t node) {
    const auto name = static_cast<char>(std::tolower(m_Diary.names.at(node)));
    m_Diary.text += m_strNumber + what + name + ' ';
    return name;
  }
  bool NoteOpen(char what) {
    const int open = virtualhub::CurrentWorld().openHandles(HandleKind::HidDevice);
    m_Diary.text += m_strNumber + what + std::to_string(open) + ' ';
    return true;
  }
  Diary& m_Diary;
  const std::string m_strNumber, m_strMatching;
};

/// Finds the nodes of the HID class, of whatever family.
class ClassFind final : public CUSBDevFind {
 public:
  const platform::Guid* GetClassGuid() override { return &m_Guid; }
  void AddFilter(IDevFilter& filter) { m_ExcludeFilters.push_back(&filter); }

 private:
  const platform::Guid m_Guid = platform::HidClassGuid();
};

/// Hubs a, b and c, enumerated in another order than that of their numbers.
class ScanTest : public ProxyTest {
 protected:
  ScanTest() {
    InstallJson(R"({"devices": [{"name": "a", "port": "1"}, {"name": "b", "port": "2.2"},
                                {"name": "c", "port": "3"}],
                    "enumeration_order": ["c", "a", "b"]})");
    for (const char* device : {"a", "b", "c"}) Name(device, *device);
    Use(false);
  }
  void Name(const std::string& device, char letter) {
    diary.names[world->HidInstance(device)] = letter;
    diary.names[world->UsbInstance(device)] = static_cast<char>(std::toupper(letter));
  }
  /// The device comes back on new nodes of another letter.
  void Replug(const std::string& device, char letter) {
    world->Unplug(device);
    world->Plug(device);
    Name(device, letter);
  }
  /// A fresh finder: the HID finder, which asks about the USB nodes, or that of the class.
  void Use(bool isHid) {
    find = std::make_unique<ClassFind>();
    if (isHid) find = std::make_unique<CHidFind>();
    diary.isUsbNodeAsked = isHid;
    devs.clear();
  }
  /// Registers a device object each that matches the nodes of those letters.
  void Watch(const std::vector<std::string>& matching) {
    for (const auto& nodes : matching) {
      find->AddDev(&devs.emplace_back(diary, devs.size() + 1, nodes));
    }
  }
  std::string Scan() {
    diary.text.clear();
    find->ScanDevs();
    return diary.text;
  }
  /// With the finder's own lines behind it.
  std::string ScanEx() {
    diary.text.clear();
    log.Clear();
    find->ScanDevsEx();
    for (const LogLine& line : log.Of(kExTag)) {
      EXPECT_EQ(1, line.level);
      diary.text += line.text;
    }
    return diary.text;
  }
  std::string Nodes() const {
    std::string names;
    for (const auto node : find->CurrentDevInsts()) names += diary.names.at(node);
    return names;
  }
  /// How many enable requests reached the node, each one checked.
  std::size_t Polls(const char* device) const {
    std::size_t polls = 0;
    for (const auto& request : world->recorder().Of(virtualhub::Record::Kind::Request)) {
      if (request.instance != world->HidInstance(device)) continue;
      EXPECT_THAT(request.setup, ElementsAre(0x40, 2, 1, 0, 0x7C, 0x2E, 0, 0, 0, 0, 0));
      ++polls;
    }
    return polls;
  }

  Diary diary;
  std::deque<ProbeDev> devs;
  std::unique_ptr<CUSBDevFind> find;
};

TEST_F(ScanTest, ANodeIsNewOnceAndGoneOnce) {
  Watch({""});
  EXPECT_EQ("1?a 1?b 1?c ", Scan());  // sorted, however they were enumerated
  EXPECT_EQ("", Scan());
  world->Unplug("c");
  Replug("a", 'x');
  EXPECT_EQ("1~a 1~c 1?x ", Scan());
  EXPECT_EQ("bx", Nodes());
}

TEST_F(ScanTest, RegistrationsCountUntilAllAreTakenBack) {
  Watch({"", ""});
  find->AddDev(&devs[0]);
  find->DelDev(&devs[0]);
  EXPECT_EQ("2?a 2?b 2?c ", Scan());
}

TEST_F(ScanTest, FilteredNodesAreLeftAlone) {
  struct Filter final : IDevFilter {
    explicit Filter(std::uint32_t node) : claimed(node) {}
    bool Claims(std::uint32_t node) override { return node == claimed; }
    const std::uint32_t claimed;
  } first(world->HidInstance("a")), second(world->HidInstance("c"));
  static_cast<ClassFind&>(*find).AddFilter(first);
  static_cast<ClassFind&>(*find).AddFilter(second);
  EXPECT_TRUE(find->EnumAllDevs());
  EXPECT_EQ("b", Nodes());
}

TEST_F(ScanTest, TheHidFinderKeepsTheFamilyOrEverythingWhereItCannotAsk) {
  Install(RecordedScenario());
  Name("hub", 'h');
  Name("keyboard", 'k');
  Use(true);
  EXPECT_TRUE(find->EnumAllDevs());
  EXPECT_EQ("h", Nodes());

  CRequestCMD::Instance().SetProperty(nullptr);
  log.Clear();
  Watch({"h"});
  EXPECT_EQ("1?h 1?k ", Scan());
  EXPECT_EQ("hk", Nodes());
  const LogLine asked{3, "CRequestCMD::YvHid_IsWqHid", "Property Object is null!!\n"};
  EXPECT_THAT(log.lines,
              ElementsAre(asked, asked, LogLine{3, "CRequestCMD::QZ_OpenDevice", asked.text}));
}

TEST_F(ScanTest, AFailedEnumerationChangesNothing) {
  CHidFind hidFind;
  hidFind.EnumAllDevs();
  const auto found = hidFind.CurrentDevInsts();
  Watch({""});
  Scan();
  world->Unplug("c");
  log.Clear();
  world->AddFault(FailingCall("OpenNodeSet", 1, 3));
  EXPECT_EQ("", Scan());
  EXPECT_FALSE(find->EnumAllDevsWithFilter(0x2E7C, 0x0818));
  EXPECT_FALSE(hidFind.EnumAllDevs());
  const std::string text = "SetupDiGetClassDevs failed 13\n";
  EXPECT_THAT(log.lines, ElementsAre(LogLine{1, "CUSBDevFind::EnumAllDevs", text},
                                     LogLine{1, "CUSBDevFind::EnumAllDevsWithFilter", text},
                                     LogLine{1, "CHidFind::EnumAllDevs", text}));
  EXPECT_EQ("abc", Nodes());
  EXPECT_EQ(found, hidFind.CurrentDevInsts());
  world->AddFault(FailingCall("CloseNodeSet"));
  EXPECT_FALSE(find->EnumAllDevs());
  EXPECT_EQ("ab", Nodes());
  EXPECT_EQ(0, world->openHandles(HandleKind::NodeSet));
}

TEST_F(ScanTest, TheFilterLooksForBothIdsAnywhereInTheFirstHardwareIdItCanRead) {
  world->AddFault(FailingCall("HardwareIds"));  // of c, which is enumerated first
  EXPECT_TRUE(find->EnumAllDevsWithFilter(0x2E7C, 0x0818));
  EXPECT_EQ("ab", Nodes());
  EXPECT_THAT(log.lines, ElementsAre(LogLine{3, "CUSBDevFind::EnumAllDevsWithFilter",
                                             "Get Dev Hw Id Fail,ErrorCode:0xd\n"}));

  const std::string usual = "HID\\VID_2E7C&PID_0818&REV_0100";
  struct Case {
    std::uint32_t vid, pid;
    std::vector<std::string> hardwareIds;
    bool isKept;
  };
  for (const Case& row : {
           Case{0x0818, 0x2E7C, {usual}, true},
           Case{0x2E7C, 0x0819, {usual}, false},
           Case{0x2E7D, 0x0818, {usual}, false},
           Case{0x12342E7C, 0xFFFF0818, {usual}, true},
           Case{0x2E7C, 0x0100, {usual}, true},
           Case{0xABCD, 0x12, {"hid\\vid_abcd&pid_0120"}, true},
           Case{0x1234, 0xEF, {"HID\\DEF1234"}, true},
           Case{0x2E7C, 0x0818, {"HID\\OTHER", usual}, false},
           Case{0, 0, {}, false},
       }) {
    SCOPED_TRACE(row.hardwareIds.empty() ? "none" : row.hardwareIds.front());
    virtualhub::Scenario scenario = RecordedScenario();
    scenario.devices[0].hid.hardwareIds = row.hardwareIds;
    scenario.devices.pop_back();
    Install(scenario);
    EXPECT_TRUE(find->EnumAllDevsWithFilter(row.vid, row.pid));
    EXPECT_EQ(row.isKept ? 1u : 0u, find->CurrentDevInsts().size());
    EXPECT_THAT(world->recorder().Calls("OpenHidDevice"), IsEmpty()) << "the family is not asked";
  }
}

TEST_F(ScanTest, ADepartureClosesTheDeviceAndRemovesTheFirstObjectOnIt) {
  Watch({"", "a", ""});
  EXPECT_EQ("1?a 2?a 2+a ", Scan());
  EXPECT_EQ(1, OpenDevices());
  devs[2].inst = devs[1].inst;
  world->Unplug("a");
  EXPECT_EQ("1~a 2~a 2-0 ", Scan());
  world->Unplug("b");
  EXPECT_EQ("1~b 2~b 3~b ", Scan());
}

TEST_F(ScanTest, AHidNodeWithoutParentEndsTheArrivals) {
  Use(true);
  Watch({"b"});
  world->AddFault(FailingCall("GetParent"));
  EXPECT_EQ("", Scan() + Scan());
  EXPECT_THAT(log.From(3),
              ElementsAre(LogLine{3, "CHidFind::ArriveAllDevs", "Get Hid parent devinst fail\n"}));
}

/// With either finder; the parameter is whether it is the HID finder.
class ArrivalTest : public ScanTest, public ::testing::WithParamInterface<bool> {
 protected:
  ArrivalTest() { Use(GetParam()); }
};
INSTANTIATE_TEST_SUITE_P(, ArrivalTest, ::testing::Bool());

TEST_P(ArrivalTest, AHubHasSoManyAttemptsAndIsLeftForTheNextNodeWithoutALine) {
  const std::uint32_t attempts = GetParam() ? 50 : 100;
  for (const std::uint32_t stalls : {attempts - 1, attempts}) {
    Use(GetParam());
    Watch({"ab", "ab"});
    world->ClearFaults();
    world->AddFault(RequestFault(0x4002, 1, stalls));
    ClearRecords();
    EXPECT_EQ(stalls < attempts ? "1?a 1+a " : "1?a 1?b 1+b ", Scan());
    EXPECT_EQ(attempts, Polls("a"));
    EXPECT_EQ(std::vector<std::uint32_t>(stalls, 100), Pauses());  // after the last one, too
    EXPECT_EQ(1, OpenDevices());
    EXPECT_THAT(log.lines, Each(Field(&LogLine::text, Not(HasSubstr("Polling")))));
  }
}

TEST_P(ArrivalTest, WhatCannotBeOpenedIsOfferedToTheNextObject) {
  Watch({"a", "", "a"});
  // The HID finder has opened the three hubs to see what they are.
  world->AddFault(FailingCall("OpenHidDevice", GetParam() ? 4 : 1));
  EXPECT_EQ("1?a 2?a 3?a 3+a ", Scan());
}

TEST_P(ArrivalTest, AtMostOneObjectArrivesAScanAndTheOtherNodesAreOldThen) {
  Watch({"a", "bx"});
  EXPECT_EQ("1?a 1+a ", Scan());
  EXPECT_EQ("", Scan());
  Replug("b", 'x');
  EXPECT_EQ("1~b 2~b 1?x 2?x 2+x ", Scan());
}

TEST_P(ArrivalTest, ForgettingTheNodesMakesThemNewAgain) {
  Watch({"a"});
  Scan();
  log.Clear();
  EXPECT_EQ(1, find->DummyRemove(&devs[0]));
  EXPECT_EQ("1?a 1+a 1-1 ", diary.text);  // closing is the device object's affair
  EXPECT_EQ((LogLine{0, "CUSBDevFind::DummyRemove", "Into dummy remove function\n"}), log.lines[0]);
  EXPECT_EQ("1?a 1+a ", Scan());
  log.Clear();
  EXPECT_EQ(1, find->ForceRemove(&devs[0]));
  EXPECT_EQ("1?a 1+a 1!0 ", diary.text);
  EXPECT_EQ((LogLine{0, "CUSBDevFind::ForceRemove", "Into force remove function\n"}), log.lines[0]);
  EXPECT_EQ("1?a 1+a ", Scan());
}

TEST_F(ScanTest, QueuedNodesAreServedOneAScanToTheFirstObjectThatCanOpenThem) {
  Watch({"abx", "b"});
  EXPECT_EQ("1?a 2?a 1?b 2?b 1?c 2?c 1+a " + Suit(3), ScanEx());
  EXPECT_EQ("1+b " + Suit(2), ScanEx());
  EXPECT_EQ("1+b " + Suit(1), ScanEx());
  Replug("c", 'x');
  EXPECT_EQ("1~c 2~c " + kNone, ScanEx());  // the queue is built once
}

TEST_F(ScanTest, TheQueueIsBuiltByTheFirstScanThatFindsAMatch) {
  Watch({"", "x"});  // the first matches nothing, and still gets the queued node
  EXPECT_EQ("1?a 2?a 1?b 2?b 1?c 2?c " + kNone, ScanEx());
  Replug("c", 'x');
  EXPECT_EQ("1~c 2~c 1?x 2?x 1+x " + Suit(1), ScanEx());
}

TEST_F(ScanTest, AQueuedNodeHasTenAttemptsAndTheUseOfTheLastOneIsTold) {
  for (const std::uint32_t stalls : {0u, 8u, 9u, 10u}) {
    SCOPED_TRACE(stalls);
    Use(false);
    Watch({"b"});
    world->ClearFaults();
    if (stalls > 0) world->AddFault(RequestFault(0x4002, 1, stalls));
    ClearRecords();
    EXPECT_EQ("1?a 1?b 1?c " + std::string(stalls < 10 ? "1+b " : "") + Suit(1) +
                  (stalls == 9 ? "Polling connect with hub fail.\n" : ""),
              ScanEx());
    EXPECT_EQ(std::min(stalls + 1, 10u), Polls("b"));
    EXPECT_EQ(std::vector<std::uint32_t>(stalls, 100), Pauses());
    EXPECT_EQ(kNone, ScanEx());
  }
}

TEST_F(ScanTest, AQueuedNodeThatCannotBeOpenedGoesToTheNextObjectOrIsDropped) {
  Watch({"ab", ""});
  world->AddFault(FailingCall("OpenHidDevice", 1, 3));
  EXPECT_EQ("1?a 2?a 1?b 2?b 1?c 2?c " + Suit(2), ScanEx());  // a: fails for both
  EXPECT_EQ(0u, Polls("a"));
  EXPECT_EQ("2+b " + Suit(1), ScanEx());  // b: fails for the first
}

}  // namespace
}  // namespace qzhid::test
