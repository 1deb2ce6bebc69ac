// Device nodes, leaving and coming back, and faults.
#include "hub_bench.h"

namespace virtualhub::test {

namespace {

using BusTest = HubBench;
using Texts = std::vector<std::string>;

// A node and those above it: the first part of the device id, location, path and address if any.
Texts Chain(World& world, DevInst number) {
  Texts chain;
  world.Call("GetParent", number, 0, [&](const World::View& view) {
    for (const Node* node = view.FindNode(number); node; node = view.FindNode(node->parent)) {
      chain.push_back(node->deviceId.substr(0, node->deviceId.rfind('\\')).substr(0, 21));
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
  EXPECT_EQ((Texts{"HID\\VID_2E7C&PID_0818",
                   "USB\\VID_2E7C&PID_0818 Port_#0001.Hub_#0002 "
                   "PCIROOT(0)#PCI(1400)#USBROOT(0)#USB(3)#USB(1) at 1",
                   "USB\\VID_05E3&PID_0610 Port_#0003.Hub_#0001 "
                   "PCIROOT(0)#PCI(1400)#USBROOT(0)#USB(3) at 3",
                   "USB\\ROOT_HUB30 PCIROOT(0)#PCI(1400)#USBROOT(0)",
                   "PCI\\VEN_1B36&DEV_000D PCIROOT(0)#PCI(1400)"}),
            Chain(*world, world->HidInstance("hub")));
}

TEST_F(BusTest, ResetTakesItsTimeAndMakesNewNodes) {
  Install(OneHub(R"("rom": {"vid": "0x1111", "pid": 2},
      "timing": {"latency_us": 0, "leave_ms": 20, "return_ms": 300, "ready_ms": 40})"));
  const DevInst before = world->HidInstance("hub");
  Expect({{"40 00 0 0 0 0 0 0", "ok"}});
  std::string outcomes;
  for (const std::uint32_t afterMs : {0, 19, 1, 299, 1, 39, 1}) {
    world->SleepMs(afterMs);
    outcomes += Ask("40 02 1 0 7C 2E 0 0") + " ";
  }
  EXPECT_EQ("stall stall gone gone stall stall ok ", outcomes);
  EXPECT_NE(before, world->HidInstance("hub"));
  EXPECT_EQ(Texts(), Chain(*world, before)) << "the old node is gone";
  EXPECT_EQ(Error::Gone, world->SetOutputReport(before, Bytes(321)).error);
  EXPECT_EQ(
      "USB\\VID_1111&PID_0002 Port_#0001.Hub_#0002 "
      "PCIROOT(0)#PCI(1400)#USBROOT(0)#USB(3)#USB(1) at 1",
      Chain(*world, world->UsbInstance("hub")).at(0));
}

TEST_F(BusTest, FaultsStrikeWhereTheyShould) {
  Install(R"({"devices": [{"name": "hub", "port": "1", "running": "rom"}], "faults": [
      {"on": "request", "request": "40/C8", "nth": 2, "count": 2, "action": "stall"},
      {"on": "request", "request": "40/C8", "nth": 4, "action": "lose_write"},
      {"on": "request", "request": "C0/D8", "nth": 2, "action": "answer_zeros"},
      {"on": "input", "nth": 3, "action": "answer_ones"},
      {"on": "input", "nth": 4, "action": "fail", "code": 0},
      {"on": "exchange", "nth": 16, "count": 0, "action": "fail", "code": 77}]})");
  ASSERT_TRUE(Enable(3) && Ok(kErase));
  const std::string write = "40 C8 0 0 0 0 1 0: 5A", read = "C0 D8 0 0 0 0 1 0";
  Expect({{write, "ok"},
          {write, "stall"},
          {write, "stall"},
          {"40 C8 0 0 0 0 1 0: 0", "ok"},  // not stored
          {write, "ok"},
          {read, "5A"},  // exchanges 8 and 9
          {read, "00"},
          {read, "FF"}});  // 12 and 13
  EXPECT_EQ(Error::None, Send(FromHex(read)));
  Bytes answer;
  EXPECT_EQ((Result{Error::SystemCode, 0}), Take(answer));
  for (int i = 0; i < 3; ++i) EXPECT_EQ((Result{Error::SystemCode, 77}), Take(answer));
}

}  // namespace

}  // namespace virtualhub::test
