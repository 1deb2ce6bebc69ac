#pragma once

namespace CLI {
class App;
}

namespace qzhub {

/// Adds "attach", which plugs the devices of a scenario into this machine's kernel and keeps them
/// there until SIGINT or SIGTERM. What goes wrong is thrown as std::runtime_error with a text for
/// the user.
void AddAttachCommand(CLI::App& app);

}  // namespace qzhub
