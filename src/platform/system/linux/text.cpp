#include "platform/platform.h"
#include "platform/unicode.h"

namespace qzhid::platform {

std::string ToNarrow(const std::wstring& text) { return ToUtf8(text); }

char PathSeparator() { return '/'; }

}  // namespace qzhid::platform
