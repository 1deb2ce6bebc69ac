#include "platform/seam_bench.h"
#include "virtualhub/bus/current_machine.h"

namespace qzhid::platform::test {

SeamBench MakeSeamBench() {
  virtualhub::Machine& machine = virtualhub::InstallMachine(
      R"({"instance_numbers": "by_id", "devices": [{"name": "first", "port": "3.1.4"}, )" +
      kOtherDevices + "]}");
  const auto plug = [&machine] {
    machine.Plug("first");
    machine.SleepMs(200);
  };
  return {4, 3, true, [&machine] { machine.Unplug("first"); }, plug};
}

}  // namespace qzhid::platform::test
