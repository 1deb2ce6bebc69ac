#include "platform/linux/hid_path.h"

#include "platform/linux/sysfs_names.h"
#include "platform/unicode.h"

namespace qzhid::platform {

std::wstring HidPath(const std::string& deviceFile, DevInst node) {
  return ToWide(deviceFile + '#' + std::to_string(node));
}

bool ParseHidPath(const std::wstring& path, std::string& deviceFile, DevInst& node) {
  const std::string text = ToNarrow(path);
  const std::size_t mark = text.rfind('#');
  if (mark == std::string::npos) return false;
  const auto number = ToNumber(std::string_view(text).substr(mark + 1), 10);
  deviceFile = text.substr(0, mark);
  node = number.value_or(0);
  return node != 0;
}

}  // namespace qzhid::platform
