// Device nodes, and devices that leave and come back.
#include "hub_bench.h"

namespace virtualhub::test {

namespace {

class BusTest : public HubBench {
 protected:
  /// All present HID nodes, in order.
  std::vector<DevInst> Nodes() {
    std::vector<DevInst> nodes;
    machine->Call(Service::OpenNodeSet, 0, 0, [&](const Machine::View& view) {
      nodes = *view.HidNodes();
      return Result{};
    });
    return nodes;
  }
  /// A node and those above it, a line each: the device id without its place, then the location,
  /// the location path ("~" is that of the root hub) and the address if it has them.
  std::string Chain(DevInst number) {
    const std::string root = "PCIROOT(0)#PCI(1400)#USBROOT(0)";
    std::string chain;
    machine->Call(Service::GetParent, number, 0, [&](const Machine::View& view) {
      for (const Node* node = view.FindNode(number); node; node = view.FindNode(node->parent)) {
        const std::string& id = node->deviceId;
        chain += id.substr(0, std::min(id.rfind('\\'), id.find("&SUBSYS")));
        if (node->locationInfo) chain += " " + *node->locationInfo;
        if (node->locationPaths) chain += " " + node->locationPaths->at(0);
        if (node->address) chain += " at " + std::to_string(*node->address);
        if (chain.find(root) != chain.npos) chain.replace(chain.find(root), root.size(), "~");
        chain += '\n';
      }
      return Result{};
    });
    return chain;
  }
};

TEST_F(BusTest, ADeviceHasANodeForEachInterfaceAndCollectionAsOnWindows) {
  Install(OneHub(R"("part": "MI_01&Col02", "siblings": ["MI_0A", "MI_01&Col01"])"));
  const std::vector<DevInst> nodes = Nodes();
  ASSERT_EQ(3u, nodes.size());
  const std::string usb = "USB\\VID_2E7C&PID_0818", hid = "HID\\VID_2E7C&PID_0818";
  const std::string above = usb + " Port_#0001.Hub_#0002 ~#USB(3)#USB(1) at 1\n" +
                            "USB\\VID_05E3&PID_0610 Port_#0003.Hub_#0001 ~#USB(3) at 3\n" +
                            "USB\\ROOT_HUB30 ~\nPCI\\VEN_1B36&DEV_000D PCIROOT(0)#PCI(1400)\n";
  const std::string place = " 0000.0014.0000.001.000.000.000.000.000 ~#USB(3)#USB(1)#USBMI";
  const std::string first = usb + "&MI_01" + place + "(1) at 1\n" + above;
  EXPECT_EQ(hid + "&MI_01&Col01\n" + first, Chain(nodes[0]));
  EXPECT_EQ(hid + "&MI_01&Col02\n" + first, Chain(nodes[1]));
  EXPECT_EQ(hid + "&MI_0A\n" + usb + "&MI_0A" + place + "(10) at 10\n" + above, Chain(nodes[2]));
  // Only its own node takes the hub's reports.
  EXPECT_EQ(nodes[1], HubNode().number);
  const HidNode sibling{nodes[0], HubNode().stay};
  EXPECT_EQ(Error::Stall, machine->SetOutputReport(sibling, Bytes(321)).error);
}

TEST_F(BusTest, AResetTakesItsTimeAndMakesNewNodes) {
  Install(OneHub(R"("rom": {"vid": "0x1111", "pid": 2},
      "timing": {"latency_us": 0, "leave_ms": 20, "return_ms": 300, "ready_ms": 40})"));
  const HidNode before = HubNode();
  EXPECT_EQ("ok", Ask(kToRom));
  const std::tuple<std::uint32_t, const char*, std::size_t> steps[] = {
      {0, "stall", 1}, {19, "stall", 1}, {1, "gone", 0}, {299, "gone", 0},
      {1, "stall", 1}, {39, "stall", 1}, {1, "ok", 1}};
  for (const auto& [afterMs, outcome, nodes] : steps) {
    machine->SleepMs(afterMs);
    SCOPED_TRACE("after " + std::to_string(afterMs) + " ms more");
    EXPECT_EQ(outcome, Ask(kEnable1));
    EXPECT_EQ(nodes, Nodes().size());
  }
  EXPECT_EQ("", Chain(before.number)) << "the old node is gone";
  EXPECT_EQ(0u, Chain(machine->UsbInstance("hub")).find("USB\\VID_1111&PID_0002 Port_#0001."));
}

TEST_F(BusTest, AHubThatIsPulledOutDuringItsResetStaysAway) {
  for (const std::uint32_t afterMs : {10, 100}) {  // still on the bus, and off it
    Install(OneHub());
    EXPECT_EQ("ok", Ask(kToRom));
    machine->SleepMs(afterMs);
    machine->Unplug("hub");
    EXPECT_FALSE(Pause()) << afterMs;
    machine->Plug("hub", "4");
    EXPECT_TRUE(Pause()) << afterMs;
    EXPECT_EQ(PortPath::Parse("4"), machine->OnBus("hub")->port);
  }
}

TEST_F(BusTest, ANodeHasTheInstanceOfItsIdOrANewOne) {
  using Instances = std::vector<DevInst>;
  const std::tuple<std::string, std::string, std::string, Instances, Instances> rows[] = {
      // product id and port in ROM code; instances of the HID nodes there and back in flash code
      {"by_id", "0x0818", "3.1", {6, 8, 9}, {6, 8, 9}},
      {"by_id", "0x0810", "3.1", {12, 14, 15}, {6, 8, 9}},
      {"by_id", "0x0818", "4", {12, 14, 15}, {12, 14, 15}},
      {"by_arrival", "0x0818", "3.1", {12, 14, 15}, {18, 20, 21}}};
  for (const auto& [numbers, pid, port, inRom, inFlash] : rows) {
    SCOPED_TRACE(numbers + " " + pid + " " + port);
    Install(R"({"instance_numbers": ")" + numbers + R"(", "devices": [{"name": "hub", "port": "3.1",
                "part": "MI_01&Col02", "siblings": ["MI_00", "MI_01&Col01"],
                "rom": {"pid": ")" +
            pid + R"("}}],
                "faults": [{"on": "reset", "action": "return_at", "port": ")" +
            port + "\"}]}");
    EXPECT_EQ((Instances{6, 8, 9}), Nodes());
    ASSERT_TRUE(Reset(kToRom));
    EXPECT_EQ(inRom, Nodes());
    ASSERT_TRUE(Reset(kToFlash));
    EXPECT_EQ(inFlash, Nodes());
  }
}

TEST_F(BusTest, AnotherStayUnderTheSameNumberIsNotTheOneThatWasOpened) {
  Install(R"({"instance_numbers": "by_id", "devices": [{"name": "hub", "port": "1"}]})");
  machine->SetExchangeHook([&](const Exchange& exchange) {
    if (exchange.number > 1) return;
    machine->Unplug("hub");
    machine->Plug("hub");
  });
  const HidNode before = HubNode();
  EXPECT_EQ(Error::CutOff, machine->SetOutputReport(before, Bytes(321)).error);
  EXPECT_EQ(before.number, HubNode().number);
  EXPECT_EQ(Error::Gone, machine->SetOutputReport(before, Bytes(321)).error);
}

}  // namespace

}  // namespace virtualhub::test
