// The kernel as the Linux backend sees it: a folder in place of /sys, /dev and /etc, and device
// files that answer requests.
#pragma once

#include <cerrno>
#include <functional>
#include <map>

#include "platform/seam_calls.h"
#include "support/temp_file.h"

namespace qzhid::platform::test {

using Attributes = std::map<std::string, std::string>;

/// The system of the process while it lives: a PCI controller with the root hub "usb1", and what is
/// plugged in. A device gets the next number on the bus.
class KernelDouble {
 public:
  KernelDouble();
  ~KernelDouble();
  KernelDouble(const KernelDouble&) = delete;
  KernelDouble& operator=(const KernelDouble&) = delete;

  /// Plugs a device in at the ports from the root hub on, such as "3.1", with one HID interface
  /// that has that hidraw number, or none if it is negative.
  void Plug(const std::string& ports, int hidraw = 0, Attributes attributes = {});
  void Unplug(const std::string& ports) const;

  /// Folders of the double's system, and where a path of that system really is.
  static std::string UsbFolder(const std::string& ports);
  static std::string HidrawFolder(const std::string& ports, int number);
  std::string Path(const std::string& path) const { return m_Root + path; }

  /// Writes a file of the double's system.
  void Write(const std::string& path, const std::string& text) const;

  /// Carries out the requests to hidraw and USB device files; returns what ioctl returns, or a
  /// negative error code.
  std::function<int(unsigned long request, void* argument)> answer;

 private:
  void Describe(const std::string& folder, Attributes attributes);

  const qzhid::test::ScratchFolder m_Folder;
  const std::string m_Root = std::filesystem::canonical(m_Folder.path).string();
  int m_nPlugged = 0;  // devices so far, the root hub included
};

}  // namespace qzhid::platform::test
