#include "qzhub/exports.h"

namespace qzhub {

namespace {

constexpr std::uint32_t kBusNumber = 1;

}  // namespace

std::vector<Export> ExportsOf(const virtualhub::Scenario& scenario) {
  std::vector<Export> exports;
  for (const virtualhub::DeviceConfig& device : scenario.devices) {
    const auto number = static_cast<std::uint32_t>(exports.size() + 1);
    exports.push_back({device.name, {kBusNumber, number}});
  }
  return exports;
}

}  // namespace qzhub
