// What the Linux backend sees of the kernel: a folder in place of /sys, /dev and /etc, and
// device files that answer requests.
#pragma once

#include <functional>
#include <map>
#include <string>

namespace qzhid::platform::test {

using Attributes = std::map<std::string, std::string>;

/// One USB device with one HID interface.
struct PluggedDevice {
  std::string ports;  ///< from the root hub on, such as "3.1"
  int hidraw = 0;     ///< the number of its hidraw device; negative: it has none
  Attributes attributes = {{"idVendor", "2e7c"}, {"idProduct", "0818"}};
  /// Carries out a request on its hidraw or USB device file; returns what ioctl does, or a negative
  /// error code.
  std::function<int(unsigned long request, void* argument)> requests = {};
};

/// The system of the process while it lives: a PCI controller with the root hub "usb1", and what is
/// plugged in. A device gets the next number on the bus.
class KernelDouble {
 public:
  KernelDouble();
  ~KernelDouble();
  KernelDouble(const KernelDouble&) = delete;
  KernelDouble& operator=(const KernelDouble&) = delete;

  /// Hubs that are missing on the way to the device are plugged in as well.
  void Plug(const PluggedDevice& device);
  void Unplug(const std::string& ports);

  /// Paths of the double's system, and where they are in truth.
  static std::string UsbFolder(const std::string& ports);
  static std::string HidrawFolder(const std::string& ports, int number);
  std::string Path(const std::string& path) const { return root_ + path; }

  /// Writes a file of the double's system.
  void Write(const std::string& path, const std::string& text) const;

 private:
  struct Present {
    PluggedDevice device;
    unsigned deviceFile = 0;  ///< an index into the files of the system that stand for it
  };
  static int Answer(unsigned deviceFile, unsigned long request, void* argument);
  friend int AnswerRequest(int file, unsigned long request, void* argument);

  void Describe(const std::string& folder, Attributes attributes);

  std::string root_;
  std::map<std::string, Present> present_;
  unsigned plugged_ = 0;  ///< devices so far, the root hub included
};

}  // namespace qzhid::platform::test
