// Virtual hubs from the command line.
#include <CLI/CLI.hpp>
#include <exception>
#include <iostream>

#include "common/help_command.h"
#include "common/process_start.h"
#include "qzhub/control_commands.h"
#include "qzhub/image_command.h"
#include "qzhub/kernel_commands.h"

namespace {

// Exit codes: 0 done, 1 could not be done, 2 called wrongly.
constexpr int kFailed = 1;
constexpr int kWrongUse = 2;

int Run(int argc, char** argv) {
  CLI::App app("Virtual USB hubs, and firmware images for them", "qzhub");
  app.set_version_flag("--version", "qzhub " QZHUB_VERSION);
  app.require_subcommand(1);
  qzhub::AddImageCommand(app);
  qzhub::AddServeCommand(app);
  qzhub::AddRedirectCommand(app);
  qzhub::AddAttachCommand(app);
  qzhub::AddControlCommands(app);
  tools::AddHelpCommand(app, "qzhub help serve");
  app.footer(
      "Examples:\n  qzhub image --out new.bin --version 2.10\n  qzhub help image\n\n"
      "Exit status: 0 done, or ended by a signal, 1 failed, 2 usage");
  try {
    if (argc > 1 && argv[1][0] != '-') tools::FindCommand(app, {argv[1]});
    app.parse(argc, argv);
  } catch (const CLI::Success& asked) {
    return app.exit(asked);
  } catch (const CLI::ParseError& error) {
    std::cerr << "qzhub: " << error.what() << "\nSee 'qzhub --help'.\n";
    return kWrongUse;
  }
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  tools::PrepareProcess();
  try {
    return Run(argc, argv);
  } catch (const std::exception& error) {
    std::cerr << "qzhub: " << error.what() << '\n';
    return kFailed;
  }
}
