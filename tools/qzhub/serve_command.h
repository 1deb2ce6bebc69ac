#pragma once

namespace CLI {
class App;
}

namespace qzhub {

/// Adds "serve", which offers the devices of a scenario over USB/IP until SIGINT or SIGTERM. What
/// goes wrong is thrown as std::runtime_error with a text for the user.
void AddServeCommand(CLI::App& app);

}  // namespace qzhub
