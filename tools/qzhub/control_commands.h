#pragma once

namespace CLI {
class App;
}

namespace qzhub {

/// Adds "plug", "unplug" and "power-loss", which add a line to the control file of a scenario. When
/// they fail they throw std::runtime_error with a text for the user.
void AddControlCommands(CLI::App& app);

}  // namespace qzhub
