#pragma once

#include <filesystem>
#include <optional>

#include "virtualhub/base/bytes.h"

namespace virtualhub {

/// The contents of a file. No value when it cannot be read, is a folder, or has more than `most`
/// bytes, as files of devices have that never end.
std::optional<Bytes> ReadWholeFile(const std::filesystem::path& path, std::size_t most);

}  // namespace virtualhub
