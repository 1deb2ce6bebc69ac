#include "platform/system/windows/system.h"

namespace qzhid::platform {

void DebugOutput(const std::wstring& text) { OutputDebugStringW(text.c_str()); }

}  // namespace qzhid::platform
