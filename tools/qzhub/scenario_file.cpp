#include "qzhub/scenario_file.h"

#include <stdexcept>

namespace qzhub {

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
