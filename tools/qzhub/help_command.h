#pragma once

#include <string>

namespace CLI {
class App;
}

namespace qzhub {

/// Adds "help", which prints what a command, or the program, does.
void AddHelpCommand(CLI::App& app);

/// The command of that name. Throws CLI::ValidationError with the nearest name when there is none.
CLI::App& FindCommand(CLI::App& app, const std::string& name);

}  // namespace qzhub
