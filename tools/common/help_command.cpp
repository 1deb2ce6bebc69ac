#include "common/help_command.h"

#include <CLI/CLI.hpp>
#include <iostream>
#include <memory>

#include "common/nearest.h"

namespace tools {

namespace {

std::string Joined(const std::vector<std::string>& words, const std::string& separator) {
  std::string text;
  for (const std::string& word : words) text += (text.empty() ? "" : separator) + word;
  return text;
}

CLI::App& FindChild(CLI::App& parent, const std::string& name) {
  std::vector<std::string> known;
  for (CLI::App* const command : parent.get_subcommands([](CLI::App*) { return true; })) {
    if (command->get_name() == name) return *command;
    if (!command->get_group().empty()) known.push_back(command->get_name());
  }
  const std::string nearest = Nearest(name, known);
  throw CLI::ValidationError("there is no command '" + name + "'; " +
                             (nearest.empty() ? "the commands are " + Joined(known, ", ")
                                              : "did you mean '" + nearest + "'?"));
}

void PrintHelp(CLI::App& app, const std::vector<std::string>& words) {
  const CLI::App& command = FindCommand(app, words);
  std::vector<std::string> names = words;
  names.insert(names.begin(), app.get_name());
  std::cout << app.get_formatter()->make_help(&command, Joined(names, " "),
                                              CLI::AppFormatMode::Normal);
}

}  // namespace

void AddHelpCommand(CLI::App& app, const std::string& example) {
  CLI::App* command = app.add_subcommand("help", "show what a command does, and its options");
  const auto words = std::make_shared<std::vector<std::string>>();
  command->add_option("COMMAND", *words, "the command; default the program as a whole");
  command->callback([&app, words] { PrintHelp(app, *words); });
  command->footer("Examples:\n  " + example);
}

CLI::App& FindCommand(CLI::App& app, const std::vector<std::string>& words) {
  CLI::App* command = &app;
  for (const std::string& word : words) command = &FindChild(*command, word);
  return *command;
}

}  // namespace tools
