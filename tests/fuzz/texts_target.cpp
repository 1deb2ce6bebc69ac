// Hardware ids, locations and device ids: any texts on any node, listed, opened and matched.
#include <stdexcept>

#include "device/hid_dev.h"
#include "discovery/node_matchers.h"
#include "fuzz/library_bench.h"

using namespace qzhid::fuzz;

static virtualhub::NodeOverrides Node(Input& input) {
  const auto texts = [&input] {
    std::vector<std::string> list(input.Byte() % 4);
    for (std::string& text : list) text = input.Text();
    return list;
  };
  virtualhub::NodeOverrides node;
  const std::uint8_t which = input.Byte();
  if ((which & 1) != 0) node.deviceId = input.Text();
  if ((which & 2) != 0) node.hardwareIds = texts();
  if ((which & 4) != 0) node.locationInfo = input.Text();
  if ((which & 8) != 0) node.locationPaths = texts();
  if ((which & 16) != 0) node.address = input.Number(4);
  node.noParent = (which & 32) != 0;
  return node;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  Input input(data, size);
  const std::uint8_t kind = input.Byte();
  virtualhub::Scenario scenario = HubScenario();
  virtualhub::DeviceConfig& hub = scenario.devices[0];
  if ((kind & 1) != 0) hub.port.ports = {5};
  if ((kind & 2) != 0) hub.productText = input.Text();
  hub.usb = Node(input);
  hub.hid = Node(input);
  scenario.rootHubs = {Node(input)};
  scenario.hubs[hub.port.Parent()] = Node(input);
  using enum virtualhub::HostArchitecture;
  scenario.host.architecture = (kind & 4) != 0 ? Arm64 : X64;
  LibraryBench bench(scenario);
  const std::uint32_t vid = input.Word();
  List(&vid, input.Word());
  bench.OpenAll();
  // The matchers, which no export shows in full. A log line that does not fit ends the call.
  const std::uint16_t match = input.Byte(), first = input.Word(), second = input.Word();
  qzhid::CHidDev dev{qzhid::NodeMatchers()};
  if ((match & 1) != 0) dev.SetPosition(first % 8, second);
  if ((match & 2) != 0) dev.AddVidPid(first, second);
  if ((match & 4) != 0) dev.SetDevVidPid(first, second);
  try {
    dev.IsMatch(bench.machine.UsbInstance("hub"));
  } catch (const std::range_error&) {
  }
  return 0;
}
