// What sysfs says about USB devices.
#pragma once

#include <filesystem>
#include <string>
#include <vector>

namespace qzhid {

/// What is in a folder, sorted by name; nothing when it cannot be read.
std::vector<std::filesystem::path> Entries(const std::filesystem::path& folder);

/// The first line of a file; empty when it cannot be read.
std::string FirstLine(const std::filesystem::path& file);

/// A device of the hubs' vendor that has a HID interface.
struct UsbDevice {
  std::filesystem::path folder;    ///< in /sys/devices
  std::string vid, pid;            ///< four hexadecimal digits in lower case
  std::vector<std::string> nodes;  ///< its device files: "/dev/hidraw0"
};

std::vector<UsbDevice> UsbDevices();

}  // namespace qzhid
