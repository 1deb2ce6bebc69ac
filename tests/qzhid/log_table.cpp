// Prints the tables of docs/logs.md.
#include <array>
#include <iostream>
#include <string>

#include "qzhid/explain/log_lines.h"

namespace {

using namespace qzhid;

constexpr std::array kTopics{"Sessions",
                             "Rejected and broken calls",
                             "Listing",
                             "Opening and closing",
                             "Finding hubs",
                             "Requests",
                             "What a hub runs",
                             "The image file",
                             "Updates",
                             "Versions and ids",
                             "I2C and the bridge",
                             "GPIO",
                             "Lines that no export writes"};
constexpr std::array kNatures{"", "harmless", "depends", "failure"};

/// The text as a cell shows it: without line ends, as code.
std::string Cell(std::string text) {
  std::erase(text, '\n');
  std::erase(text, '\r');
  const std::size_t first = text.find_first_not_of(' '), last = text.find_last_not_of(' ');
  text = first == std::string::npos ? "" : text.substr(first, last - first + 1);
  return text.empty() ? "(a line end)" : "`" + text + "`";
}

std::string Names(std::string names) {
  if (names == kNotInFiles) return "not in the file";
  for (std::size_t at = 0; (at = names.find(' ', at)) != std::string::npos; at += 6) {
    names.replace(at, 1, "`<br>`");
  }
  return "`" + names + "`";
}

}  // namespace

int main() {
  auto topic = static_cast<Topic>(-1);
  for (const LogLine& line : LogLines()) {
    if (line.topic != topic) {
      topic = line.topic;
      std::cout
          << "\n## " << kTopics[static_cast<std::size_t>(topic)]
          << "\n\n| level | name | text | | meaning | what to do |\n|---|---|---|---|---|---|\n";
    }
    std::cout << "| " << line.level << " | " << Names(line.names) << " | " << Cell(line.text)
              << " | " << kNatures[static_cast<std::size_t>(line.nature)] << " | " << line.meaning
              << " | " << line.advice << " |\n";
  }
  return 0;
}
