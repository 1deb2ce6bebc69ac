// Device nodes, and devices that leave and come back.
#include "hub_bench.h"

namespace virtualhub::test {

namespace {

class BusTest : public HubBench {
 protected:
  /// All present HID nodes.
  std::vector<DevInst> Nodes() {
    std::vector<DevInst> nodes;
    machine->Call(Service::OpenNodeSet, 0, 0, [&](const Machine::View& view) {
      nodes = *view.HidNodes();
      return Result{};
    });
    return nodes;
  }
};
using Texts = std::vector<std::string>;

// A node and those above it: the device id without its place, location, path and address if any.
Texts Chain(Machine& machine, DevInst number) {
  Texts chain;
  machine.Call(Service::GetParent, number, 0, [&](const Machine::View& view) {
    for (const Node* node = view.FindNode(number); node; node = view.FindNode(node->parent)) {
      const std::string& id = node->deviceId;
      chain.push_back(id.substr(0, std::min(id.rfind('\\'), id.find("&SUBSYS"))));
      const Texts paths = node->locationPaths.value_or(Texts{});
      if (node->locationInfo) chain.back() += " " + *node->locationInfo;
      if (!paths.empty()) chain.back() += " " + paths[0];
      if (node->address) chain.back() += " at " + std::to_string(*node->address);
    }
    return Result{};
  });
  return chain;
}

TEST_F(BusTest, NodesLookLikeThoseOfWindows) {
  Install(OneHub());
  const std::string root = "PCIROOT(0)#PCI(1400)#USBROOT(0)";
  EXPECT_EQ((Texts{"HID\\VID_2E7C&PID_0818",
                   "USB\\VID_2E7C&PID_0818 Port_#0001.Hub_#0002 " + root + "#USB(3)#USB(1) at 1",
                   "USB\\VID_05E3&PID_0610 Port_#0003.Hub_#0001 " + root + "#USB(3) at 3",
                   "USB\\ROOT_HUB30 PCIROOT(0)#PCI(1400)#USBROOT(0)",
                   "PCI\\VEN_1B36&DEV_000D PCIROOT(0)#PCI(1400)"}),
            Chain(*machine, machine->HidInstance("hub")));
}

TEST_F(BusTest, AResetTakesItsTimeAndMakesNewNodes) {
  Install(OneHub(R"("rom": {"vid": "0x1111", "pid": 2},
      "timing": {"latency_us": 0, "leave_ms": 20, "return_ms": 300, "ready_ms": 40})"));
  const HidNode stay = HubNode();
  const DevInst before = stay.number;
  Expect({{"40 00 0 0 0 0 0 0", "ok"}});
  const std::pair<std::uint32_t, const char*> steps[] = {
      {0, "stall"}, {19, "stall"}, {1, "gone"}, {299, "gone"},
      {1, "stall"}, {39, "stall"}, {1, "ok"}};
  for (const auto& [afterMs, outcome] : steps) {
    machine->SleepMs(afterMs);
    EXPECT_EQ(outcome, Ask("40 02 1 0 7C 2E 0 0")) << "after " << afterMs << " ms more";
  }
  EXPECT_NE(before, machine->HidInstance("hub"));
  EXPECT_EQ(Texts(), Chain(*machine, before)) << "the old node is gone";
  EXPECT_EQ(Error::Gone, machine->SetOutputReport(stay, Bytes(321)).error);
  EXPECT_EQ(
      "USB\\VID_1111&PID_0002 Port_#0001.Hub_#0002 "
      "PCIROOT(0)#PCI(1400)#USBROOT(0)#USB(3)#USB(1) at 1",
      Chain(*machine, machine->UsbInstance("hub")).at(0));
}

TEST_F(BusTest, ANodeHasTheInstanceOfItsIdOrANewOne) {
  struct Case {
    std::string numbers, romPid, port;
    std::string inRom, inFlash;  // are its numbers those from before the reset?
  };
  for (const Case& c :
       {Case{"by_id", "0x0818", "3.1", "same", "same"},
        Case{"by_id", "0x0810", "3.1", "new", "same"}, Case{"by_id", "0x0818", "4", "new", "new"},
        Case{"by_arrival", "0x0818", "3.1", "new", "new"}}) {
    SCOPED_TRACE(c.numbers + " " + c.romPid + " " + c.port);
    const std::string members = R"("part": "MI_01&Col02", "siblings": ["MI_00", "MI_01&Col01"],)";
    Scenario scenario = ReadScenario(OneHub(members + R"("rom": {"pid": ")" + c.romPid + "\"}"));
    scenario.instanceNumbers =
        c.numbers == "by_id" ? InstanceNumbers::ById : InstanceNumbers::ByArrival;
    machine = &InstallMachine(scenario);
    machine->AddFault({.on = Fault::On::Reset, .action = Fault::Action::ReturnAt, .port = c.port});
    const auto numbers = [&] {
      auto all = Nodes();
      all.push_back(machine->UsbInstance("hub"));
      return all;
    };
    const HidNode first = HubNode();
    const auto before = numbers();
    const auto compare = [&]() -> std::string {
      const auto now = numbers();
      if (now == before) return "same";
      const auto end = now.end();
      return std::find_first_of(now.begin(), end, before.begin(), before.end()) == end ? "new" : "";
    };
    ASSERT_TRUE(ResetToRom());
    EXPECT_EQ(c.inRom, compare());
    ASSERT_TRUE(ResetToFlash());
    EXPECT_EQ(c.inFlash, compare());
    EXPECT_EQ(Error::Gone, machine->SetOutputReport(first, Bytes(321)).error) << "a handle's stay";
  }
}

TEST_F(BusTest, AnExchangeIsCutOffEvenIfTheDeviceIsBackUnderTheSameNumber) {
  Install(R"({"instance_numbers": "by_id", "devices": [{"name": "hub", "port": "1"}]})");
  machine->SetExchangeHook([&](const Exchange&) {
    machine->Unplug("hub");
    machine->Plug("hub");
  });
  const HidNode before = HubNode();
  EXPECT_EQ(Error::CutOff, machine->SetOutputReport(before, Bytes(321)).error);
  EXPECT_EQ(before.number, HubNode().number);
}

TEST_F(BusTest, ACompositeDeviceHasANodeForEachInterfaceAndCollection) {
  Install(R"({"devices": [{"name": "hub", "port": "3", "part": "MI_01&Col02",
      "siblings": ["MI_0A", "MI_01&Col01"], "usb": {"location_info": null}}]})");
  const std::string usb = "USB\\VID_2E7C&PID_0818",
                    path = " PCIROOT(0)#PCI(1400)#USBROOT(0)#USB(3)";
  const Texts above = {usb + path + " at 3", "USB\\ROOT_HUB30 PCIROOT(0)#PCI(1400)#USBROOT(0)",
                       "PCI\\VEN_1B36&DEV_000D PCIROOT(0)#PCI(1400)"};
  const std::string place = " 0000.0014.0000.003.000.000.000.000.000";
  std::vector<Texts> chains;
  for (const DevInst node : Nodes()) chains.push_back(Chain(*machine, node));
  const auto chain = [&](const std::string& hid, const std::string& interfaceNode) {
    Texts all = {hid, interfaceNode};
    all.insert(all.end(), above.begin(), above.end());
    return all;
  };
  const std::string first = usb + "&MI_01" + place + path + "#USBMI(1) at 1";
  EXPECT_EQ((std::vector<Texts>{chain("HID\\VID_2E7C&PID_0818&MI_01&Col01", first),
                                chain("HID\\VID_2E7C&PID_0818&MI_01&Col02", first),
                                chain("HID\\VID_2E7C&PID_0818&MI_0A",
                                      usb + "&MI_0A" + place + path + "#USBMI(10) at 10")}),
            chains);
  // Only its own node hears the hub's reports.
  const HidNode own = HubNode();
  EXPECT_EQ(Nodes()[1], own.number);
  EXPECT_EQ(Error::Stall, machine->SetOutputReport({Nodes()[0], own.stay}, Bytes(321)).error);
  EXPECT_TRUE(Enable(1));
}

}  // namespace

}  // namespace virtualhub::test
