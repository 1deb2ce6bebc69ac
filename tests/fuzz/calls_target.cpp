// Export calls with any arguments and handles, against a hub that fails and leaves at any moment.
#include "fuzz/export_calls.h"

using namespace qzhid::fuzz;

namespace {

constexpr int kMostCalls = 12;

virtualhub::DeviceConfig MakeHub(std::uint8_t kind) {
  virtualhub::DeviceConfig device = HubDevice();
  virtualhub::HubConfig& hub = *device.hub;
  hub.bankSize = virtualhub::kIdentityEnd;
  if ((kind & 1) != 0) hub.image.image = GoodImage();
  hub.dualBank = (kind & 2) != 0;
  hub.ispSupported = (kind & 4) != 0;
  return device;
}

/// Once nothing disturbs it any more, the hub can be listed and opened, whatever happened before.
void Recover(Machine& machine) {
  machine.world.ClearFaults();
  machine.world.SleepMs(5000);
  machine.world.Plug("hub");
  machine.world.SleepMs(5000);
  const auto records = List();
  Require(records.size() == 1, "a hub is listed again");
  machine.handles.push_back(QZ_OpenHid(records[0].dwInst));
  Require(machine.handles.back() != nullptr, "a hub is opened again");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  Input input(data, size);
  Machine machine(MakeHub(input.Byte()));
  for (const HidDevRecord& record : List()) machine.Open(record.dwInst);
  ExportCalls(machine, input).Run(kMostCalls);
  Recover(machine);
  return 0;
}
