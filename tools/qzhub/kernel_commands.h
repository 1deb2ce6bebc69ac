#pragma once

namespace CLI {
class App;
}

namespace qzhub {

// The commands that give virtual devices to a kernel; systems without Linux's sockets and virtual
// USB host controller do not have them. When they fail they throw std::runtime_error with a text
// for the user.

/// Adds "serve", which offers the devices of a scenario over USB/IP until SIGINT or SIGTERM.
void AddServeCommand(CLI::App& app);

/// Adds "redirect", which plugs the devices of a scenario into QEMU guests until SIGINT or SIGTERM.
void AddRedirectCommand(CLI::App& app);

/// Adds "attach", which plugs the devices of a scenario into this computer's kernel and keeps them
/// there until SIGINT or SIGTERM.
void AddAttachCommand(CLI::App& app);

}  // namespace qzhub
