// Letters of ids, in any locale.
#pragma once

#include <string>

namespace qzhid {

/// Turns a-z into A-Z and leaves everything else.
inline void UpperCase(std::string& text) {
  for (char& c : text) {
    if (c >= 'a' && c <= 'z') c = static_cast<char>(c - 'a' + 'A');
  }
}

}  // namespace qzhid
