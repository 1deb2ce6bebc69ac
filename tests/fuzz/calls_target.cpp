// Export calls with any arguments and handles, against a hub that fails and leaves at any moment.
#include "fuzz/export_calls.h"

using namespace qzhid::fuzz;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  Input input(data, size);
  virtualhub::Scenario scenario = HubScenario();
  virtualhub::HubConfig& hub = *scenario.devices[0].hub;
  const std::uint8_t kind = input.Byte();
  hub.bankSize = virtualhub::kIdentityEnd;
  if ((kind & 1) != 0) hub.image.image = std::make_shared<const virtualhub::Bytes>(kGoodImage);
  hub.dualBank = (kind & 2) != 0;
  hub.ispSupported = (kind & 4) != 0;
  LibraryBench bench(scenario);
  bench.OpenAll();
  ExportCalls(bench, input).Run(12);
  // Once nothing disturbs it any more, the hub can be listed and opened, whatever happened before.
  bench.machine.ClearFaults();
  bench.machine.SleepMs(5000);
  bench.machine.Plug("hub");
  bench.machine.SleepMs(5000);
  const auto records = List();
  Require(records.size() == 1, "a hub is listed again");
  bench.handles.push_back(QZ_OpenHid(records[0].dwInst));
  Require(bench.handles.back() != nullptr, "a hub is opened again");
  return 0;
}
