// Scenario files: refused with a place and a reason, or a machine that the library can run on.
#include "fuzz/library_bench.h"

using namespace qzhid::fuzz;

namespace {

constexpr std::size_t kMostFlash = 0x100000;  // bytes; more only takes time

void Run(virtualhub::Scenario scenario) {
  std::size_t flash = 0;
  for (const auto& device : scenario.devices) flash += device.hub ? device.hub->bankSize : 0;
  if (flash > kMostFlash) return;
  scenario.stateFolder.clear();
  scenario.time = virtualhub::Clock::Mode::Virtual;
  LibraryBench bench(scenario);
  for (const HidDevRecord& record : List()) bench.Open(record.dwInst);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  virtualhub::Scenario scenario;
  try {
    scenario = virtualhub::ReadScenario({reinterpret_cast<const char*>(data), size}, "/nowhere");
  } catch (const virtualhub::ScenarioError&) {
    return 0;
  }
  Run(scenario);
  return 0;
}
