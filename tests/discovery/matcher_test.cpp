// Which nodes are taken for a device.
#include "device/hid_dev.h"
#include "discovery/dev_property.h"
#include "discovery/hid_find.h"
#include "support/proxy_test.h"

namespace qzhid::test {
namespace {

using ::testing::ElementsAre;
using virtualhub::HostArchitecture;
using virtualhub::PortPath;

constexpr const char* kTopoTag = "CTopoMatch::Match";
constexpr const char* kPlaceTag = "CDevProperty::IsSuitTopology";

class MatchTest : public ProxyTest {
 protected:
  /// Installs the default machine with changes to the hub's device. Returns its USB node.
  template <class Change>
  virtualhub::DevInst InstallHub(const Change& change) {
    virtualhub::Scenario scenario = RecordedScenario();
    change(scenario, scenario.devices[0]);
    Install(scenario);
    const virtualhub::DevInst node = world->UsbInstance("hub");
    ClearRecords();
    return node;
  }
};

TEST_F(MatchTest, IdsAreReadAsProductThenVendorInUpperCaseWithFourDigits) {
  const std::vector<std::string> hub = {"USB\\VID_1A2B&PID_3C4D&REV_0100",
                                        "USB\\VID_1A2B&PID_3C4D"};
  const std::string first = "USB\\VID_1A2B&PID_3C4D";
  struct Case {
    const char* name;
    std::vector<std::pair<std::uint32_t, std::uint32_t>> pairs;
    std::vector<std::string> hardwareIds;
    bool matches;
  };
  for (const Case& c : {
           Case{"product, vendor", {{0x3C4D, 0x1A2B}}, hub, true},
           Case{"vendor, product", {{0x1A2B, 0x3C4D}}, hub, false},
           Case{"no pair", {}, hub, false},
           Case{"second pair", {{1, 2}, {0x3C4D, 0x1A2B}}, hub, true},
           Case{"halves of two pairs", {{1, 0x1A2B}, {0x3C4D, 2}}, hub, false},
           Case{"padded", {{0x12, 0xAB}}, {"USB\\VID_00AB&PID_0012"}, true},
           Case{"not padded", {{0x12, 0xAB}}, {"USB\\VID_AB&PID_12"}, false},
           Case{"five digits", {{0x3C4D, 0x12345}}, {"USB\\VID_12345&PID_3C4D"}, true},
           Case{"last entry", {{0x3C4D, 0x1A2B}}, {"USB\\A", "USB\\B", first}, true},
           Case{"behind an empty entry", {{0x3C4D, 0x1A2B}}, {"USB\\A", "", first}, false},
           Case{"lower case", {{0x3C4D, 0x1A2B}}, {"usb\\vid_1a2b&pid_3c4d"}, false},
           Case{"other order", {{0x3C4D, 0x1A2B}}, {"USB\\PID_3C4D&VID_1A2B"}, false},
           Case{"empty list", {{0x3C4D, 0x1A2B}}, {}, false},
           Case{"1024 characters", {{0x3C4D, 0x1A2B}}, {first + std::string(1001, 'x')}, true},
           Case{"1025 characters", {{0x3C4D, 0x1A2B}}, {first + std::string(1002, 'x')}, false},
       }) {
    SCOPED_TRACE(c.name);
    const auto node =
        InstallHub([&](auto&, auto& device) { device.usb.hardwareIds = c.hardwareIds; });
    CHidDev dev;
    dev.SetDevVidPid(0x1A2B, 0x3C4D);  // these ids are kept, not matched
    for (const auto& [pid, vid] : c.pairs) dev.AddVidPid(pid, vid);
    EXPECT_EQ(c.matches, dev.IsMatch(node));
    EXPECT_THAT(log.lines, ElementsAre(LogLine{c.matches ? 0 : 1, "CVidPidMatch::Match",
                                               c.matches ? "match id return true.\n"
                                                         : "match id return false.\n"}));
    world->AddFault(FailingCall("HardwareIds", 1, 0));
    EXPECT_FALSE(dev.IsMatch(node)) << "with ids that cannot be read";
  }
}

TEST_F(MatchTest, ALocationPathMustBeTheNodesFirstOneLetterForLetter) {
  const std::string path = "PCIROOT(0)#PCI(1400)#USBROOT(0)#USB(3)#USB(1)";
  struct Case {
    std::string wanted;
    bool isReadable, matches;
  };
  for (const Case& c : {
           Case{path, true, true},
           Case{"PCIROOT(0)#PCI(1400)#USBROOT(0)#USB(3)#usb(1)", true, false},
           Case{"PCIROOT(0)#PCI(1400)#USBROOT(0)#USB(3)", true, false},
           Case{"ACPI(_SB_)#ACPI(PCI0)#ACPI(XHC1)#ACPI(RHUB)#ACPI(PRT3)#ACPI(PRT1)", true, false},
           Case{path, false, false},
       }) {
    SCOPED_TRACE(c.wanted);
    const auto node = InstallHub([](auto&, auto&) {});
    if (!c.isReadable) world->AddFault(FailingCall("LocationPaths"));
    CHidDev dev;
    dev.SetPosition(1, 1);  // does not count beside a path
    dev.SetTopology(std::wstring(c.wanted.begin(), c.wanted.end()));
    EXPECT_EQ(c.matches, dev.IsMatch(node));
    std::vector<LogLine> lines = {{1, kTopoTag, "LocationPath Topo Match\n"}};
    if (c.matches) {
      lines.push_back({0, kTopoTag, "match topology return true.\n"});
    } else {
      lines.push_back({1, kTopoTag, "CurrentDevLocationPath:" + c.wanted + "\n"});
      lines.push_back({1, kTopoTag, "EnumDevLocationPath:" + (c.isReadable ? path : "") + "\n"});
      lines.push_back({1, kTopoTag, "match topology return false.\n"});
    }
    EXPECT_EQ(lines, log.lines);
  }
}

TEST_F(MatchTest, APositionIsALevelAndFromTheSecondOnAPort) {
  constexpr auto kX64 = HostArchitecture::X64;
  constexpr auto kArm64 = HostArchitecture::Arm64;
  const std::string mismatch = "Match Level Or Port Failed,";
  const std::string noPort = "Get Port Failed!! Location Info:";
  struct Case {
    std::string place;  // of the node
    std::optional<std::string> location;
    std::uint32_t level, port;  // wanted
    HostArchitecture architecture;
    std::string refusal;  // empty: accepted
  };
  for (const Case& c : {
           Case{"3.1", {}, 0, 5, kX64, ""},
           Case{"7", {}, 1, 3, kX64, ""},  // on the root hub any port will do
           Case{"7", {}, 1, 3, kArm64, ""},
           Case{"3.1", {}, 1, 3, kX64, mismatch + "Cur Level:2 Port:1, Match Level:1 Port:3\n"},
           Case{"3.1", {}, 1, 3, kArm64, mismatch + "Cur Level:2 Port:1, Match Level:1 Port:0\n"},
           Case{"3.2", {}, 2, 2, kX64, ""},
           Case{"3.2", {}, 2, 2, kArm64, ""},
           Case{"3.1", {}, 2, 11, kX64, ""},  // the node's port occurs in the wanted one
           Case{"3.1", {}, 2, 12, kX64, ""},
           Case{"3.1", {}, 2, 21, kX64, ""},
           Case{"3.11", {}, 2, 1, kX64, mismatch + "Cur Level:2 Port:11, Match Level:2 Port:1\n"},
           Case{"3.2", {}, 2, 13, kArm64, mismatch + "Cur Level:2 Port:2, Match Level:2 Port:13\n"},
           Case{"3.1.1", {}, 2, 1, kX64, mismatch + "Cur Level:3 Port:1, Match Level:2 Port:1\n"},
           Case{"1", {}, 2, 1, kX64, mismatch + "Cur Level:1 Port:1, Match Level:2 Port:1\n"},
           Case{"3.1.2.4", {}, 4, 4, kX64, ""},
           Case{"3.1", "0012.Hub", 2, 12, kX64, ""},  // without '#' the text begins with the number
           Case{"3.1", "Port_#12345#6", 2, 1234, kX64, ""},
           Case{"3.1", "Port_# -7x", 2, 0xFFFFFFF9, kX64, ""},
           Case{"3.1", "Port_#0000.Hub_#0001", 2, 1, kX64, noPort + "Port_#0000.Hub_#0001\n"},
           Case{"3.1", "Port_#x003.Hub_#0001", 2, 1, kX64, noPort + "Port_#x003.Hub_#0001\n"},
           Case{"7", "Port_#00007", 1, 7, kX64, noPort + "Port_#00007\n"},
           Case{"3.1", "", 2, 1, kX64, noPort + "\n"},
           Case{"3.1", "#1" + std::string(197, 'x'), 2, 1, kX64, ""},
       }) {
    SCOPED_TRACE(c.place + " for level " + std::to_string(c.level) + " port " +
                 std::to_string(c.port) + " of " + c.location.value_or("the usual text"));
    const auto node = InstallHub([&](auto& scenario, auto& device) {
      scenario.host.architecture = c.architecture;
      device.port = *PortPath::Parse(c.place);
      device.usb.locationInfo = c.location;
    });
    CHidDev dev;
    dev.SetPosition(c.level, c.port);
    EXPECT_EQ(c.refusal.empty(), dev.IsMatch(node));
    std::vector<LogLine> lines = {{1, kTopoTag, "Port & Level Topo Match\n"}};
    if (c.refusal.empty()) {
      lines.push_back({0, kTopoTag, "match topology return true.\n"});
    } else {
      lines.push_back({c.refusal.find(noPort) == 0 ? 3 : 0, kPlaceTag, c.refusal});
      lines.push_back({1, kTopoTag, "match topology return false.\n"});
    }
    EXPECT_EQ(lines, log.lines);
    EXPECT_EQ(c.level == 0, world->recorder().Calls("LocationInfo").empty());
    world->AddFault(FailingCall("LocationInfo"));
    EXPECT_EQ(c.level == 0, dev.IsMatch(node));
    EXPECT_EQ(c.level == 0 ? 0u : 1u,
              log.Count({3, kPlaceTag, "Get Location Info Failed,Error Code:13\n"}));
  }
  const auto node = InstallHub([](auto&, auto& device) {
    device.usb.locationInfo = "#1" + std::string(198, 'x');  // does not fit 200 with its end
  });
  CHidDev dev;
  dev.SetPosition(2, 1);
  EXPECT_FALSE(dev.IsMatch(node));
}

TEST_F(MatchTest, MatchingAndListingCountLevelsDifferently) {
  const std::string hub = "USB\\VID_05E3&PID_0610\\6", root = "USB\\ROOT_HUB30\\4";
  struct Case {
    const char* name;
    std::string hubId, rootId;
    int matched;
    std::uint32_t listed;  // 0: cannot be counted
  };
  for (const Case& c : {
           Case{"usual", hub, root, 2, 2},
           Case{"lower-case root hub", hub, "usb\\root_hub30\\4", 4, 2},
           Case{"root that is no root hub", hub, "USB\\ROOT\\4", 2, 3},
           Case{"no root hub", hub, "USB\\HUB30\\4", 4, 3},
           Case{"root hub below another", "USB\\ROOT_HUB20\\6", root, 1, 1},
           Case{"longest wide id", hub + std::string(176, 'x'), root, 2, 2},
           Case{"too long for a wide id", hub + std::string(177, 'x'), root, 1, 2},
           Case{"longest narrow id", hub + std::string(1000, 'x'), root, 1, 2},
           Case{"too long for a narrow id", hub + std::string(1001, 'x'), root, 1, 0},
       }) {
    SCOPED_TRACE(c.name);
    const auto node = InstallHub([&](auto& scenario, auto&) {
      scenario.rootHubs.resize(1);
      scenario.rootHubs[0].deviceId = c.rootId;
      scenario.hubs[*PortPath::Parse("3")].deviceId = c.hubId;
    });
    EXPECT_FALSE(CDevProperty::Instance().IsSuitTopology(9, node, L"#USB(1)"));
    EXPECT_EQ("Match Level Or Port Failed,Cur Level:" + std::to_string(c.matched) +
                  " Port:1, Match Level:9 Port:1\n",
              log.lines.back().text);
    EXPECT_EQ(c.hubId.size() < 200 ? 0u : 1u, log.From(3).size());
    std::uint32_t level = 77;
    EXPECT_EQ(c.listed != 0, GetDevLevel(node, level));
    EXPECT_EQ(c.listed, level);
  }
}

TEST_F(MatchTest, BrokenTreesAreCountedAsFarAsTheyCanBeRead) {
  auto node = InstallHub([](auto&, auto& device) { device.port = *PortPath::Parse("3.1.1"); });
  world->AddFault(FailingCall("GetDeviceIdW"));  // this ancestor does not count
  EXPECT_TRUE(CDevProperty::Instance().IsSuitTopology(2, node, L"#USB(1)"));
  EXPECT_THAT(log.lines,
              ElementsAre(LogLine{3, kPlaceTag, "Get Device ID Failed,Error Code:13\n"}));
  world->AddFault(FailingCall("GetDeviceIdA", 2));
  std::uint32_t level = 77;
  EXPECT_FALSE(GetDevLevel(node, level));

  node = InstallHub([](auto&, auto& device) { device.usb.noParent = true; });
  EXPECT_TRUE(CDevProperty::Instance().IsSuitTopology(1, node, L"#USB(5)"));
  EXPECT_FALSE(GetDevLevel(node, level));
  EXPECT_EQ(0u, level);
}

}  // namespace
}  // namespace qzhid::test
