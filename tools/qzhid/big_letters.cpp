#include "qzhid/big_letters.h"

#include <array>

namespace qzhid {

namespace {

constexpr std::size_t kPointsAcross = 3;
constexpr std::size_t kPointsDown = 5;

struct Letter {
  char name;
  std::array<std::string_view, kPointsDown> points;
};

constexpr std::array kLetters{
    Letter{'0', {"###", "# #", "# #", "# #", "###"}},
    Letter{'1', {" # ", "## ", " # ", " # ", "###"}},
    Letter{'2', {"###", "  #", "###", "#  ", "###"}},
    Letter{'3', {"###", "  #", "###", "  #", "###"}},
    Letter{'4', {"# #", "# #", "###", "  #", "  #"}},
    Letter{'5', {"###", "#  ", "###", "  #", "###"}},
    Letter{'6', {"###", "#  ", "###", "# #", "###"}},
    Letter{'7', {"###", "  #", " # ", " # ", " # "}},
    Letter{'8', {"###", "# #", "###", "# #", "###"}},
    Letter{'9', {"###", "# #", "###", "  #", "###"}},
    Letter{'%', {"# #", "  #", " # ", "#  ", "# #"}},
    Letter{'A', {"###", "# #", "###", "# #", "# #"}},
    Letter{'B', {"## ", "# #", "## ", "# #", "## "}},
    Letter{'C', {"###", "#  ", "#  ", "#  ", "###"}},
    Letter{'E', {"###", "#  ", "## ", "#  ", "###"}},
    Letter{'F', {"###", "#  ", "## ", "#  ", "#  "}},
    Letter{'I', {"###", " # ", " # ", " # ", "###"}},
    Letter{'L', {"#  ", "#  ", "#  ", "#  ", "###"}},
    Letter{'N', {"###", "# #", "# #", "# #", "# #"}},
    Letter{'O', {"###", "# #", "# #", "# #", "###"}},
    Letter{'P', {"###", "# #", "###", "#  ", "#  "}},
    Letter{'R', {"## ", "# #", "## ", "# #", "# #"}},
    Letter{'S', {"###", "#  ", "###", "  #", "###"}},
    Letter{'T', {"###", " # ", " # ", " # ", " # "}},
    Letter{'U', {"# #", "# #", "# #", "# #", "###"}},
    Letter{'Y', {"# #", "# #", " # ", " # ", " # "}},
};

// The points of a word on one of its lines, with a free point between two letters.
std::string PointsOf(std::string_view word, std::size_t down) {
  std::string points;
  for (const char name : word) {
    if (!points.empty()) points += ' ';
    for (const Letter& letter : kLetters) {
      if (letter.name == name) points += letter.points[down];
    }
  }
  return points;
}

std::u32string HalfLines(const std::string& upper, const std::string& lower) {
  std::u32string line;
  for (std::size_t i = 0; i < upper.size(); ++i) {
    const bool isUpper = upper[i] == '#';
    const bool isLower = i < lower.size() && lower[i] == '#';
    line += isUpper ? (isLower ? U'█' : U'▀') : (isLower ? U'▄' : U' ');
  }
  return line;
}

}  // namespace

std::size_t ColumnsOfLetters(std::size_t letters, LetterSize size) {
  const std::size_t points = letters * (kPointsAcross + 1) - 1;
  return size == 0 ? points : points * 2 * size;
}

std::size_t LinesOfLetters(LetterSize size) {
  return size == 0 ? (kPointsDown + 1) / 2 : kPointsDown * size;
}

std::vector<std::u32string> BigLetters(std::string_view word, LetterSize size) {
  std::vector<std::u32string> lines;
  for (std::size_t down = 0; down < kPointsDown; down += size == 0 ? 2 : 1) {
    const std::string points = PointsOf(word, down);
    if (size == 0) {
      lines.push_back(HalfLines(points, down + 1 < kPointsDown ? PointsOf(word, down + 1) : ""));
      continue;
    }
    std::u32string line;
    for (const char point : points) line.append(2 * size, point == '#' ? U'█' : U' ');
    lines.insert(lines.end(), size, line);
  }
  return lines;
}

}  // namespace qzhid
