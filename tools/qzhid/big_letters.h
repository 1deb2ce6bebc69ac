// Words in letters made of blocks, to be read from afar.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace qzhid {

/// The size of letters. At 0 a point of a letter is half a line high and one column wide; from 1 on
/// it is so many lines high and twice as many columns wide.
using LetterSize = std::size_t;

/// Room for a word of so many letters.
std::size_t ColumnsOfLetters(std::size_t letters, LetterSize size);
std::size_t LinesOfLetters(LetterSize size);

/// The lines of a word of the letters that the states of a bay need, digits and "%".
std::vector<std::u32string> BigLetters(std::string_view word, LetterSize size);

}  // namespace qzhid
