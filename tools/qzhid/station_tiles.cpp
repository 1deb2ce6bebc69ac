#include "qzhid/station_tiles.h"

#include <algorithm>
#include <array>
#include <optional>

#include "qzhid/big_letters.h"
#include "qzhid/terminal_text.h"
#include "qzhid/tile_text.h"

namespace qzhid {

namespace {

constexpr std::size_t kWordLetters = 4;    // of "PASS"
constexpr std::size_t kFrame = 2;          // lines that a frame takes
constexpr std::size_t kSides = 4;          // columns that it takes, with blanks
constexpr std::size_t kTextLines = 2;      // below the large word
constexpr std::size_t kLeastColumns = 16;  // for a frame, or to be readable at all
constexpr std::size_t kFooterLines = 2;

// In the order of TileKind. All of them are also in the fonts of old terminals.
constexpr std::u32string_view kSymbols = U"○■≡►√×";
constexpr std::array kInks{Ink::Faint, Ink::Stop, Ink::Scan, Ink::Work, Ink::Pass, Ink::Fail};

// How the bays share the terminal.
struct Grid {
  std::size_t across = 1, down = 1;
  std::size_t columns = 0, lines = 0;  // of a tile
  std::optional<LetterSize> letters;   // none: the word is only in the frame

  bool IsFramed() const { return lines > kFrame && columns >= kLeastColumns; }
};

std::optional<LetterSize> LargestLetters(std::size_t columns, std::size_t lines) {
  std::optional<LetterSize> largest;
  for (LetterSize size = 0; ColumnsOfLetters(kWordLetters, size) + kSides <= columns &&
                            LinesOfLetters(size) + kTextLines + kFrame <= lines;
       ++size) {
    largest = size;
  }
  return largest;
}

// The grid with the largest letters; among those, the one whose tiles have the best shape.
Grid ChooseGrid(std::size_t bays, std::size_t columns, std::size_t lines) {
  constexpr std::size_t kLineHeight = 3;  // a tile looks best at so many times as wide as high
  Grid best;
  std::array<std::size_t, 3> bestScore{};
  for (std::size_t across = 1; across <= std::max<std::size_t>(bays, 1); ++across) {
    Grid grid;
    grid.across = across;
    grid.down = (std::max<std::size_t>(bays, 1) + across - 1) / across;
    grid.columns = columns / across;
    grid.lines = lines / grid.down;
    grid.letters = LargestLetters(grid.columns, grid.lines);
    const std::size_t ease = grid.IsFramed() ? 2 : grid.columns >= kLeastColumns ? 1 : 0;
    const std::array score{grid.letters ? *grid.letters + 1 : 0, ease,
                           std::min(grid.columns, grid.lines * kLineHeight)};
    if (across == 1 || score > bestScore) {
      best = grid;
      bestScore = score;
    }
  }
  return best;
}

std::u32string Symbol(const TileText& text) {
  return {kSymbols[static_cast<std::size_t>(text.kind)], U' '};
}

// Draws a text in the middle of an area's line.
void PutCentred(Canvas& canvas, const Area& area, std::size_t line, std::u32string_view text,
                Ink ink) {
  const std::u32string cut = CutToColumns(text, area.columns);
  canvas.Put(line, area.column + (area.columns - ColumnsOf(cut)) / 2, cut, ink);
}

class TileDrawing {
 public:
  TileDrawing(Canvas& canvas, const BayTile& bay, bool isStopped)
      : canvas_(canvas),
        bay_(bay),
        text_(TextOf(bay, isStopped)),
        ink_(kInks[static_cast<std::size_t>(text_.kind)]) {}

  void DrawFramed(const Area& area, std::optional<LetterSize> letters) {
    canvas_.Fill(area, ink_);
    DrawFrame(area);
    const Area inside{area.line + 1, area.column + 2, area.lines - kFrame, area.columns - kSides};
    if (text_.kind == TileKind::Fail) letters = LettersBeside(inside, letters);
    const std::size_t wordLines = letters ? LinesOfLetters(*letters) : 0;
    const std::vector<std::u32string> texts = Texts(inside, inside.lines - wordLines);
    std::size_t line = inside.line + (inside.lines - wordLines - texts.size()) / 2;
    if (letters) {
      for (const std::u32string& part : BigLetters(text_.large, *letters)) {
        PutCentred(canvas_, inside, line++, part, ink_);
      }
    }
    for (const std::u32string& part : texts) PutCentred(canvas_, inside, line++, part, ink_);
  }

  // Without a frame: the name and the word, and on as many lines as there are what is to be said.
  void DrawPlain(const Area& area) {
    canvas_.Fill(area, ink_);
    const std::size_t columns = area.columns - 1;  // one stays free between two tiles
    const std::u32string word = U' ' + Symbol(text_) + ShownCharacters(text_.large);
    const std::size_t room = columns > word.size() ? columns - word.size() : 0;
    std::u32string head = CutBeginning(ShownCharacters(TitleOf(bay_)), room) + word;
    if (area.lines == 1) {
      for (const std::u32string& text : Says()) head += U"  " + text;
    }
    canvas_.Put(area.line, area.column, CutToColumns(head, columns), ink_);
    std::size_t line = area.line + 1;
    for (const std::u32string& text : Texts({0, 0, 0, columns}, area.lines - 1)) {
      canvas_.Put(line++, area.column, text, ink_);
    }
  }

 private:
  void DrawFrame(const Area& area) {
    const std::size_t last = area.line + area.lines - 1;
    const std::u32string edge(area.columns - 2, U'─');
    canvas_.Put(area.line, area.column, U'┌' + edge + U'┐', ink_);
    for (std::size_t line = area.line + 1; line < last; ++line) {
      canvas_.Put(line, area.column, U"│", ink_);
      canvas_.Put(line, area.column + area.columns - 1, U"│", ink_);
    }
    canvas_.Put(last, area.column, U'└' + edge + U'┘', ink_);
    const std::u32string word = U' ' + Symbol(text_) + ShownCharacters(text_.word) + U' ';
    const std::size_t room = area.columns - kSides;
    PutInEdge(area.line, area.column, TitleOf(bay_), room - word.size() + 1);  // they share a blank
    canvas_.Put(area.line, area.column + area.columns - 2 - word.size(), word, ink_);
    PutInEdge(last, area.column, bay_.label, room);
  }

  void PutInEdge(std::size_t line, std::size_t column, const std::string& text, std::size_t room) {
    constexpr std::size_t kBlanks = 2;
    if (text.empty()) return;
    const std::u32string cut = CutBeginning(ShownCharacters(text), room - kBlanks);
    canvas_.Put(line, column + 2, U' ' + cut + U' ', ink_);
  }

  // What the tile says besides its word, the most important first.
  std::vector<std::u32string> Says() const {
    std::vector<std::u32string> says;
    for (const std::string& text : {text_.what, text_.next, TimeLeft(bay_)}) {
      if (!text.empty()) says.push_back(ShownCharacters(text));
    }
    return says;
  }

  // The same wrapped; each text keeps a line, and the first ones get what is left.
  std::vector<std::u32string> Texts(const Area& area, std::size_t lines) const {
    std::vector<std::u32string> texts;
    if (text_.kind == TileKind::Work && bay_.percent >= 0 && lines > 1) {
      texts.push_back(Bar(area.columns));
    }
    const std::vector<std::u32string> says = Says();
    for (std::size_t i = 0; i < says.size() && texts.size() < lines; ++i) {
      const std::size_t kept = std::min(says.size() - i - 1, lines - texts.size() - 1);
      for (auto& part : WrapToColumns(says[i], area.columns, lines - texts.size() - kept)) {
        texts.push_back(std::move(part));
      }
    }
    return texts;
  }

  // The largest letters, up to that size, that leave room for the whole text.
  std::optional<LetterSize> LettersBeside(const Area& inside,
                                          std::optional<LetterSize> letters) const {
    const std::size_t needed = Texts(inside, inside.lines).size();
    while (letters && LinesOfLetters(*letters) + needed > inside.lines) {
      letters = *letters > 0 ? std::optional(*letters - 1) : std::nullopt;
    }
    return letters;
  }

  std::u32string Bar(std::size_t columns) const {
    constexpr std::size_t kWhole = 100;
    const std::size_t filled =
        columns * std::min(static_cast<std::size_t>(bay_.percent), kWhole) / kWhole;
    return std::u32string(filled, U'█') + std::u32string(columns - filled, U'░');
  }

  Canvas& canvas_;
  const BayTile& bay_;
  TileText text_;
  Ink ink_;
};

void DrawHeader(Canvas& canvas, const StationView& view, std::size_t columns) {
  const std::u32string totals = ShownCharacters(
      "passed " + std::to_string(view.passed) + "  failed " + std::to_string(view.failed) +
      "  yield " + YieldText(view) + "  " + RateText(view) + " an hour");
  const std::size_t room = columns > totals.size() + 2 ? columns - totals.size() - 2 : 0;
  const std::u32string title = ShownCharacters(view.image + ' ' + view.imageVersion);
  canvas.Put(0, 0, CutToColumns(title, room), Ink::Strong);
  const std::u32string cut = CutToColumns(totals, columns);
  canvas.Put(0, columns - ColumnsOf(cut), cut, Ink::Plain);
}

// The bays in their grid, or a line each on as many lines as there are.
void DrawBays(Canvas& canvas, const StationView& view, const Area& area) {
  Grid grid = ChooseGrid(view.bays.size(), area.columns, area.lines);
  std::size_t shown = view.bays.size();
  if (shown == 0) {
    PutCentred(canvas, area, area.line + area.lines / 2, U"plug a hub in", Ink::Strong);
  } else if (grid.lines == 0) {
    grid = {1, area.lines, area.columns, 1, std::nullopt};
    shown = area.lines - 1;
    const std::string more = "and " + std::to_string(view.bays.size() - shown) + " more bays";
    canvas.Put(area.line + shown, area.column, ShownCharacters(more), Ink::Strong);
  }
  for (std::size_t i = 0; i < shown; ++i) {
    const Area place{area.line + i / grid.across * grid.lines,
                     area.column + i % grid.across * grid.columns, grid.lines, grid.columns};
    TileDrawing tile(canvas, view.bays[i], !view.stopped.empty());
    if (grid.IsFramed()) {
      tile.DrawFramed(place, grid.letters);
    } else {
      tile.DrawPlain(place);
    }
  }
}

}  // namespace

std::vector<std::string> DrawTiles(const StationView& view, const std::string& remark,
                                   const system::TerminalSize& size,
                                   const TerminalAbilities& terminal) {
  // A terminal goes to the next line after its last column, so that stays free.
  const std::size_t columns = std::max<std::size_t>(size.columns, 2) - 1;
  const std::string said = view.stopped.empty() ? remark : "STOPPED: " + view.stopped;
  const std::vector<std::u32string> footer =
      WrapToColumns(ShownCharacters(said), columns, kFooterLines);
  const std::size_t taken = 1 + footer.size();
  Canvas canvas(columns, size.lines);
  DrawHeader(canvas, view, columns);
  if (size.lines > taken) DrawBays(canvas, view, {1, 0, size.lines - taken, columns});
  std::size_t line = size.lines - std::min(footer.size(), size.lines);
  const Ink ink = view.stopped.empty() ? Ink::Strong : Ink::Stop;
  for (const std::u32string& part : footer) canvas.Put(line++, 0, part, ink);
  return canvas.Lines(terminal);
}

}  // namespace qzhid
