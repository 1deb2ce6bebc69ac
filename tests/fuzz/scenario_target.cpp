// Scenario files: refused with a place and a reason, or a machine that the library can run on.
#include "fuzz/machine.h"

using namespace qzhid::fuzz;

namespace {

constexpr std::size_t kMostFlash = 0x100000;  // bytes; more only takes time

void Run(virtualhub::Scenario scenario) {
  std::size_t flash = 0;
  for (const virtualhub::DeviceConfig& device : scenario.devices) {
    if (device.hub) flash += device.hub->bankSize + device.hub->bridgeFlash.size;
  }
  if (flash > kMostFlash) return;
  scenario.stateFolder.clear();
  scenario.time = virtualhub::Clock::Mode::Virtual;
  Machine machine(scenario);
  for (const HidDevRecord& record : List()) {
    machine.handles.push_back(QZ_OpenHid(record.dwInst));
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  virtualhub::Scenario scenario;
  try {
    scenario = virtualhub::ReadScenario({reinterpret_cast<const char*>(data), size}, "/nowhere");
  } catch (const virtualhub::ScenarioError& error) {
    Require(std::strlen(error.what()) > 0, "a refusal says why");
    return 0;
  }
  Run(scenario);
  return 0;
}
