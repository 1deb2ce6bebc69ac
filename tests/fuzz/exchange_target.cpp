// Report exchange with a device that declares any report lengths and answers anything.
#include "fuzz/export_calls.h"

using namespace qzhid::fuzz;

/// Meets each report as the next of the input's bytes says, over and over: it fails with that code,
/// or the answer is that byte throughout, after a pattern.
class AnyDevice {
 public:
  explicit AnyDevice(Input& input)
      : pattern_(input.Take(input.Byte())), fates_(input.Take(input.Byte())) {
    fates_.push_back(0);
  }

  virtualhub::Result Meet(virtualhub::MutableBytes answer) {
    const std::uint8_t fate = fates_[next_++ % fates_.size()];
    std::fill(answer.begin(), answer.end(), fate);
    std::copy_n(pattern_.begin(), std::min(answer.size(), pattern_.size()), answer.begin());
    if (fate < 0xF0) return {};
    if (fate == 0xFF) return {virtualhub::Error::Stall};
    return {virtualhub::Error::SystemCode, fate - 0xF0u};
  }

 private:
  Bytes pattern_, fates_;
  std::size_t next_ = 0;
};

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  Input input(data, size);
  virtualhub::Scenario scenario = HubScenario();
  virtualhub::DeviceConfig& hub = scenario.devices[0];
  const std::uint8_t kind = input.Byte();
  if ((kind & 1) != 0) hub.hub->reports.outputLength = input.Word();
  if ((kind & 2) != 0) hub.hub->reports.inputLength = input.Word();
  if ((kind & 4) != 0) hub.hid.deviceId = "HID\\VID_1234&PID_5678\\1";
  AnyDevice device(input);
  LibraryBench bench(scenario);
  bench.machine.SetFirmwareDouble({[&](ByteView) { return device.Meet({}); },
                                   [&](auto report) { return device.Meet(report); }});
  ExportCalls calls(bench, input);
  if ((kind & 8) != 0) calls.AddFault();
  bench.OpenAll();
  calls.Run(4);
  return 0;
}
