// Kinds of options that several commands have.
#pragma once

#include <CLI/CLI.hpp>
#include <optional>
#include <string>
#include <vector>

namespace qzhid {

/// --hub, for the hub that a command works on.
CLI::Option* AddHub(CLI::App& command, std::optional<std::string>& hub);

/// --hub, for one or more hubs.
CLI::Option* AddHubs(CLI::App& command, std::vector<std::string>& hubs);

/// Bytes to write, as words in hexadecimal or in a file.
void AddData(CLI::App& command, std::vector<std::string>& words, std::string& file);

/// Examples after the command's help.
void AddExamples(CLI::App& command, const std::vector<std::string>& examples);

/// The text of a cell that may be empty.
std::string OrDash(const std::string& text);

/// Rows of equally many cells, in columns.
std::string Table(const std::vector<std::vector<std::string>>& rows);

/// Asks on the terminal and returns when the answer is yes. Throws Failure for any other answer,
/// and when there is no terminal to ask on; `hub` names the hub concerned.
void Confirm(const std::string& question, const std::string& hub);

}  // namespace qzhid
