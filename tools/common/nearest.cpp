#include "common/nearest.h"

#include <algorithm>
#include <numeric>
#include <utility>

namespace tools {

namespace {

// How many letters must be inserted, removed or replaced to make one word the other.
std::size_t Distance(std::string_view from, std::string_view to) {
  // Those from what has been seen of `from` to each beginning of `to`.
  std::vector<std::size_t> distances(to.size() + 1);
  std::iota(distances.begin(), distances.end(), std::size_t{0});
  for (const char letter : from) {
    std::size_t replaced = std::exchange(distances[0], distances[0] + 1);
    for (std::size_t i = 0; i < to.size(); ++i) {
      const std::size_t kept = replaced + (letter == to[i] ? 0 : 1);
      replaced = distances[i + 1];
      distances[i + 1] = std::min({kept, replaced + 1, distances[i] + 1});
    }
  }
  return distances.back();
}

}  // namespace

std::string Nearest(std::string_view misspelt, const std::vector<std::string>& known) {
  std::string nearest;
  std::size_t least = 0;
  for (const std::string& word : known) {
    const std::size_t distance = Distance(misspelt, word);
    const bool isSimilar = 2 * distance <= word.size();
    if (!isSimilar || (!nearest.empty() && distance >= least)) continue;
    nearest = word;
    least = distance;
  }
  return nearest;
}

}  // namespace tools
