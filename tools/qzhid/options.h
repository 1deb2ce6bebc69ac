// Kinds of options that several commands have.
#pragma once

#include <CLI/CLI.hpp>
#include <string>
#include <vector>

namespace qzhid {

/// The hub that a command works on, as an argument ("HUB") or an option ("--hub").
CLI::Option* AddHub(CLI::App& command, const std::string& name, std::string& hub);

/// The hubs that a command works on, as arguments.
CLI::Option* AddHubs(CLI::App& command, std::vector<std::string>& hubs);

/// Bytes to write, as words in hexadecimal or in a file.
void AddData(CLI::App& command, std::vector<std::string>& words, std::string& file);

/// Examples after the command's help.
void AddExamples(CLI::App& command, const std::vector<std::string>& examples);

/// Names before values, in columns.
std::string Columns(const std::vector<std::pair<std::string, std::string>>& rows);

/// A cell of a table, at least 12 characters wide and with a space after the text.
std::string TableCell(const std::string& text);

/// A line of a table: cells, and a last one of any length.
std::string TableRow(const std::vector<std::string>& cells, const std::string& last);

/// Asks on the terminal and returns when the answer is yes. Throws Failure for any other answer,
/// and when there is no terminal to ask on; `hub` names the hub concerned.
void Confirm(const std::string& question, const std::string& hub);

}  // namespace qzhid
