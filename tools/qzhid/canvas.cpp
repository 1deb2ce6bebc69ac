#include "qzhid/canvas.h"

#include <algorithm>
#include <array>

#include "qzhid/terminal_text.h"

namespace qzhid {

namespace {

// In the order of the inks. Black on green and white on red can also be told apart by lightness.
constexpr std::array kSequences{
    "",         "\x1b[1m",     "\x1b[2m",      "\x1b[30;42m", "\x1b[1;97;41m",
    "\x1b[36m", "\x1b[30;43m", "\x1b[1;97;45m"};

// What replaces the characters that the tiles are drawn with.
constexpr std::u32string_view kDrawn = U"█▀▄░─│┌┐└┘√×→…○■►≡";
constexpr std::string_view kInAscii = "#\"_.-|++++*x>~o#>=";
static_assert(kDrawn.size() == kInAscii.size());

std::string InAscii(std::u32string_view text) {
  std::string ascii;
  for (const char32_t character : text) {
    const std::size_t known = kDrawn.find(character);
    const char shown = known != std::u32string_view::npos ? kInAscii[known] : '?';
    ascii.append(ColumnsOf(character), character < 0x80 ? static_cast<char>(character) : shown);
  }
  return ascii;
}

}  // namespace

Canvas::Canvas(std::size_t columns, std::size_t lines)
    : cells_(lines, std::vector<Cell>(columns)) {}

void Canvas::Fill(const Area& area, Ink ink) {
  for (std::size_t line = area.line; line < area.line + area.lines; ++line) {
    Put(line, area.column, std::u32string(area.columns, U' '), ink);
  }
}

void Canvas::Put(std::size_t line, std::size_t column, std::u32string_view text, Ink ink) {
  if (line >= cells_.size()) return;
  std::vector<Cell>& cells = cells_[line];
  std::size_t last = cells.size();  // the cell that marks belong to
  for (const char32_t character : text) {
    const std::size_t width = ColumnsOf(character);
    if (width == 0) {
      if (last < cells.size()) cells[last].text += character;
      continue;
    }
    if (column + width > cells.size()) return;
    last = column;
    cells[column++] = {std::u32string(1, character), ink};
    if (width == 2) cells[column++] = {{}, ink};
  }
}

std::vector<std::string> Canvas::Lines(const TerminalAbilities& terminal) const {
  std::vector<std::string> lines;
  for (const auto& cells : cells_) lines.push_back(LineOf(cells, terminal));
  return lines;
}

std::string Canvas::LineOf(const std::vector<Cell>& cells, const TerminalAbilities& terminal) {
  const auto isBlank = [&](const Cell& cell) {
    return cell.text == U" " && (cell.ink == Ink::Plain || !terminal.isColourful);
  };
  const auto end = std::find_if_not(cells.rbegin(), cells.rend(), isBlank).base();
  std::string line;
  Ink ink = Ink::Plain;
  for (auto cell = cells.begin(); cell != end; ++cell) {
    if (terminal.isColourful && cell->ink != ink) {
      if (ink != Ink::Plain) line += "\x1b[0m";
      line += kSequences[static_cast<std::size_t>(cell->ink)];
      ink = cell->ink;
    }
    line += terminal.hasUtf8 ? ToUtf8(cell->text) : InAscii(cell->text);
  }
  return ink != Ink::Plain ? line + "\x1b[0m" : line;
}

}  // namespace qzhid
