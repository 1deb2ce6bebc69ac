#include "qzhid/terminal_screen.h"

#include <iostream>

namespace qzhid {

namespace {

// The second screen that terminals have for such programs, without a cursor.
constexpr const char* kEnter = "\x1b[?1049h\x1b[?25l";
constexpr const char* kLeave = "\x1b[?25h\x1b[?1049l";
constexpr const char* kClear = "\x1b[2J";

}  // namespace

TerminalScreen::TerminalScreen() { std::cerr << kEnter << std::flush; }

TerminalScreen::~TerminalScreen() { std::cerr << kLeave << std::flush; }

void TerminalScreen::Draw(const std::vector<std::string>& lines, const system::TerminalSize& size) {
  std::string text;
  if (size.columns != columns_ || lines.size() != drawn_.size()) {
    text = kClear;
    columns_ = size.columns;
    drawn_.assign(lines.size(), "");
  }
  for (std::size_t i = 0; i < lines.size(); ++i) {
    if (lines[i] == drawn_[i]) continue;
    text += "\x1b[" + std::to_string(i + 1) + ";1H" + lines[i] + "\x1b[K";
  }
  drawn_ = lines;
  std::cerr << text << std::flush;  // in one piece, so that nothing flickers
}

}  // namespace qzhid
