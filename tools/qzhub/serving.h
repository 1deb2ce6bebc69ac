// What the commands have in common that serve the devices of a scenario over a network.
#pragma once

#include <functional>

#include "qzhub/server.h"
#include "virtualhub/scenario/scenario.h"

namespace CLI {
class App;
}

namespace qzhub {

struct ServingOptions {
  std::string listen, scenario, capture;
};

/// Adds the options; `listen` is the default of --listen, and `meaning` says what it is for.
void AddServingOptions(CLI::App& command, ServingOptions& options, const std::string& listen,
                       const std::string& meaning);

/// Ends the process in the middle of transfers that may take long: nobody waits for them.
[[noreturn]] void EndNow(virtualhub::Machine& machine, EventLog& log);

/// The devices of a scenario, to be served until SIGINT or SIGTERM.
class Serving {
 public:
  /// Throws std::runtime_error when the scenario is rejected or has no devices.
  explicit Serving(const ServingOptions& options);

  std::vector<Export>& exports() { return exports_; }

  /// Reports the exports, and serves what comes through the entrances that `open` makes.
  void Run(const std::function<std::vector<Entrance>(Offer&)>& open,
           std::chrono::milliseconds patience);

 private:
  virtualhub::Scenario scenario_;
  const std::string capture_;
  std::vector<Export> exports_;
};

}  // namespace qzhub
