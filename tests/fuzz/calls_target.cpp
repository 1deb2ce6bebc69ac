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
void Recover(LibraryBench& bench) {
  bench.machine.ClearFaults();
  bench.machine.SleepMs(5000);
  bench.machine.Plug("hub");
  bench.machine.SleepMs(5000);
  const auto records = List();
  Require(records.size() == 1, "a hub is listed again");
  bench.handles.push_back(QZ_OpenHid(records[0].dwInst));
  Require(bench.handles.back() != nullptr, "a hub is opened again");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  Input input(data, size);
  LibraryBench bench(MakeHub(input.Byte()));
  for (const HidDevRecord& record : List()) bench.Open(record.dwInst);
  ExportCalls(bench, input).Run(kMostCalls);
  Recover(bench);
  return 0;
}
