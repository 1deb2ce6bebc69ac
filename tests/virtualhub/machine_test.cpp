// The machine: device nodes, devices that leave and come back, and faults.
#include "hub_bench.h"

namespace virtualhub::test {

using On = Fault::On;
using Action = Fault::Action;

const std::string kStatus2 = "C0 09 0 0 0 0 2 0";  // its first bytes: 2E 7C

class MachineTest : public HubBench {
 protected:
  MachineTest() { Install(OneHub(R"("running": "rom")")); }

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

TEST_F(MachineTest, ADeviceHasANodeForEachInterfaceAndCollectionAsOnWindows) {
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

TEST_F(MachineTest, AResetTakesItsTimeAndMakesNewNodes) {
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

TEST_F(MachineTest, AHubThatIsPulledOutDuringItsResetStaysAway) {
  for (const std::uint32_t afterMs : {10u, 100u}) {  // still on the bus, and off it
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

TEST_F(MachineTest, ANodeHasTheInstanceOfItsIdOrANewOne) {
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

TEST_F(MachineTest, AnotherStayUnderTheSameNumberIsNotTheOneThatWasOpened) {
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

TEST_F(MachineTest, AFaultStrikesEventsOfItsKindFromTheNthOnAsOftenAsItCounts) {
  const std::pair<std::vector<Fault>, std::string> rows[] = {
      // what comes of four requests, six exchanges
      {{{.on = On::Output}}, "failed, 2E 7C, ok, 2E 7C"},
      {{{.on = On::Output, .nth = 2, .count = 2}}, "ok, failed, failed, 2E 7C"},
      {{{.on = On::Output, .nth = 3, .count = 0}}, "ok, 2E 7C, failed, failed"},
      {{{.on = On::Output, .device = "hub"}}, "failed, 2E 7C, ok, 2E 7C"},
      {{{.on = On::Output, .device = "other"}}, "ok, 2E 7C, ok, 2E 7C"},
      {{{.on = On::Input}}, "ok, failed, ok, 2E 7C"},
      {{{.on = On::Exchange, .nth = 3}}, "ok, failed, ok, 2E 7C"},
      {{{.on = On::Exchange, .nth = 4, .action = Action::Stall}}, "ok, 2E 7C, stall, 2E 7C"},
      {{{.on = On::Request, .requestType = 0xC0, .request = 9, .nth = 2}}, "ok, 2E 7C, ok, failed"},
      {{{.on = On::Request, .requestType = 0x40, .request = 9}}, "ok, 2E 7C, ok, 2E 7C"},
      {{{.on = On::Request, .requestType = 0xC0, .request = 2}}, "ok, 2E 7C, ok, 2E 7C"},
      {{{.on = On::Output, .nth = 2, .action = Action::Stall}, {.on = On::Exchange, .count = 2}},
       "failed, stall, ok, 2E 7C"},  // the first one acts
      {{{.on = On::Reset}}, "ok, 2E 7C, ok, 2E 7C"},
      {{{.on = On::Input, .action = Action::AnswerZeros}}, "ok, 00 00, ok, 2E 7C"},
      {{{.on = On::Output, .nth = 2, .action = Action::AnswerOnes}}, "ok, FF FF, ok, 2E 7C"},
      {{{.on = On::Input, .action = Action::AnswerRandom, .seed = 7}}, "ok, 3D E9, ok, 2E 7C"},
      {{{.on = On::Input, .action = Action::AnswerRandom, .seed = 8}}, "ok, 3D 01, ok, 2E 7C"}};
  Install(R"({"devices": [{"name": "hub", "port": "3"}, {"name": "other", "port": "4"}]})");
  for (std::size_t i = 0; i < std::size(rows); ++i) {
    machine->ClearFaults();
    EXPECT_EQ("ok", Ask(kEnable1));
    for (const Fault& fault : rows[i].first) machine->AddFault(fault);
    EXPECT_EQ(rows[i].second, Ask({kEnable1, kStatus2, kEnable1, kStatus2})) << "row " << i;
  }
}

TEST_F(MachineTest, ALostWriteIsAcceptedButNotCarriedOut) {
  const std::string write = "40 C8 0 0 0 0 1 0: 5A", read = "C0 D8 0 0 0 0 1 0";
  EXPECT_EQ("ok, ok", Ask({kEnable3, kErase}));
  machine->AddFault(
      {.on = On::Request, .requestType = 0x40, .request = 0xC8, .action = Action::LoseWrite});
  EXPECT_EQ("ok, FF, ok, 5A", Ask({write, read, write, read}));
}

TEST_F(MachineTest, ADeviceThatIsTakenOffReturnsInTimeOrNever) {
  const std::tuple<Action, std::optional<std::uint32_t>, std::string, std::string> rows[] = {
      {Action::Unplug, 30, "4.2", "rom 00 01"},  // it still runs the same code
      {Action::PowerLoss, 30, "4", "flash 01 02"},
      {Action::Unplug, std::nullopt, "", ""}};
  for (const auto& [action, returnMs, port, state] : rows) {
    Install(OneHub(R"("running": "rom")"));
    machine->AddFault({.on = On::Output, .action = action, .returnMs = returnMs, .port = port});
    EXPECT_EQ(Error::CutOff, Send(Hex(kEnable1)));
    machine->SleepMs(29);
    EXPECT_FALSE(machine->OnBus("hub"));
    machine->SleepMs(returnMs ? 1 : 1'000'000);
    const auto back = machine->OnBus("hub");
    EXPECT_EQ(PortPath::Parse(port), back ? std::optional(back->port) : std::nullopt);
    EXPECT_EQ(state, back ? State() : "");
  }
}

TEST_F(MachineTest, AFaultOfAnotherDeviceLeavesTheOneConcernedAlone) {
  const auto service = Service::OpenNodeSet;
  Install(R"({"devices": [{"name": "hub", "port": "3"}, {"name": "other", "port": "4"}]})");
  machine->AddFault(
      {.on = On::Call, .service = service, .device = "other", .action = Action::Unplug});
  machine->Call(service, 0, 0, [](const Machine::View&) { return Result{}; });
  EXPECT_FALSE(machine->OnBus("other"));
  EXPECT_EQ("ok", Ask(kEnable1));
}

TEST_F(MachineTest, AHeldDeviceIsReleasedInTime) {
  const DevInst hid = machine->HidInstance("hub");
  const auto isHeld = [&](std::uint32_t afterMs) {
    machine->SleepMs(afterMs);
    return machine->Call(Service::OpenHidDevice, hid, 0, [&](const Machine::View& view) {
      return Result{view.IsHeld(hid) ? Error::HeldByOther : Error::None};
    });
  };
  machine->AddFault({.on = On::Output, .action = Action::Hold, .releaseMs = 20});
  EXPECT_EQ(Error::None, isHeld(0).error);
  EXPECT_EQ("ok", Ask(kEnable1)) << "whoever has it open keeps it";
  EXPECT_EQ(Error::HeldByOther, isHeld(19).error);
  EXPECT_EQ(Error::None, isHeld(1).error);
}

TEST_F(MachineTest, AFaultThatCannotStrikeIsRejected) {
  EXPECT_THROW(machine->AddFault({.on = On::Call}), std::invalid_argument) << "no service";
  EXPECT_THROW(machine->AddFault({.on = On::Input, .service = Service::GetCaps}),
               std::invalid_argument);
  EXPECT_THROW(machine->AddFault({.device = "nobody"}), std::out_of_range);
  EXPECT_THROW(machine->AddFault({.port = "3.x"}), std::out_of_range);
}

}  // namespace virtualhub::test
