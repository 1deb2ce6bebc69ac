// Hardware ids, locations and device ids: any texts on any node, listed, opened and matched.
#include <algorithm>
#include <array>
#include <stdexcept>

#include "device/hid_dev.h"
#include "fuzz/machine.h"

using namespace qzhid;
using namespace qzhid::fuzz;

namespace {

constexpr const char* kPorts[] = {"3.1", "5", "2-1.2.3", "127"};

std::vector<std::string> Texts(Input& input) {
  std::vector<std::string> texts(input.Below(4));
  std::generate(texts.begin(), texts.end(), [&] { return input.Text(); });
  return texts;
}

virtualhub::NodeOverrides Node(Input& input) {
  virtualhub::NodeOverrides node;
  const std::uint8_t which = input.Byte();
  if ((which & 1) != 0) node.deviceId = input.Text();
  if ((which & 2) != 0) node.hardwareIds = Texts(input);
  if ((which & 4) != 0) node.locationInfo = input.Text();
  if ((which & 8) != 0) node.locationPaths = Texts(input);
  if ((which & 16) != 0) node.address = input.Long();
  node.noParent = (which & 32) != 0;
  return node;
}

virtualhub::Scenario Scenario(Input& input) {
  virtualhub::DeviceConfig hub = HubDevice();
  hub.port = *virtualhub::PortPath::Parse(input.Choice(kPorts));
  if (input.Flag()) hub.productText = input.Text();
  hub.usb = Node(input);
  hub.hid = Node(input);
  virtualhub::Scenario scenario{.devices = {hub}};
  scenario.rootHubs = {Node(input)};
  scenario.hubs[hub.port.Parent()] = Node(input);
  scenario.host.productName = input.Text();
  scenario.host.architecture =
      input.Flag() ? virtualhub::HostArchitecture::Arm64 : virtualhub::HostArchitecture::X64;
  return scenario;
}

/// The matchers, which no export tells everything of. A log line that does not fit ends the call.
void Match(Input& input, std::uint32_t usbNode) {
  const std::uint16_t first = input.Word(), second = input.Word();
  CHidDev dev;
  if (input.Flag()) dev.SetPosition(first % 8, second);
  if (input.Flag()) dev.AddVidPid(first, second);
  if (input.Flag()) dev.SetDevVidPid(first, second);
  try {
    dev.IsMatch(usbNode);
  } catch (const std::range_error&) {
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  Input input(data, size);
  Machine machine(Scenario(input));
  const std::uint32_t vid = input.Word();
  List(&vid, input.Word());
  for (const HidDevRecord& record : List()) {
    machine.handles.push_back(QZ_OpenHid(record.dwInst));
  }
  Match(input, machine.world.UsbInstance("hub"));
  return 0;
}
