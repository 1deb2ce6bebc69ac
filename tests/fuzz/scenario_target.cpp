// Scenario files: rejected with a place and a reason, or a machine that the library can run on.
#include "fuzz/library_bench.h"

using namespace qzhid::fuzz;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) try {
  constexpr std::size_t kMostFlash = 0x100000;  // bytes; more only takes time
  virtualhub::Scenario scenario =
      virtualhub::ReadScenario({reinterpret_cast<const char*>(data), size}, "/nowhere");
  std::size_t flash = 0;
  for (const auto& device : scenario.devices) flash += device.hub ? device.hub->bankSize : 0;
  if (flash > kMostFlash) return 0;
  scenario.stateFolder.clear();
  scenario.time = virtualhub::Clock::Mode::Virtual;
  LibraryBench(scenario).OpenAll();
  return 0;
} catch (const virtualhub::ScenarioError&) {
  return 0;
}
