#include "platform/system/library_file.h"

#include <array>

#include "platform/system/windows/system.h"

namespace qzhid::platform {

namespace {

constexpr std::size_t kLongestPath = 0x8000;  // in UTF-16 units, terminator included

std::array<wchar_t, kLongestPath> g_Path;

Status ReadLibraryFile() noexcept {
  MEMORY_BASIC_INFORMATION region{};
  // Any address inside the library will do; this function's own is one.
  const auto* const code = reinterpret_cast<const void*>(&ReadLibraryFile);
  if (VirtualQuery(code, &region, sizeof(region)) == 0) return LastFailure();
  const DWORD units =
      GetModuleFileNameW(static_cast<HMODULE>(region.AllocationBase), g_Path.data(), kLongestPath);
  if (units == 0) return LastFailure();
  if (units == kLongestPath) return Status::Failure(ERROR_INSUFFICIENT_BUFFER);  // cut
  return {};
}

// Read while the library is being loaded: later the answer may wait for the loader.
const Status g_Read = ReadLibraryFile();

}  // namespace

Status SystemLibraryPath(std::string& path) {
  if (g_Read) path = ToNarrow(g_Path.data());
  return g_Read;
}

}  // namespace qzhid::platform
