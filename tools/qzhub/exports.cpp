#include "qzhub/exports.h"

#include <stdexcept>

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

virtualhub::Scenario LoadScenario(const std::string& file) {
  virtualhub::Scenario scenario;
  try {
    scenario = file.empty() ? virtualhub::DefaultScenario() : virtualhub::ReadScenarioFile(file);
  } catch (const virtualhub::ScenarioError& error) {
    throw std::runtime_error(file + ": " + error.what());
  }
  if (scenario.devices.empty()) throw std::runtime_error(file + ": the scenario has no devices");
  scenario.time = virtualhub::Clock::Mode::Real;
  return scenario;
}

}  // namespace qzhub
