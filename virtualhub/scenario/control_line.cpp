#include "virtualhub/scenario/control_line.h"

#include <algorithm>
#include <charconv>
#include <string_view>
#include <vector>

#include "virtualhub/bus/port_path.h"

namespace virtualhub {

namespace {

// The words between blanks. A line that was written on Windows ends in a carriage return.
std::vector<std::string> WordsOf(std::string_view text) {
  constexpr std::string_view kBlanks = " \t\r";
  std::vector<std::string> words;
  for (;;) {
    text.remove_prefix(std::min(text.find_first_not_of(kBlanks), text.size()));
    if (text.empty()) return words;
    words.emplace_back(text.substr(0, text.find_first_of(kBlanks)));
    text.remove_prefix(words.back().size());
  }
}

ControlLine::Action ActionNamed(const std::string& word) {
  if (word == "plug") return ControlLine::Action::Plug;
  if (word == "unplug") return ControlLine::Action::Unplug;
  if (word == "power-loss") return ControlLine::Action::PowerLoss;
  throw ControlError("\"" + word + "\" is not one of plug, unplug, power-loss");
}

void ReadArgument(const std::string& word, ControlLine& line) {
  if (line.action == ControlLine::Action::Plug) {
    if (!PortPath::Parse(word)) throw ControlError("\"" + word + "\" is not a port");
    line.port = word;
    return;
  }
  const char* end = word.data() + word.size();
  const auto [stop, error] = std::from_chars(word.data(), end, line.returnMs);
  if (error != std::errc() || stop != end) {
    throw ControlError("\"" + word + "\" is not a number of milliseconds");
  }
}

}  // namespace

std::optional<ControlLine> ParseControlLine(const std::string& text) {
  const std::vector<std::string> words = WordsOf(text);
  if (words.empty()) return std::nullopt;
  ControlLine line{.action = ActionNamed(words[0])};
  if (words.size() < 2) throw ControlError("the name of a device is missing");
  line.device = words[1];
  const std::size_t most = line.action == ControlLine::Action::Unplug ? 2 : 3;
  if (words.size() > most) throw ControlError("\"" + words[most] + "\" is too much");
  if (words.size() == 3) ReadArgument(words[2], line);
  return line;
}

}  // namespace virtualhub
