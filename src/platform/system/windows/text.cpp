#include "platform/system/windows/system.h"

namespace qzhid::platform {

std::string ToNarrow(const std::wstring& text) {
  const int units = static_cast<int>(text.size());
  const int bytes =
      WideCharToMultiByte(CP_ACP, 0, text.data(), units, nullptr, 0, nullptr, nullptr);
  std::string narrow(bytes > 0 ? static_cast<std::size_t>(bytes) : 0, '\0');
  WideCharToMultiByte(CP_ACP, 0, text.data(), units, narrow.data(), bytes, nullptr, nullptr);
  return narrow;
}

char PathSeparator() { return '\\'; }

}  // namespace qzhid::platform
