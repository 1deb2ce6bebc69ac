#include "qzhid/bundle/evidence.h"

#include <fcntl.h>
#include <pwd.h>
#include <sys/stat.h>
#include <sys/utsname.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <deque>
#include <filesystem>
#include <fstream>
#include <iterator>

#include "common/descriptor.h"
#include "qzhid/linux/udev_rules.h"
#include "qzhid/linux/usb_devices.h"
#include "qzhid/location.h"

namespace qzhid {

namespace {

namespace fs = std::filesystem;

constexpr const char* kUsbDevices = "/sys/bus/usb/devices";
constexpr std::size_t kMostKernelLines = 2000;

std::string ReadText(const fs::path& file) {
  std::ifstream stream(file, std::ios::binary);
  return {std::istreambuf_iterator<char>(stream), {}};
}

std::string SystemText() {
  utsname system{};
  uname(&system);
  return std::string(system.sysname) + " " + system.release + " " + system.version + " " +
         system.machine + "\n\n" + ReadText("/etc/os-release");
}

/// The attributes of a USB device or interface that say what it is, and its driver.
std::string DeviceText(const fs::path& device) {
  constexpr std::array kAttributes{"idVendor",        "idProduct",    "bcdDevice", "manufacturer",
                                   "product",         "serial",       "speed",     "maxchild",
                                   "bDeviceClass",    "authorized",   "devnum",    "removable",
                                   "bInterfaceClass", "bNumEndpoints"};
  std::string text = device.filename().string() + '\n';
  for (const char* name : kAttributes) {
    const std::string value = FirstLine(device / name);
    if (!value.empty()) text += std::string("  ") + name + " " + value + '\n';
  }
  std::error_code error;
  const fs::path driver = fs::read_symlink(device / "driver", error);
  return error ? text : text + "  driver " + driver.filename().string() + '\n';
}

std::string NodeText(const fs::path& node) {
  const std::string file = "/dev/" + node.filename().string();
  struct stat facts {};
  std::array<char, 64> rights{};
  if (stat(file.c_str(), &facts) == 0) {
    std::snprintf(rights.data(), rights.size(), "mode %o, owner %u, group %u",
                  facts.st_mode & 07777u, facts.st_uid, facts.st_gid);
  }
  const bool isOpenable = access(file.c_str(), R_OK | W_OK) == 0;
  return file + ": " + rights.data() + (isOpenable ? ", can be opened\n" : ", cannot be opened\n") +
         ReadText(node / "device" / "uevent") + '\n';
}

std::string TopologyText() {
  std::string text;
  for (const fs::path& device : Entries(kUsbDevices)) text += DeviceText(device);
  text += "\nHID nodes\n\n";
  for (const fs::path& node : Entries("/sys/class/hidraw")) text += NodeText(node);
  return text + "quirks of usbhid: " + FirstLine("/sys/module/usbhid/parameters/quirks") + '\n';
}

/// The rules that concern hubs. A file of a folder hides those of its name in the folders after it.
std::string RulesText() {
  std::string text;
  std::vector<std::string> seen;
  for (const char* folder : kRuleFolders) {
    for (const fs::path& file : Entries(folder)) {
      const std::string name = file.filename().string();
      if (std::find(seen.begin(), seen.end(), name) != seen.end()) continue;
      seen.push_back(name);
      const std::string rules = ReadText(file);
      const bool isAboutHubs = Upper(rules).find("2E7C") != std::string::npos ||
                               rules.find("hidraw") != std::string::npos;
      if (isAboutHubs) text += "# " + file.string() + "\n" + rules + '\n';
    }
  }
  return text.empty() ? "no rule names the vendor of hubs or hidraw\n" : text;
}

bool IsAboutUsb(const std::string& record) {
  constexpr std::array kSources{"USB", "HID", "HUB ", "XHCI", "EHCI", "VHCI"};
  const std::string text = Upper(record.substr(std::min(record.find(';'), record.size() - 1) + 1));
  return text.find("2E7C") != std::string::npos || text.find("HIDRAW") != std::string::npos ||
         std::any_of(kSources.begin(), kSources.end(),
                     [&text](const char* source) { return text.starts_with(source); });
}

/// The kernel's messages about USB. Each read gives one, as "priority,number,time,flags;text".
std::string KernelText() {
  const tools::Descriptor file(open("/dev/kmsg", O_RDONLY | O_NONBLOCK | O_CLOEXEC));
  if (!file) return std::string("cannot be read: ") + std::strerror(errno) + '\n';
  std::deque<std::string> lines;
  std::array<char, 8192> record{};
  for (;;) {
    const ssize_t length = read(file.get(), record.data(), record.size());
    if (length < 0 && (errno == EPIPE || errno == EINTR)) continue;  // some were overwritten
    if (length <= 0) break;
    const std::string line(record.data(), static_cast<std::size_t>(length));
    if (!IsAboutUsb(line)) continue;
    lines.push_back(line);
    if (lines.size() > kMostKernelLines) lines.pop_front();
  }
  std::string text;
  for (const std::string& line : lines) text += line;
  return text.empty() ? "no messages about USB\n" : text;
}

void AddEnvironment(std::vector<std::string>& list, const char* name) {
  const char* const value = std::getenv(name);
  if (value != nullptr && *value != '\0') list.emplace_back(value);
}

}  // namespace

std::vector<ArchiveEntry> CollectEvidence() {
  return {{"system.txt", SystemText()},
          {"topology.txt", TopologyText()},
          {"udev-rules.txt", RulesText()},
          {"kernel.txt", KernelText()}};
}

PrivateNames CollectPrivateNames() {
  PrivateNames names;
  AddEnvironment(names.users, "SUDO_USER");
  AddEnvironment(names.users, "USER");
  AddEnvironment(names.homes, "HOME");
  if (const passwd* const user = getpwuid(getuid()); user != nullptr) {
    names.users.emplace_back(user->pw_name);
    names.homes.emplace_back(user->pw_dir);
  }
  // Names that are no names: root has them on each computer.
  std::erase(names.users, "root");
  std::erase(names.homes, "/root");
  std::erase(names.homes, "/");
  std::array<char, 256> host{};
  if (gethostname(host.data(), host.size() - 1) == 0) names.hosts.emplace_back(host.data());
  std::erase(names.hosts, "localhost");
  for (const fs::path& device : Entries(kUsbDevices)) {
    const std::string serial = FirstLine(device / "serial");
    const bool isRootHub = device.filename().string().starts_with("usb");  // a PCI address
    if (!serial.empty() && !isRootHub) names.serials.push_back(serial);
  }
  return names;
}

}  // namespace qzhid
