#pragma once

#include <filesystem>
#include <string>

#include "virtualhub/base/bytes.h"

namespace virtualhub {

/// Replaces a file as a whole: the bytes go to a temporary file beside it that is then renamed, so
/// that the path never names a part of them. On failure nothing is left behind, and the text says
/// why; it is empty on success.
std::string WriteFileAtomically(const std::filesystem::path& path, ByteView bytes);

}  // namespace virtualhub
