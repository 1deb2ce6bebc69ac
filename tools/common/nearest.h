#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace tools {

/// The known word that a misspelt one most likely means; empty when none is similar.
std::string Nearest(std::string_view misspelt, const std::vector<std::string>& known);

}  // namespace tools
