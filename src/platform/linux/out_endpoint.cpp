#include "platform/linux/out_endpoint.h"

#include <algorithm>

#include "platform/linux/sysfs.h"
#include "platform/linux/sysfs_names.h"
#include "platform/linux/system_path.h"

namespace qzhid::platform {

namespace {

constexpr const char* kQuirks = "/sys/module/usbhid/parameters/quirks";
constexpr std::uint32_t kNoReportsToEndpoint = 0x40000;  // HID_QUIRK_NO_OUTPUT_REPORTS_ON_INTR_EP
constexpr int kLastEndpoint = 15;

/// Takes the text up to the separator off the front and reads it: "0x" and digits, or digits.
std::uint32_t TakeHex(std::string_view& text, char separator) {
  std::string_view taken = text.substr(0, text.find(separator));
  text.remove_prefix(std::min(text.size(), taken.size() + 1));
  if (taken.starts_with("0x") || taken.starts_with("0X")) taken.remove_prefix(2);
  return ToNumber(taken, 16).value_or(0);
}

}  // namespace

bool HasInterruptOut(const std::string& interfaceFolder, Status& shortage) {
  for (int number = 1; number <= kLastEndpoint; ++number) {
    const std::string name = "/ep_0" + std::string(1, "0123456789abcdef"[number]);
    const CSysfsFolder endpoint(interfaceFolder + name, shortage);
    if (endpoint.Read("type") == "Interrupt" && endpoint.Read("direction") == "out") return true;
  }
  return false;
}

bool KeepsOffEndpoint(std::string_view quirks, std::uint32_t vid, std::uint32_t pid) {
  while (!quirks.empty()) {
    std::string_view entry = quirks.substr(0, quirks.find(','));
    quirks.remove_prefix(std::min(quirks.size(), entry.size() + 1));
    const std::uint32_t vendor = TakeHex(entry, ':'), product = TakeHex(entry, ':');
    const std::uint32_t flags = TakeHex(entry, ':');
    if (vendor == vid && product == pid && (flags & kNoReportsToEndpoint) != 0) return true;
  }
  return false;
}

std::string OutEndpointRemark(std::uint32_t vid, std::uint32_t pid) {
  std::string quirks = ReadTextFile(AT_FDCWD, SystemPath(kQuirks).c_str()).value_or("");
  while (!quirks.empty() && quirks.back() == '\n') quirks.pop_back();
  if (KeepsOffEndpoint(quirks, vid, pid)) return "";
  return "The kernel sends reports to the interrupt OUT endpoint; if requests fail, set "
         "usbhid.quirks=0x" +
         Hex4(vid) + ":0x" + Hex4(pid) + ":0x40000";
}

}  // namespace qzhid::platform
