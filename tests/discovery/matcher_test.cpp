// Which nodes are taken for a device.
#include "device/hid_dev.h"
#include "discovery/dev_property.h"
#include "discovery/hid_find.h"
#include "discovery/node_matchers.h"
#include "support/layer_test.h"

namespace qzhid::test {
namespace {

using virtualhub::PortPath;

const std::string kTopo = "CTopoMatch::Match", kPlace = "CDevProperty::IsSuitTopology";
const LogLine kIdMatch{0, "CVidPidMatch::Match", "match id return true.\n"},
    kNoIdMatch{1, "CVidPidMatch::Match", "match id return false.\n"},
    kTopoMatch{0, kTopo, "match topology return true.\n"},
    kNoTopoMatch{1, kTopo, "match topology return false.\n"},
    kByPosition{1, kTopo, "Port & Level Topo Match\n"};

class MatchTest : public LayerTest {
 protected:
  /// Installs the default machine with changes to the hub's device. Returns its USB node.
  template <class Change>
  virtualhub::DevInst InstallHub(const Change& change) {
    virtualhub::Scenario scenario = RecordedScenario();
    change(scenario, scenario.devices[0]);
    Install(scenario);
    return machine->UsbInstance("hub");
  }
  /// Whether the device matches the node, with exactly these lines.
  void ExpectMatch(bool isMatch, CUSBDev& dev, std::uint32_t node,
                   const std::vector<LogLine>& lines) {
    log.Clear();
    EXPECT_EQ(isMatch, dev.IsMatch(node));
    EXPECT_EQ(lines, Logged());
  }

  CHidDev hid{NodeMatchers()};
};

TEST_F(MatchTest, CriteriaAreTestedInTheOrderInWhichTheyWereFirstSetUntilOneRefuses) {
  const std::uint32_t node = machine->UsbInstance("hub");
  CUSBDev usb{NodeMatchers()};
  ExpectMatch(true, usb, node, {});
  usb.AddVidPid(0x0001, 0x0002);
  usb.SetPosition(0, 5);
  ExpectMatch(false, usb, node, {kNoIdMatch});
  usb.AddVidPid(0x0818, 0x2E7C);
  usb.SetTopology(L"");
  ExpectMatch(true, usb, node, {kIdMatch, kByPosition, kTopoMatch});
  hid.SetTopology(L"");
  hid.SetPosition(0, 5);
  hid.SetDevVidPid(0x2E7C, 0x0818);  // its own ids are no pair
  ExpectMatch(false, hid, node, {kByPosition, kTopoMatch, kNoIdMatch});
}

TEST_F(MatchTest, IdsAreReadAsProductThenVendorInUpperCaseWithFourDigits) {
  using Pair = std::pair<std::uint32_t, std::uint32_t>;
  using Ids = std::vector<std::string>;
  const std::string first = "USB\\VID_1A2B&PID_3C4D";
  const Ids hub = {first + "&REV_0100", first};
  const Pair pair{0x3C4D, 0x1A2B};
  struct Case {
    std::vector<Pair> pairs;
    Ids hardwareIds;
    bool isMatch;
  };
  for (const Case& c :
       {Case{{pair}, hub, true}, Case{{{0x1A2B, 0x3C4D}}, hub, false}, Case{{}, hub, false},
        Case{{{1, 2}, pair}, hub, true}, Case{{{1, 0x1A2B}, {0x3C4D, 2}}, hub, false},
        Case{{{0x12, 0xAB}}, {"USB\\VID_00AB&PID_0012"}, true},
        Case{{{0x12, 0xAB}}, {"USB\\VID_AB&PID_12"}, false},
        Case{{{0x3C4D, 0x12345}}, {"USB\\VID_12345&PID_3C4D"}, true},
        Case{{pair}, {"USB\\A", "USB\\B", first}, true},
        Case{{pair}, {"USB\\A", "", first}, false},  // the list ends there
        Case{{pair}, {"usb\\vid_1a2b&pid_3c4d"}, false}, Case{{pair}, {}, false},
        Case{{pair}, {first + std::string(1001, 'x')}, true},  // 1024 characters
        Case{{pair}, {first + std::string(1002, 'x')}, false}}) {
    SCOPED_TRACE(::testing::PrintToString(c.pairs) + ::testing::PrintToString(c.hardwareIds));
    const auto node =
        InstallHub([&](auto&, auto& device) { device.usb.hardwareIds = c.hardwareIds; });
    CHidDev dev{NodeMatchers()};
    dev.SetDevVidPid(0x1A2B, 0x3C4D);  // these ids are kept, not matched
    for (const auto& [pid, vid] : c.pairs) dev.AddVidPid(pid, vid);
    ExpectMatch(c.isMatch, dev, node, {c.isMatch ? kIdMatch : kNoIdMatch});
    machine->AddFault(CallFault(Service::HardwareIds, 1, 0));
    EXPECT_FALSE(dev.IsMatch(node)) << "with ids that cannot be read";
  }
}

TEST_F(MatchTest, ALocationPathMustBeTheNodesFirstOneLetterForLetter) {
  const std::string hub = "PCIROOT(0)#PCI(1400)#USBROOT(0)#USB(3)", path = hub + "#USB(1)";
  const std::string second = "ACPI(_SB_)#ACPI(PCI0)#ACPI(XHC1)#ACPI(RHUB)#ACPI(PRT3)#ACPI(PRT1)";
  const LogLine byPath{1, kTopo, "LocationPath Topo Match\n"};
  for (const auto& [wanted, isReadable, isMatch] :
       {std::tuple{path, true, true}, std::tuple{hub + "#usb(1)", true, false},
        std::tuple{hub, true, false}, std::tuple{second, true, false},
        std::tuple{path, false, false}}) {
    SCOPED_TRACE(wanted);
    const auto node = InstallHub([](auto&, auto&) {});
    if (!isReadable) machine->AddFault(CallFault(Service::LocationPaths));
    hid.SetPosition(1, 1);  // does not count beside a path
    hid.SetTopology(std::wstring(wanted.begin(), wanted.end()));
    std::vector<LogLine> lines = {byPath, kTopoMatch};
    if (!isMatch) {
      lines = {byPath,
               {1, kTopo, "CurrentDevLocationPath:" + wanted + "\n"},
               {1, kTopo, "EnumDevLocationPath:" + (isReadable ? path : "") + "\n"},
               kNoTopoMatch};
    }
    ExpectMatch(isMatch, hid, node, lines);
  }
}

TEST_F(MatchTest, APositionIsALevelAndFromTheSecondOnAPort) {
  const auto differs = [](const std::string& current, const std::string& wanted) {
    return LogLine{0, kPlace,
                   "Match Level Or Port Failed,Cur " + current + ", Match " + wanted + "\n"};
  };
  const std::string l1p3 = "Level:1 Port:3", l2p1 = "Level:2 Port:1";
  const LogLine unread{3, kPlace,
                       "Get Location Info Failed,Error Code:" + std::to_string(ENOBUFS) + "\n"};
  struct Case {
    std::string place;  // of the node
    std::optional<std::string> location;
    std::uint32_t level, port;            // wanted
    std::optional<LogLine> refusal = {};  // none: accepted
    bool isArm64 = false;
  };
  const auto noPort = [](const std::string& location) {
    return LogLine{3, kPlace, "Get Port Failed!! Location Info:" + location + "\n"};
  };
  for (const Case& c :
       {Case{"3.1", {}, 0, 5}, Case{"7", {}, 1, 3},  // on the root hub any port will do
        Case{"7", {}, 1, 3, {}, true}, Case{"3.1.2.4", {}, 4, 4},
        Case{"3.2", {}, 2, 13, differs("Level:2 Port:2", "Level:2 Port:13"), true},
        Case{"3.1", {}, 1, 3, differs(l2p1, l1p3)},
        Case{"3.1", {}, 1, 3, differs(l2p1, "Level:1 Port:0"), true}, Case{"3.1", {}, 2, 12},
        Case{"3.1", {}, 2, 21},  // the wanted port contains the node's
        Case{"3.11", {}, 2, 1, differs("Level:2 Port:11", l2p1)},
        Case{"3.1.1", {}, 2, 1, differs("Level:3 Port:1", l2p1)},
        Case{"1", {}, 2, 1, differs("Level:1 Port:1", l2p1)}, Case{"3.1", "Port_#12345#6", 2, 1234},
        Case{"3.1", "0012.Hub", 2, 12},  // without '#' the text begins with the number
        Case{"3.1", "Port_#0000.Hub_#0001", 2, 1, noPort("Port_#0000.Hub_#0001")},
        Case{"3.1", "Port_#x003.Hub_#0001", 2, 1, noPort("Port_#x003.Hub_#0001")},
        Case{"3.1", "", 2, 1, noPort("")},
        Case{"3.1", "#1" + std::string(197, 'x'), 2, 1},  // 400 bytes with its end
        Case{"3.1", "#1" + std::string(198, 'x'), 2, 1, unread}}) {
    SCOPED_TRACE(c.place + " for level " + std::to_string(c.level) + " port " +
                 std::to_string(c.port) + " of " + c.location.value_or("the usual text"));
    const auto node = InstallHub([&](auto& scenario, auto& device) {
      if (c.isArm64) scenario.host.architecture = virtualhub::HostArchitecture::Arm64;
      device.port = *PortPath::Parse(c.place);
      device.usb.locationInfo = c.location;
    });
    hid.SetPosition(c.level, c.port);
    std::vector<LogLine> lines = {kByPosition, kTopoMatch};
    if (c.refusal) lines = {kByPosition, *c.refusal, kNoTopoMatch};
    ExpectMatch(!c.refusal, hid, node, lines);
    machine->AddFault(CallFault(Service::LocationInfo));
    EXPECT_EQ(c.level == 0, hid.IsMatch(node)) << "with a text that cannot be read";
    EXPECT_EQ(c.level == 0 ? 0u : 1u,
              Count({3, kPlace, "Get Location Info Failed,Error Code:13\n"}));
  }
}

TEST_F(MatchTest, MatchingAndListingCountLevelsDifferently) {
  const std::string hub = "USB\\VID_05E3&PID_0610\\6", root = "USB\\ROOT_HUB30\\4";
  struct Case {
    std::string hubId, rootId;
    int matched;
    std::uint32_t listed;  // 0: cannot be counted
  };
  for (const Case& c : {Case{hub, root, 2, 2}, Case{hub, "usb\\root_hub30\\4", 4, 2},
                        Case{hub, "USB\\ROOT\\4", 2, 3}, Case{hub, "USB\\HUB30\\4", 4, 3},
                        Case{"USB\\ROOT_HUB20\\6", root, 1, 1},
                        // The longest wide and the longest narrow id, and a character more.
                        Case{hub + std::string(176, 'x'), root, 2, 2},
                        Case{hub + std::string(177, 'x'), root, 1, 2},
                        Case{hub + std::string(1000, 'x'), root, 1, 2},
                        Case{hub + std::string(1001, 'x'), root, 1, 0}}) {
    SCOPED_TRACE(c.hubId + " " + c.rootId);
    const auto node = InstallHub([&](auto& scenario, auto&) {
      scenario.rootHubs.resize(1);
      scenario.rootHubs[0].deviceId = c.rootId;
      scenario.hubs[*PortPath::Parse("3")].deviceId = c.hubId;
    });
    EXPECT_FALSE(CDevProperty::Instance().IsSuitTopology(9, node, L"#USB(1)"));
    EXPECT_EQ((LogLine{0, kPlace,
                       "Match Level Or Port Failed,Cur Level:" + std::to_string(c.matched) +
                           " Port:1, Match Level:9 Port:1\n"}),
              log.Lines().back());
    EXPECT_EQ(c.hubId.size() >= 200 ? 1u : 0u, Failures().size());
    std::uint32_t listed = 77;
    EXPECT_EQ(c.listed != 0, GetDevLevel(node, listed));
    EXPECT_EQ(c.listed, listed);
  }
}

TEST_F(MatchTest, AHubWithoutReadableIdIsNotCountedAndTheOnesAboveItAre) {
  const auto node =
      InstallHub([&](auto&, auto& device) { device.port = *PortPath::Parse("3.1.2.4"); });
  for (const auto& [unread, level] : {std::pair{1u, 3}, {2u, 3}, {3u, 3}, {9u, 4}}) {
    SCOPED_TRACE(unread);
    machine->ClearFaults();
    machine->AddFault(CallFault(Service::GetDeviceIdW, unread));
    log.Clear();
    hid.SetPosition(static_cast<std::uint32_t>(level), 4);
    EXPECT_TRUE(hid.IsMatch(node));
    EXPECT_EQ(unread == 9 ? 0u : 1u, Count({3, kPlace, "Get Device ID Failed,Error Code:13\n"}));
    std::uint32_t listed = 0;
    machine->ClearFaults();
    machine->AddFault(CallFault(Service::GetDeviceIdA, unread));
    EXPECT_EQ(unread == 9, GetDevLevel(node, listed)) << "a listing counts all or none";
  }
}

TEST_F(MatchTest, ANodeWithNothingAboveItHasNoLevel) {
  std::uint32_t level = 7;
  machine->AddFault(CallFault(Service::GetParent));
  EXPECT_FALSE(GetDevLevel(machine->UsbInstance("hub"), level));
  EXPECT_EQ(0u, level);
}

}  // namespace
}  // namespace qzhid::test
