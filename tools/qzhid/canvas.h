// What a terminal shows, drawn cell by cell before it is written.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace qzhid {

/// How a cell looks; without colours, all look the same.
enum class Ink { Plain, Strong, Faint, Pass, Fail, Work, Scan, Stop };

/// What a terminal can show.
struct TerminalAbilities {
  bool isColourful = false;
  bool hasUtf8 = false;  ///< otherwise only ASCII characters come to it
};

/// A part of the terminal.
struct Area {
  std::size_t line = 0, column = 0;
  std::size_t lines = 0, columns = 0;
};

class Canvas {
 public:
  Canvas(std::size_t columns, std::size_t lines);

  /// Empties a part and gives it its colour.
  void Fill(const Area& area, Ink ink);
  /// Writes a text that begins there; what is outside the canvas is not drawn.
  void Put(std::size_t line, std::size_t column, std::u32string_view text, Ink ink);

  /// The lines of the terminal, with its control sequences for colours.
  std::vector<std::string> Lines(const TerminalAbilities& terminal) const;

 private:
  struct Cell {
    std::u32string text = U" ";  ///< a character and its marks; empty after a wide one
    Ink ink = Ink::Plain;
  };

  static std::string LineOf(const std::vector<Cell>& cells, const TerminalAbilities& terminal);

  std::vector<std::vector<Cell>> cells_;
};

}  // namespace qzhid
