// A host for the command line: finds, shows and services hubs through the library.
#include <CLI/CLI.hpp>
#include <exception>
#include <iostream>
#include <memory>

#include "common/help_command.h"
#include "common/process_start.h"
#include "qzhid/commands.h"
#include "qzhid/host.h"
#include "qzhid/options.h"

namespace {

void AddGlobalOptions(CLI::App& app, qzhid::Options& options) {
  // Options take effect in this order. These say how it is reported that another one is wrong.
  app.add_flag("--json", options.isJson, "print the result as one JSON object");
  app.add_flag("-q,--quiet", options.isQuiet, "print errors only");
  app.add_flag("--no-color", options.isPlain, "no colours, no moving progress bar");
  app.add_flag("-v,--verbose", options.isVerbose, "show the last lines of the log after an error");
  CLI::Option* library =
      app.add_option("--library", options.chosenLibrary, "use the library in this file")
          ->option_text("FILE");
  app.add_flag("--virtual", options.isVirtual,
               "use the virtual library that comes with this program")
      ->excludes(library);
  CLI::Option* log = app.add_option("--log", options.log, "log to this file")->option_text("FILE");
  app.add_option("--log-level", options.logLevel, "0 everything (default) to 3 failures only")
      ->option_text("N")
      ->check(CLI::Range(0, 3))
      ->needs(log);
}

/// The help of a command also lists the options that all commands have.
class HelpFormatter : public CLI::Formatter {
 public:
  std::string make_footer(const CLI::App* app) const override {
    std::string footer = CLI::Formatter::make_footer(app);
    const CLI::App* root = app;
    while (root->get_parent() != nullptr) root = root->get_parent();
    if (root == app) return footer;
    const auto isCommon = [root](const CLI::Option* option) {
      return option->nonpositional() && option != root->get_help_ptr();
    };
    const std::string group = make_group("Common options", false, root->get_options(isCommon));
    return group.substr(1) + '\n' + footer;  // without the empty line before it
  }
};

// Why the words of a command line make no command.
std::string Reason(CLI::App& app, const CLI::ParseError& error) {
  const std::vector<std::string> words = app.remaining(true);
  const std::vector<CLI::App*> commands = app.get_subcommands();
  if (words.empty() || words.front().starts_with('-')) return error.what();
  CLI::App& last = commands.empty() ? app : *commands.front();
  if (last.get_subcommands([](CLI::App*) { return true; }).empty()) return error.what();
  try {
    tools::FindCommand(last, {words.front()});
    return error.what();
  } catch (const CLI::ValidationError& unknown) {
    return unknown.what();
  }
}

int Run(int argc, char** argv, qzhid::Host& host) {
  CLI::App app("Finds, shows and services USB hubs", "qzhid");
  app.set_version_flag("--version", "qzhid " QZHID_VERSION);
  app.formatter(std::make_shared<HelpFormatter>());
  app.require_subcommand(1);
  app.fallthrough();
  app.allow_windows_style_options(false);  // "/folder/file" is a path on every system
  AddGlobalOptions(app, host.Settings());
  qzhid::AddListCommand(app, host);
  qzhid::AddInfoCommand(app, host);
  qzhid::AddImageCommand(app, host);
  qzhid::AddUpdateCommand(app, host);
  qzhid::AddRecoverCommand(app, host);
  qzhid::AddStationCommand(app, host);
  qzhid::AddGpioCommand(app, host);
  qzhid::AddI2cCommand(app, host);
  qzhid::AddFlashCommand(app, host);
  qzhid::AddDoctorCommand(app, host);
  qzhid::AddExplainCommand(app, host);
  qzhid::AddWorkerCommand(app, host);
  tools::AddHelpCommand(app, "qzhid help gpio get");
  qzhid::AddExamples(app, {"qzhid list", "qzhid update --image new.bin", "qzhid info --virtual"});
  app.footer(app.get_footer() +
             "\n\nExit status: 0 done, 1 failed, 2 usage, 3 no such hub, 4 permission, "
             "5 refused, 6 hub lost, 7 hub in its loader");
  try {
    app.parse(argc, argv);
  } catch (const CLI::Success& asked) {
    return app.exit(asked);
  } catch (const CLI::ParseError& error) {
    host.Report(
        qzhid::Failure(qzhid::Exit::WrongUse, Reason(app, error), "", "see 'qzhid --help'"));
  }
  return host.Status();
}

}  // namespace

int main(int argc, char** argv) {
  tools::PrepareProcess();
  qzhid::Host host;
  try {
    return Run(argc, argv, host);
  } catch (const qzhid::Failure& failure) {
    host.Report(failure);
  } catch (const std::exception& error) {
    host.Report(qzhid::Failure(qzhid::Exit::Failed, error.what(), "", "repeat the command"));
  }
  return host.Status();
}
