#include "platform/library_file.h"
#include "platform/windows/system.h"

namespace qzhid::platform {

Status SystemLibraryPath(std::string& path) {
  MEMORY_BASIC_INFORMATION region{};
  // Any address inside the library will do; this function's own is one.
  const auto* const code = reinterpret_cast<const void*>(&SystemLibraryPath);
  if (VirtualQuery(code, &region, sizeof(region)) == 0) return LastFailure();
  wchar_t name[MAX_PATH] = {};
  const DWORD units =
      GetModuleFileNameW(static_cast<HMODULE>(region.AllocationBase), name, MAX_PATH);
  if (units == 0) return LastFailure();
  if (units == MAX_PATH) return Status::Failure(ERROR_INSUFFICIENT_BUFFER);  // cut
  path = ToNarrow(std::wstring(name, units));
  return {};
}

}  // namespace qzhid::platform
