// Reads the texts in which a Linux system describes itself.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "platform/platform.h"

namespace qzhid::platform {

/// The value of a key in an os-release file, without quotes and escapes.
std::optional<std::string> OsReleaseValue(std::string_view text, std::string_view key);

/// The numbers of a kernel release such as "6.1.0-56-amd64"; missing numbers are 0, and
/// the one after the first hyphen may have no value.
struct KernelRelease {
  std::uint32_t major = 0, minor = 0, build = 0;
  std::optional<std::uint32_t> updateRevision;
};
KernelRelease ParseKernelRelease(std::string_view text);

/// The architecture that the kernel calls by that name.
Architecture ParseMachine(std::string_view machine);

}  // namespace qzhid::platform
