#include "platform/linux/kernel_double.h"

#include <gtest/gtest.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <cerrno>
#include <cstdarg>
#include <filesystem>
#include <fstream>

#include "platform/linux/sysfs_names.h"
#include "platform/linux/system_path.h"

namespace qzhid::platform::test {

namespace {

namespace fs = std::filesystem;

constexpr const char* kController = "/sys/devices/pci0000:00/0000:00:14.0";
const std::string kRootHub = std::string(kController) + "/usb1";

// Character devices that anybody can open stand for those of plugged devices, one after the other.
constexpr const char* kDeviceFiles[] = {"/dev/null", "/dev/zero", "/dev/full", "/dev/random",
                                        "/dev/urandom"};

KernelDouble* g_kernel = nullptr;

dev_t NumberOf(const char* file) {
  struct stat facts {};
  return stat(file, &facts) == 0 ? facts.st_rdev : 0;
}

void Link(const std::string& target, const fs::path& link) {
  fs::create_directories(link.parent_path());
  fs::remove(link);
  fs::create_symlink(target, link);
}

}  // namespace

KernelDouble::KernelDouble() {
  std::string name = ::testing::TempDir() + "kernel.XXXXXX";
  root_ = fs::canonical(mkdtemp(name.data())).string();
  g_SystemRoot = root_.c_str();
  g_kernel = this;
  fs::create_directories(Path("/sys/class/hidraw"));
  Write("/etc/os-release", "PRETTY_NAME=\"Test System\"\n");
  Describe(kRootHub, {{"idVendor", "1d6b"}, {"idProduct", "0002"}, {"speed", "480"}});
}

KernelDouble::~KernelDouble() {
  g_kernel = nullptr;
  g_SystemRoot = "";
  fs::remove_all(root_);
}

void KernelDouble::Write(const std::string& path, const std::string& text) const {
  const fs::path file = Path(path);
  fs::create_directories(file.parent_path());
  std::ofstream(file) << text;
}

void KernelDouble::Describe(const std::string& folder, Attributes attributes) {
  attributes.insert({{"bcdDevice", "0100"}, {"busnum", "1"}, {"bNumInterfaces", " 1"}});
  attributes.insert({"devnum", std::to_string(++plugged_)});
  for (const auto& [attribute, text] : attributes) Write(folder + '/' + attribute, text + '\n');
}

std::string KernelDouble::UsbFolder(const std::string& ports) {
  std::string folder = kRootHub;
  for (std::size_t end = 0; end != std::string::npos;) {
    end = ports.find('.', end + 1);
    folder += "/1-" + ports.substr(0, end);
  }
  return folder;
}

std::string KernelDouble::HidrawFolder(const std::string& ports, int number) {
  return UsbFolder(ports) + "/1-" + ports + ":1.0/0003:2E7C:0818.0001/hidraw/hidraw" +
         std::to_string(number);
}

void KernelDouble::Plug(const PluggedDevice& device) {
  const std::size_t dot = device.ports.rfind('.');
  const std::string hub = device.ports.substr(0, dot == std::string::npos ? 0 : dot);
  if (!hub.empty() && present_.count(hub) == 0) Plug({.ports = hub, .hidraw = -1});

  const unsigned file = plugged_ % static_cast<unsigned>(std::size(kDeviceFiles));
  present_[device.ports] = {device, file};
  const dev_t number = NumberOf(kDeviceFiles[file]);
  const std::string numberText =
      std::to_string(major(number)) + ':' + std::to_string(minor(number));
  Attributes attributes = device.attributes;
  attributes["dev"] = numberText;
  Describe(UsbFolder(device.ports), attributes);
  char name[32];
  std::snprintf(name, sizeof(name), "/dev/bus/usb/001/%03u", plugged_);
  Link(kDeviceFiles[file], Path(name));
  if (device.hidraw < 0) return;
  const std::string hidraw = HidrawFolder(device.ports, device.hidraw);
  const std::string fileName(LastPart(hidraw));
  Write(hidraw + "/dev", numberText + '\n');
  Link(Path(hidraw), Path("/sys/class/hidraw/" + fileName));
  Link(kDeviceFiles[file], Path("/dev/" + fileName));
}

// The folder is kept elsewhere, so that no other one gets its inode number.
void KernelDouble::Unplug(const std::string& ports) {
  const PluggedDevice& device = present_.at(ports).device;
  if (device.hidraw >= 0)
    fs::remove(Path("/sys/class/hidraw/hidraw" + std::to_string(device.hidraw)));
  const std::string gone = Path("/gone");
  fs::create_directories(gone);
  fs::rename(Path(UsbFolder(ports)),
             gone + '/' + std::to_string(std::distance(fs::directory_iterator(gone), {})));
  present_.erase(ports);
}

int KernelDouble::Answer(unsigned deviceFile, unsigned long request, void* argument) {
  for (const auto& [ports, present] : g_kernel->present_) {
    if (present.deviceFile == deviceFile && present.device.requests) {
      return present.device.requests(request, argument);
    }
  }
  const bool wasPlugged = deviceFile > 0 && deviceFile < g_kernel->plugged_;
  return wasPlugged ? -ENODEV : -ENOTTY;
}

int AnswerRequest(int file, unsigned long request, void* argument) {
  struct stat facts {};
  if (g_kernel != nullptr && fstat(file, &facts) == 0 && S_ISCHR(facts.st_mode)) {
    for (unsigned i = 0; i < std::size(kDeviceFiles); ++i) {
      if (NumberOf(kDeviceFiles[i]) == facts.st_rdev) {
        const int result = KernelDouble::Answer(i, request, argument);
        if (result < 0) errno = -result;
        return result < 0 ? -1 : result;
      }
    }
  }
  return static_cast<int>(syscall(SYS_ioctl, file, request, argument));
}

}  // namespace qzhid::platform::test

// Stands before the C library's.
extern "C" int ioctl(int file, unsigned long request, ...) noexcept {
  std::va_list arguments;
  va_start(arguments, request);
  void* const argument = va_arg(arguments, void*);
  va_end(arguments);
  return qzhid::platform::test::AnswerRequest(file, request, argument);
}
