#pragma once

namespace CLI {
class App;
}

namespace qzhub {

/// Adds the commands that give virtual hubs to a kernel, where the system has what they need:
/// "serve" and "attach" on Linux, none elsewhere.
void AddUsbipCommands(CLI::App& app);

}  // namespace qzhub
