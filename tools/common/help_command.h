// Help on commands, and on words that are none.
#pragma once

#include <string>
#include <vector>

namespace CLI {
class App;
}

namespace tools {

/// Adds "help", which prints what a command, or the program, does.
void AddHelpCommand(CLI::App& app, const std::string& example);

/// The command that the words name, such as {"gpio", "get"}; without words, the program itself.
/// Throws CLI::ValidationError with the nearest name when there is none.
CLI::App& FindCommand(CLI::App& app, const std::vector<std::string>& words);

}  // namespace tools
