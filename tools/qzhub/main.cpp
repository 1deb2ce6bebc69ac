// Virtual hubs from the command line.
#include <CLI/CLI.hpp>
#include <exception>
#include <iostream>

#include "common/standard_streams.h"
#include "qzhub/image_command.h"
#include "qzhub/usbip_commands.h"

namespace {

// Exit codes: 0 done, 1 could not be done, 2 called wrongly.
constexpr int kFailed = 1;
constexpr int kWrongUse = 2;

int Run(int argc, char** argv) {
  CLI::App app("Virtual hubs from the command line", "qzhub");
  app.set_version_flag("--version", "qzhub " QZHUB_VERSION);
  app.require_subcommand(1);
  qzhub::AddImageCommand(app);
  qzhub::AddServeCommand(app);
  qzhub::AddAttachCommand(app);
  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& error) {
    return app.exit(error) == 0 ? 0 : kWrongUse;
  }
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  tools::OpenStandardStreams();
  try {
    return Run(argc, argv);
  } catch (const std::exception& error) {
    std::cerr << "qzhub: " << error.what() << '\n';
    return kFailed;
  }
}
