#include "qzhub/help_command.h"

#include <CLI/CLI.hpp>
#include <iostream>
#include <memory>

#include "common/nearest.h"

namespace qzhub {

namespace {

void PrintHelp(CLI::App& app, const std::string& name) {
  const CLI::App& shown = name.empty() ? app : FindCommand(app, name);
  const std::string parent = name.empty() ? "" : app.get_name() + " ";
  std::cout << app.get_formatter()->make_help(&shown, parent + shown.get_name(),
                                              CLI::AppFormatMode::Normal);
}

std::string Joined(const std::vector<std::string>& words) {
  std::string text;
  for (const std::string& word : words) text += (text.empty() ? "" : ", ") + word;
  return text;
}

}  // namespace

void AddHelpCommand(CLI::App& app) {
  CLI::App* command = app.add_subcommand("help", "show what a command does, and its options");
  const auto name = std::make_shared<std::string>();
  command->add_option("COMMAND", *name, "the command, default: the program as a whole");
  command->callback([&app, name] { PrintHelp(app, *name); });
  command->footer("Examples:\n  qzhub help serve");
}

CLI::App& FindCommand(CLI::App& app, const std::string& name) {
  std::vector<std::string> known;
  for (CLI::App* const command : app.get_subcommands([](CLI::App*) { return true; })) {
    if (command->get_name() == name) return *command;
    known.push_back(command->get_name());
  }
  const std::string nearest = tools::Nearest(name, known);
  throw CLI::ValidationError(
      "there is no command '" + name + "'; " +
      (nearest.empty() ? "the commands are " + Joined(known) : "did you mean '" + nearest + "'?"));
}

}  // namespace qzhub
