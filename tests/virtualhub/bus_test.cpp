// Device nodes, leaving and coming back, faults, and the record of it all.
#include "hub_bench.h"

namespace virtualhub::test {

namespace {

using BusTest = HubBench;
using Kind = Record::Kind;

// Calls a service that does nothing of its own.
Error CallService(World& world, const char* service, DevInst node = 0) {
  return world.Call(service, node, 0, [](const World::View&) { return Result{}; }).error;
}

std::vector<DevInst> HidNodes(World& world) {
  std::vector<DevInst> nodes;
  world.Call("OpenNodeSet", 0, 0, [&](const World::View& view) {
    nodes = view.HidNodes();
    return Result{};
  });
  return nodes;
}

Node NodeOf(World& world, DevInst number) {
  Node node;
  world.Call("GetParent", number, 0, [&](const World::View& view) {
    if (const Node* found = view.FindNode(number)) node = *found;
    return Result{};
  });
  return node;
}

TEST_F(BusTest, NodesLookLikeThoseOfWindows) {
  Install(kOneHub);
  const Node hid = NodeOf(*world, world->HidInstance("hub"));
  EXPECT_EQ(0u, hid.deviceId.find("HID\\VID_2E7C&PID_0818\\7&"));
  EXPECT_EQ("HID\\VID_2E7C&PID_0818&REV_0100", hid.hardwareIds.at(0));
  EXPECT_EQ("HID\\VID_2E7C&PID_0818", hid.hardwareIds.at(1));
  EXPECT_FALSE(hid.locationInfo || hid.locationPaths || hid.address);
  EXPECT_EQ(world->UsbInstance("hub"), hid.parent);

  const Node usb = NodeOf(*world, hid.parent);
  EXPECT_EQ(0u, usb.deviceId.find("USB\\VID_2E7C&PID_0818\\"));
  EXPECT_EQ("PCIROOT(0)#PCI(1400)#USBROOT(0)#USB(3)#USB(1)", usb.locationPaths->at(0));
  EXPECT_EQ("Port_#0001.Hub_#0002", *usb.locationInfo);
  EXPECT_EQ(1u, *usb.address);
  const Node hub = NodeOf(*world, usb.parent);
  EXPECT_EQ(0u, hub.deviceId.find("USB\\VID_05E3&PID_0610\\"));
  EXPECT_EQ(3u, *hub.address);
  const Node root = NodeOf(*world, hub.parent);
  EXPECT_EQ(0u, root.deviceId.find("USB\\ROOT_HUB30\\4&"));
  const Node controller = NodeOf(*world, root.parent);
  EXPECT_EQ(0u, controller.deviceId.find("PCI\\VEN_1B36&DEV_000D"));
  EXPECT_EQ(0u, controller.parent);
}

TEST_F(BusTest, OverridesOrderAndSecondRoot) {
  Install(R"({"root_hubs": [{}, {"device_id": "PLAIN\\1", "no_parent": true}],
    "hubs": [{"port": "2-7", "device_id": "usb\\mid"}],
    "enumeration_order": ["b", "a"],
    "devices": [
      {"name": "a", "port": "1", "usb": {"location_paths": [], "address": 9}},
      {"name": "b", "port": "2-7.4", "kind": "other", "hid": {"hardware_ids": ["x"]}},
      {"name": "c", "port": "2", "plugged": false}]})");
  EXPECT_EQ((std::vector{world->HidInstance("b"), world->HidInstance("a")}), HidNodes(*world));
  EXPECT_EQ(9u, *NodeOf(*world, world->UsbInstance("a")).address);
  EXPECT_TRUE(NodeOf(*world, world->UsbInstance("a")).locationPaths->empty());
  EXPECT_EQ(std::vector<std::string>{"x"}, NodeOf(*world, world->HidInstance("b")).hardwareIds);
  const Node usb = NodeOf(*world, world->UsbInstance("b"));
  EXPECT_EQ("PCIROOT(0)#PCI(1500)#USBROOT(0)#USB(7)#USB(4)", usb.locationPaths->at(0));
  const Node mid = NodeOf(*world, usb.parent);
  EXPECT_EQ("usb\\mid", mid.deviceId);
  EXPECT_EQ("PLAIN\\1", NodeOf(*world, mid.parent).deviceId);
  EXPECT_EQ(0u, NodeOf(*world, mid.parent).parent);
  world->Plug("c");
  EXPECT_EQ(3u, HidNodes(*world).size());
  EXPECT_GT(world->HidInstance("c"), world->HidInstance("b"));
}

TEST_F(BusTest, ResetTakesItsTimeAndMakesNewNodes) {
  Install(R"({"devices": [{"name": "hub", "port": "3.1", "rom": {"vid": "0x1111", "pid": 2},
      "timing": {"latency_us": 0, "leave_ms": 20, "return_ms": 300, "ready_ms": 40}}]})");
  const DevInst before = world->HidInstance("hub");
  const auto path = NodeOf(*world, world->UsbInstance("hub")).locationPaths;
  ASSERT_TRUE(Sent({0x40, 0x00, 0, 0, 0, 0, 0, 0}));
  struct {
    std::uint32_t afterMs;
    bool present;
    Error answer;
  } const steps[] = {{0, true, Error::Stall},   {19, true, Error::Stall}, {1, false, Error::Gone},
                     {299, false, Error::Gone}, {1, true, Error::Stall},  {39, true, Error::Stall},
                     {1, true, Error::None}};
  for (const auto& step : steps) {
    world->SleepMs(step.afterMs);
    EXPECT_EQ(step.present, world->HidInstance("hub") != 0) << world->clock().NowUs();
    EXPECT_EQ(step.answer, Send({0x40, 0x02, 1, 0, 0x7C, 0x2E, 0, 0})) << world->clock().NowUs();
  }
  EXPECT_NE(before, world->HidInstance("hub"));
  EXPECT_EQ("", NodeOf(*world, before).deviceId) << "the old node is gone";
  EXPECT_EQ(Error::Gone, world->SetOutputReport(before, Report({})).error);
  const Node usb = NodeOf(*world, world->UsbInstance("hub"));
  EXPECT_EQ("USB\\VID_1111&PID_0002", usb.hardwareIds.at(1));
  EXPECT_EQ(path, usb.locationPaths);
}

TEST_F(BusTest, TimeOfReportsAndErase) {
  Install(R"({"devices": [{"name": "hub", "port": "1", "running": "rom",
      "timing": {"latency_us": 1500, "erase_ms": 70}}]})");
  ASSERT_TRUE(Enable(1));
  EXPECT_EQ(1500u, world->clock().NowUs());
  ASSERT_TRUE(Erase());
  EXPECT_EQ(73000u, world->clock().NowUs());
  world->SleepMs(58'000 - 73);
  const CalendarTime time = world->clock().VirtualCalendar();
  EXPECT_EQ((std::array{2024, 3, 7, 9, 6, 0}),
            (std::array{time.year, time.month, time.day, time.hour, time.minute, time.second}));
}

TEST_F(BusTest, HookActsBeforeTheExchange) {
  Install(kOneHub);
  std::vector<std::uint64_t> seen;
  world->SetExchangeHook([&](const Exchange& exchange) {
    seen.push_back(exchange.number);
    if (!exchange.output) world->Unplug("hub");
  });
  EXPECT_TRUE(Enable(1));
  Bytes answer(257, 0);
  ASSERT_TRUE(Sent({0xC0, 0x09, 0, 0, 0, 0, 20, 0}));
  EXPECT_EQ(Error::CutOff, world->GetInputReport(world->HidInstance("hub"), answer).error);
  EXPECT_EQ((std::vector<std::uint64_t>{1, 2, 3}), seen);
  EXPECT_EQ(3u, world->exchanges());
  EXPECT_TRUE(HidNodes(*world).empty());
}

TEST_F(BusTest, FaultsStrikeWhereTheyShould) {
  Install(R"({"devices": [{"name": "hub", "port": "1", "running": "rom"}], "faults": [
      {"on": "request", "request": "40/C8", "nth": 2, "count": 2, "action": "stall"},
      {"on": "request", "request": "40/C8", "nth": 4, "action": "lose_write"},
      {"on": "request", "request": "C0/D8", "nth": 2, "action": "answer_zeros"},
      {"on": "input", "nth": 3, "action": "answer_ones"},
      {"on": "input", "nth": 4, "action": "fail", "code": 0},
      {"on": "exchange", "nth": 16, "count": 0, "action": "fail", "code": 77}]})");
  ASSERT_TRUE(Enable(3) && Erase());
  const bool written[] = {true, false, false, true, true};
  for (const bool expected : written) EXPECT_EQ(expected, WriteFlash(0, {0x5A}));
  EXPECT_EQ(Bytes{0x5A}, ReadFlash(0, 1)) << "exchanges 8 and 9";
  EXPECT_EQ(Bytes{0x00}, ReadFlash(0, 1));
  EXPECT_EQ(Bytes{0xFF}, ReadFlash(0, 1)) << "12 and 13";
  Bytes answer(257, 0);
  ASSERT_TRUE(Sent({0xC0, 0x09, 0, 0, 0, 0, 20, 0}));
  EXPECT_EQ((Result{Error::SystemCode, 0}),
            world->GetInputReport(world->HidInstance("hub"), answer));
  for (int i = 0; i < 3; ++i) {
    const Result result = world->SetOutputReport(world->HidInstance("hub"), Report({0x40, 0x02}));
    EXPECT_EQ((Result{Error::SystemCode, 77}), result);
  }
  world->ClearFaults();
  world->AddFault({.on = Fault::On::Request,
                   .requestType = 0x40,
                   .request = 0xC8,
                   .action = Fault::Action::LoseWrite});
  ASSERT_TRUE(WriteFlash(8, {0x00}));
  EXPECT_EQ(Bytes{0xFF}, ReadFlash(8, 1)) << "accepted, but not stored";
  EXPECT_THROW(world->AddFault({.device = "nobody"}), std::out_of_range);
}

TEST_F(BusTest, FaultsOnCallsAndResets) {
  Install(R"({"devices": [{"name": "hub", "port": "1"}, {"name": "two", "port": "2"}], "faults": [
      {"on": "call", "service": "GetCaps", "device": "two", "action": "fail", "code": 5},
      {"on": "call", "service": "OpenNodeSet", "nth": 2, "device": "two", "action": "unplug",
       "return_ms": 100, "port": "2-1"},
      {"on": "reset", "nth": 1, "action": "return_at", "port": "7"},
      {"on": "reset", "nth": 2, "action": "never_return"}]})");
  EXPECT_EQ(Error::None, CallService(*world, "GetCaps", world->HidInstance("hub")));
  EXPECT_EQ(Error::SystemCode, CallService(*world, "GetCaps", world->HidInstance("two")));
  EXPECT_EQ(Error::None, CallService(*world, "GetCaps", world->HidInstance("two")));
  EXPECT_EQ(2u, HidNodes(*world).size());
  EXPECT_EQ(1u, HidNodes(*world).size()) << "gone before the set is taken";
  world->SleepMs(100);
  EXPECT_EQ("PCIROOT(0)#PCI(1500)#USBROOT(0)#USB(1)",
            NodeOf(*world, world->UsbInstance("two")).locationPaths->at(0));
  ASSERT_TRUE(ResetToRom());
  EXPECT_EQ(7u, *NodeOf(*world, world->UsbInstance("hub")).address);
  EXPECT_FALSE(ResetToRom());
  world->Plug("hub", "1");
  EXPECT_EQ(1u, *NodeOf(*world, world->UsbInstance("hub")).address);
}

TEST_F(BusTest, RecordKeepsOrderBytesAndResults) {
  Install(R"({"record": true, "devices": [{"name": "hub", "port": "1"}]})");
  const DevInst node = world->HidInstance("hub");
  CallService(*world, "GetCaps", node);
  world->DebugText("hello");
  Send({0x40, 0xC8, 0x34, 0x12, 0, 0, 2, 0}, {0xAA, 0xBB});
  world->SleepMs(128);
  const Kind kinds[] = {Kind::Call, Kind::Debug, Kind::Request, Kind::Output, Kind::Call};
  const auto& all = world->recorder().all();
  ASSERT_EQ(std::size(kinds), all.size());
  for (std::size_t i = 0; i < all.size(); ++i) EXPECT_EQ(kinds[i], all[i].kind) << i;
  EXPECT_EQ((Bytes{0xAA, 0xBB}), all[2].data);
  EXPECT_EQ(0x40C8, all[2].key());
  EXPECT_EQ(0x12, all[2].setup[3]);
  EXPECT_EQ(Report({0x40, 0xC8, 0x34, 0x12, 0, 0, 2, 0}, {0xAA, 0xBB}), all[3].data);
  EXPECT_EQ(Error::Stall, all[3].result.error);
  EXPECT_EQ(node, all[3].instance);
  EXPECT_EQ(250u, all[3].timeUs);
  EXPECT_EQ(128u, world->recorder().Calls("SleepMs").at(0).value);
  EXPECT_EQ(std::vector<std::string>{"hello"}, world->recorder().DebugTexts());
}

}  // namespace

}  // namespace virtualhub::test
