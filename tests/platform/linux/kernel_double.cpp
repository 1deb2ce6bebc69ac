#include "platform/linux/kernel_double.h"

#include <sys/ioctl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <cerrno>
#include <cstdarg>

#include "platform/linux/system_path.h"

namespace qzhid::platform::test {

namespace {

namespace fs = std::filesystem;

const std::string kRootHub = "/sys/devices/pci0000:00/0000:00:14.0/usb1";

// Devices that anybody can open, in place of all hidraw and all USB device files.
constexpr const char *kHidrawFile = "/dev/null", *kUsbFile = "/dev/zero";
constexpr const char *kHidrawNumber = "1:3", *kUsbNumber = "1:5";

KernelDouble* g_kernel = nullptr;

void Link(const std::string& target, const fs::path& link) {
  fs::create_directories(link.parent_path());
  fs::remove(link);
  fs::create_symlink(target, link);
}

}  // namespace

KernelDouble::KernelDouble() {
  g_SystemRoot = m_Root.c_str();
  g_kernel = this;
  fs::create_directories(Path("/sys/class/hidraw"));
  Write("/etc/os-release", "PRETTY_NAME=\"Test System\"\n");
  Describe(kRootHub, {{"idVendor", "1d6b"}, {"idProduct", "0002"}, {"speed", "480"}});
}

KernelDouble::~KernelDouble() {
  g_kernel = nullptr;
  g_SystemRoot = "";
}

void KernelDouble::Write(const std::string& path, const std::string& text) const {
  fs::create_directories(fs::path(Path(path)).parent_path());
  qzhid::test::WriteText(Path(path), text);
}

void KernelDouble::Describe(const std::string& folder, Attributes attributes) {
  attributes.insert({{"idVendor", "2e7c"},
                     {"idProduct", "0818"},
                     {"bcdDevice", "0100"},
                     {"busnum", "1"},
                     {"devnum", std::to_string(++m_nPlugged)},
                     {"bNumInterfaces", " 1"},
                     {"dev", kUsbNumber}});
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

void KernelDouble::Plug(const std::string& ports, int hidraw, Attributes attributes) {
  Describe(UsbFolder(ports), std::move(attributes));
  const std::string number = std::to_string(m_nPlugged);
  Link(kUsbFile, Path("/dev/bus/usb/001/" + std::string(3 - number.size(), '0') + number));
  if (hidraw < 0) return;
  const std::string folder = HidrawFolder(ports, hidraw), name = fs::path(folder).filename();
  Write(folder + "/dev", kHidrawNumber);
  Link(Path(folder), Path("/sys/class/hidraw/" + name));
  Link(kHidrawFile, Path("/dev/" + name));
}

// The folder and its entry in the class are kept elsewhere, so that no others get their inode
// numbers. Device files lead nowhere then.
void KernelDouble::Unplug(const std::string& ports) const {
  const std::string gone = Path("/gone"), folder = Path(UsbFolder(ports));
  fs::create_directories(gone);
  const auto keep = [&](const std::string& path) {
    fs::rename(path, gone + '/' + std::to_string(std::distance(fs::directory_iterator(gone), {})));
  };
  for (const auto& entry : fs::directory_iterator(Path("/sys/class/hidraw"))) {
    const bool isLink = fs::is_symlink(entry.path());
    if (isLink && fs::read_symlink(entry.path()).string().starts_with(folder + '/')) {
      keep(entry.path());
    }
  }
  keep(folder);
}

}  // namespace qzhid::platform::test

// Takes precedence over the C library's.
extern "C" int ioctl(int file, unsigned long request, ...) noexcept {
  using namespace qzhid::platform::test;
  std::va_list arguments;
  va_start(arguments, request);
  void* const argument = va_arg(arguments, void*);
  va_end(arguments);
  const auto type = _IOC_TYPE(request);
  if (g_kernel == nullptr || (type != 'H' && type != 'U')) {
    return static_cast<int>(syscall(SYS_ioctl, file, request, argument));
  }
  struct stat facts {};
  fstat(file, &facts);
  const bool isOwn = facts.st_rdev == makedev(1, type == 'H' ? 3 : 5);
  const int result = isOwn ? g_kernel->answer(request, argument) : -ENOTTY;
  if (result < 0) errno = -result;
  return result < 0 ? -1 : result;
}
