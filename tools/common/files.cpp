#include "common/files.h"

#include <iostream>

namespace tools {

Bytes ReadFile(const std::string& path, std::size_t most) {
  return path == "-" ? virtualhub::ReadWholeStream(std::cin, most)
                     : virtualhub::ReadWholeFile(path, most);
}

void WriteFile(const std::string& path, ByteView bytes) { virtualhub::ReplaceFile(path, bytes); }

}  // namespace tools
