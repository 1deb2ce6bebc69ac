#include "qzhid/options.h"

#include <algorithm>
#include <iostream>

#include "qzhid/failure.h"
#include "qzhid/system.h"

namespace qzhid {

namespace {

constexpr const char* kHubMeaning = "instance, VID:PID, location or its end; default the only hub";

}  // namespace

CLI::Option* AddHub(CLI::App& command, const std::string& name, std::string& hub) {
  return command.add_option(name, hub, kHubMeaning);
}

CLI::Option* AddHubs(CLI::App& command, std::vector<std::string>& hubs) {
  return command.add_option("HUB", hubs, kHubMeaning);
}

void AddData(CLI::App& command, std::vector<std::string>& words, std::string& file) {
  CLI::Option* data = command.add_option("DATA", words, "bytes in hexadecimal, as in 01a0ff");
  command.add_option("--file", file, "take the bytes from this file, - for standard input")
      ->excludes(data);
}

void AddExamples(CLI::App& command, const std::vector<std::string>& examples) {
  std::string text = "Examples:";
  for (const std::string& example : examples) text += "\n  " + example;
  command.footer(text);
}

std::string Columns(const std::vector<std::pair<std::string, std::string>>& rows) {
  std::size_t width = 0;
  for (const auto& row : rows) width = std::max(width, row.first.size());
  std::string text;
  for (const auto& [name, value] : rows) {
    text += name;
    text.append(width + 2 - name.size(), ' ');
    text += value;
    text += '\n';
  }
  return text;
}

std::string TableCell(const std::string& text) {
  constexpr std::size_t kWidth = 12;
  return text + std::string(text.size() < kWidth ? kWidth - text.size() : 1, ' ');
}

std::string TableRow(const std::vector<std::string>& cells, const std::string& last) {
  std::string row;
  for (const std::string& cell : cells) row += TableCell(cell);
  return row + last + '\n';
}

void Confirm(const std::string& question, const std::string& hub) {
  if (!system::IsTerminal(system::Stream::Input)) {
    throw Failure(Exit::WrongUse, "there is no terminal to ask on", hub,
                  "add --yes to continue without being asked");
  }
  std::cerr << question + " [y/N] " << std::flush;  // in one piece, whatever is typed meanwhile
  std::string answer;
  std::getline(std::cin, answer);
  if (answer == "y" || answer == "Y" || answer == "yes") return;
  throw Failure(Exit::Failed, "not done because the answer was no", hub, "answer y, or add --yes");
}

}  // namespace qzhid
