// The bench of a virtual machine in which qzhub attaches the devices to the kernel.
#include <memory>

#include "platform/seam_bench.h"
#include "vm/guest.h"

namespace qzhid::platform::test {

SeamBench MakeSeamBench() {
  const auto scenario = [](const std::string& devices) {
    return R"({"devices": [)" + devices + "]}";
  };
  const auto others = std::make_shared<vm::Attached>(scenario(kOtherDevices), 2);
  const auto first = std::make_shared<std::unique_ptr<vm::Attached>>();
  const auto plug = [=] {
    *first = std::make_unique<vm::Attached>(scenario(R"({"name": "first", "port": "1"})"));
  };
  plug();
  return {(*first)->PortOf("first"), 1, false, [first, others] { first->reset(); }, plug};
}

}  // namespace qzhid::platform::test
