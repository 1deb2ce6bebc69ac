#include "qzhid/options.h"

#include <algorithm>
#include <iostream>

#include "qzhid/failure.h"
#include "qzhid/selector.h"
#include "qzhid/system.h"
#include "qzhid/terminal_text.h"

namespace qzhid {

CLI::Option* AddHub(CLI::App& command, std::optional<std::string>& hub) {
  return command.add_option("--hub", hub, kSelectors)->option_text("HUB");
}

CLI::Option* AddHubs(CLI::App& command, std::vector<std::string>& hubs) {
  return command.add_option("--hub", hubs, kSelectors)
      ->option_text("HUB ...")
      ->allow_extra_args(false)
      ->take_all();
}

void AddData(CLI::App& command, std::vector<std::string>& words, std::string& file) {
  CLI::Option* data = command.add_option("DATA", words, "bytes in hexadecimal, as in 01a0ff");
  command.add_option("--file", file, "take the bytes from this file, - for standard input")
      ->option_text("FILE")
      ->excludes(data);
}

void AddExamples(CLI::App& command, const std::vector<std::string>& examples) {
  std::string text = "Examples:";
  for (const std::string& example : examples) text += "\n  " + example;
  command.footer(text);
}

std::string OrDash(const std::string& text) { return text.empty() ? "-" : text; }

std::string Table(const std::vector<std::vector<std::string>>& rows) {
  constexpr std::size_t kGap = 2;
  std::vector<std::size_t> widths(rows.front().size());
  const auto columns = [](const std::string& cell) { return ColumnsOf(ShownCharacters(cell)); };
  for (const auto& row : rows) {
    for (std::size_t i = 0; i < row.size(); ++i) widths[i] = std::max(widths[i], columns(row[i]));
  }
  std::string text;
  for (const auto& row : rows) {
    for (std::size_t i = 0; i + 1 < row.size(); ++i) {
      text += row[i];
      text.append(widths[i] + kGap - columns(row[i]), ' ');
    }
    text += row.back() + '\n';
  }
  return text;
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
  throw Failure(Exit::Failed, "Cancelled.", "", "");
}

}  // namespace qzhid
