// Which nodes are taken for a device.
#include <sstream>

#include "device/hid_dev.h"
#include "discovery/dev_property.h"
#include "discovery/hid_find.h"
#include "discovery/node_matchers.h"
#include "support/layer_test.h"

namespace qzhid::test {
namespace {

using virtualhub::PortPath;

const std::string kId = "CVidPidMatch::Match: match id return ",
                  kPlace = "CDevProperty::IsSuitTopology";
const std::string kIsId = "0 " + kId + "true.\n", kNotId = "1 " + kId + "false.\n";
const std::string kTopo = "CTopoMatch::Match: ";
const std::string kIsThere = "0 " + kTopo + "match topology return true.\n";
const std::string kNotThere = "1 " + kTopo + "match topology return false.\n";
const std::string kByPosition = "1 " + kTopo + "Port & Level Topo Match\n";

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
  /// What is logged when the device is asked whether it matches the node, and its answer.
  std::string Match(CUSBDev& dev, std::uint32_t node) {
    log.Clear();
    const bool isMatch = dev.IsMatch(node);
    std::ostringstream text;
    for (const LogLine& line : log.Lines()) text << line;
    text << std::boolalpha << isMatch;
    return text.str();
  }

  CHidDev hid{NodeMatchers()};
};

TEST_F(MatchTest, CriteriaAreTestedInTheOrderInWhichTheyWereFirstSetUntilOneRefuses) {
  const std::uint32_t node = machine->UsbInstance("hub");
  CUSBDev usb{NodeMatchers()};
  EXPECT_EQ("true", Match(usb, node));
  usb.AddVidPid(0x0001, 0x0002);
  usb.SetPosition(0, 5);
  EXPECT_EQ(kNotId + "false", Match(usb, node));
  usb.AddVidPid(0x0818, 0x2E7C);
  usb.SetTopology(L"");
  EXPECT_EQ(kIsId + kByPosition + kIsThere + "true", Match(usb, node));
  hid.SetTopology(L"");
  hid.SetPosition(0, 5);
  hid.SetDevVidPid(0x2E7C, 0x0818);  // its own ids are no pair
  EXPECT_EQ(kByPosition + kIsThere + kNotId + "false", Match(hid, node));
}

TEST_F(MatchTest, IdsAreReadAsProductThenVendorInUpperCaseWithFourDigits) {
  using Pairs = std::vector<std::pair<std::uint32_t, std::uint32_t>>;
  using Ids = std::vector<std::string>;
  const std::string first = "USB\\VID_1A2B&PID_3C4D";
  const Ids hub = {first + "&REV_0100", first};
  const Pairs pair = {{0x3C4D, 0x1A2B}};
  const std::tuple<Pairs, Ids, bool> cases[] = {
      // product and vendor, hardware ids, match
      {pair, hub, true},
      {{{0x1A2B, 0x3C4D}}, hub, false},
      {{{1, 2}, {0x3C4D, 0x1A2B}}, hub, true},
      {{{1, 0x1A2B}, {0x3C4D, 2}}, hub, false},
      {{{0x12, 0xAB}}, {"USB\\VID_00AB&PID_0012"}, true},
      {{{0x12, 0xAB}}, {"USB\\VID_AB&PID_12"}, false},
      {{{0x3C4D, 0x12345}}, {"USB\\VID_12345&PID_3C4D"}, true},
      {pair, {"USB\\A", "USB\\B", first}, true},
      {pair, {"USB\\A", "", first}, false},  // the list ends there
      {pair, {"usb\\vid_1a2b&pid_3c4d"}, false},
      {pair, {}, false},
      {pair, {first + std::string(1001, 'x')}, true},  // 1024 characters
      {pair, {first + std::string(1002, 'x')}, false}};
  for (const auto& [pairs, hardwareIds, isMatch] : cases) {
    SCOPED_TRACE(::testing::PrintToString(hardwareIds));
    const auto ids = hardwareIds;
    const auto node = InstallHub([&](auto&, auto& device) { device.usb.hardwareIds = ids; });
    CHidDev dev{NodeMatchers()};
    for (const auto& [pid, vid] : pairs) dev.AddVidPid(pid, vid);
    EXPECT_EQ(isMatch ? kIsId + "true" : kNotId + "false", Match(dev, node));
    machine->AddFault(CallFault(Service::HardwareIds, 1, 0));
    EXPECT_EQ(kNotId + "false", Match(dev, node));
  }
}

TEST_F(MatchTest, ALocationPathMustBeTheNodesFirstOneLetterForLetter) {
  const std::string path = "PCIROOT(0)#PCI(1400)#USBROOT(0)#USB(3)#USB(1)",
                    byPath = "1 " + kTopo + "LocationPath Topo Match\n";
  hid.SetPosition(1, 1);  // does not count beside a path
  hid.SetTopology(std::wstring(path.begin(), path.end()));
  EXPECT_EQ(byPath + kIsThere + "true", Match(hid, machine->UsbInstance("hub")));
  const std::string others[] = {
      "PCIROOT(0)#PCI(1400)#USBROOT(0)#USB(3)#usb(1)", "PCIROOT(0)#PCI(1400)#USBROOT(0)#USB(3)",
      "ACPI(_SB_)#ACPI(PCI0)#ACPI(XHC1)#ACPI(RHUB)#ACPI(PRT3)#ACPI(PRT1)", path};
  for (const std::string& wanted : others) {
    if (wanted == path) machine->AddFault(CallFault(Service::LocationPaths));
    hid.SetTopology(std::wstring(wanted.begin(), wanted.end()));
    EXPECT_EQ(byPath + "1 " + kTopo + "CurrentDevLocationPath:" + wanted + "\n1 " + kTopo +
                  "EnumDevLocationPath:" + (wanted == path ? "" : path) + "\n" + kNotThere +
                  "false",
              Match(hid, machine->UsbInstance("hub")));
  }
}

TEST_F(MatchTest, APositionIsALevelAndFromTheSecondOnAPort) {
  const auto differs = [](const std::string& current, const std::string& wanted) {
    return "0 " + kPlace + ": Match Level Or Port Failed,Cur Level:" + current +
           ", Match Level:" + wanted + "\n";
  };
  const auto noPort = [](const std::string& location) {
    return "3 " + kPlace + ": Get Port Failed!! Location Info:" + location + "\n";
  };
  const std::string unread = "3 " + kPlace + ": Get Location Info Failed,Error Code:";
  struct Case {
    std::string place;  // of the node
    std::optional<std::string> location;
    std::uint32_t level, port;  // wanted
    std::string refusal{};      // none: accepted
    bool isArm64 = false;
  };
  for (const Case& c :
       {Case{"3.1", {}, 0, 5}, Case{"7", {}, 1, 3},  // on the root hub any port will do
        Case{"7", {}, 1, 3, "", true}, Case{"3.1.2.4", {}, 4, 4},
        Case{"3.2", {}, 2, 13, differs("2 Port:2", "2 Port:13"), true},
        Case{"3.1", {}, 1, 3, differs("2 Port:1", "1 Port:3")},
        Case{"3.1", {}, 1, 3, differs("2 Port:1", "1 Port:0"), true}, Case{"3.1", {}, 2, 12},
        Case{"3.1", {}, 2, 21},  // the wanted port contains the node's
        Case{"3.11", {}, 2, 1, differs("2 Port:11", "2 Port:1")},
        Case{"3.1.1", {}, 2, 1, differs("3 Port:1", "2 Port:1")},
        Case{"1", {}, 2, 1, differs("1 Port:1", "2 Port:1")}, Case{"3.1", "Port_#12345#6", 2, 1234},
        Case{"3.1", "0012.Hub", 2, 12},  // without '#' the text begins with the number
        Case{"3.1", "Port_#0000.Hub_#0001", 2, 1, noPort("Port_#0000.Hub_#0001")},
        Case{"3.1", "Port_#x003", 2, 1, noPort("Port_#x003")}, Case{"3.1", "", 2, 1, noPort("")},
        Case{"3.1", "#1" + std::string(197, 'x'), 2, 1},  // 400 bytes with its end
        Case{"3.1", "#1" + std::string(198, 'x'), 2, 1, unread + std::to_string(ENOBUFS) + "\n"}}) {
    SCOPED_TRACE(::testing::Message() << c.place << " for " << c.level << ' ' << c.port);
    const auto node = InstallHub([&](auto& scenario, auto& device) {
      using enum virtualhub::HostArchitecture;
      scenario.host.architecture = c.isArm64 ? Arm64 : X64;
      device.port = *PortPath::Parse(c.place);
      device.usb.locationInfo = c.location;
    });
    hid.SetPosition(c.level, c.port);
    const std::string refused = kNotThere + "false", accepted = kByPosition + kIsThere + "true";
    EXPECT_EQ(c.refusal.empty() ? accepted : kByPosition + c.refusal + refused, Match(hid, node));
    machine->AddFault(CallFault(Service::LocationInfo));
    EXPECT_EQ(c.level == 0 ? accepted : kByPosition + unread + "13\n" + refused, Match(hid, node));
  }
}

TEST_F(MatchTest, MatchingAndListingCountLevelsDifferently) {
  const std::string hub = "USB\\VID_05E3&PID_0610\\6", root = "USB\\ROOT_HUB30\\4";
  using Row = std::tuple<std::string, std::string, int, std::uint32_t>;
  const Row cases[] = {
      // the ids of a hub and of its root hub; the level when matched, and when listed (0: none)
      Row{hub, root, 2, 2}, Row{hub, "usb\\root_hub30\\4", 4, 2}, Row{hub, "USB\\ROOT\\4", 2, 3},
      Row{hub, "USB\\HUB30\\4", 4, 3}, Row{"USB\\ROOT_HUB20\\6", root, 1, 1},
      // The longest wide and the longest narrow id, and a character more.
      Row{hub + std::string(176, 'x'), root, 2, 2}, Row{hub + std::string(177, 'x'), root, 1, 2},
      Row{hub + std::string(1000, 'x'), root, 1, 2}, Row{hub + std::string(1001, 'x'), root, 1, 0}};
  for (const auto& [hubId, rootId, matched, listed] : cases) {
    SCOPED_TRACE(hubId + " " + rootId);
    const std::pair ids(hubId, rootId);
    const auto node = InstallHub([&](auto& scenario, auto&) {
      scenario.rootHubs.resize(1);
      scenario.rootHubs[0].deviceId = ids.second;
      scenario.hubs[*PortPath::Parse("3")].deviceId = ids.first;
    });
    EXPECT_FALSE(CDevProperty::Instance().IsSuitTopology(9, node, L"#USB(1)"));
    const auto text = "Cur Level:" + std::to_string(matched) + " Port:1, Match Level:9 Port:1\n";
    EXPECT_EQ((LogLine{0, kPlace, "Match Level Or Port Failed," + text}), log.Lines().back());
    EXPECT_EQ(hubId.size() >= 200 ? 1u : 0u, Failures().size());
    std::uint32_t level = 77;
    EXPECT_EQ(listed != 0, GetDevLevel(node, level));
    EXPECT_EQ(listed, level);
  }
}

TEST_F(MatchTest, AHubWithoutReadableIdIsNotCountedAndTheOnesAboveItAre) {
  const auto node =
      InstallHub([&](auto&, auto& device) { device.port = *PortPath::Parse("3.1.2.4"); });
  const std::string unread = "3 " + kPlace + ": Get Device ID Failed,Error Code:13\n";
  std::uint32_t listed = 0;
  for (const std::uint32_t nth : {1u, 2u, 3u, 9u}) {
    SCOPED_TRACE(nth);
    machine->ClearFaults();
    machine->AddFault(CallFault(Service::GetDeviceIdW, nth));
    machine->AddFault(CallFault(Service::GetDeviceIdA, nth));
    hid.SetPosition(nth == 9 ? 4 : 3, 4);
    EXPECT_EQ(kByPosition + (nth == 9 ? "" : unread) + kIsThere + "true", Match(hid, node));
    EXPECT_EQ(nth == 9, GetDevLevel(node, listed)) << "a listing counts all or none";
  }
  machine->AddFault(CallFault(Service::GetParent));
  EXPECT_FALSE(GetDevLevel(node, listed)) << "with nothing above it";
  EXPECT_EQ(0u, listed);
}

}  // namespace
}  // namespace qzhid::test
