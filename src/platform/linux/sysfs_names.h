// What the names of folders in sysfs say about a device's place, and the texts made from them. Pure
// functions of texts, and of SystemPath.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace qzhid::platform {

/// An unsigned number that the whole text spells in that base, without sign or blanks.
std::optional<std::uint32_t> ToNumber(std::string_view text, int base);

/// N of "hidrawN".
std::optional<std::uint32_t> HidrawNumber(std::string_view name);

/// The last component of a path, and what is before it and its separator.
std::string_view LastPart(std::string_view path);
std::string_view FolderOf(std::string_view path);

/// The place of a USB device: its bus, and the ports from the root hub down to it. The root hub
/// itself has no ports.
struct UsbPlace {
  std::uint32_t bus = 0;
  std::vector<std::uint32_t> ports;
  std::string controllerFolder;
};

/// The place that the folder of a USB device names, such as ".../usb1/1-3/1-3.2" or ".../usb1".
std::optional<UsbPlace> ParseUsbFolder(std::string_view folder);

/// The place of a HID device in the tree.
struct HidPlace {
  std::uint32_t bus = 0, vid = 0, pid = 0;
  std::string name;                   ///< "0003:2E7C:0818.0001"
  std::string usbFolder;              ///< of its USB device; empty when it is on another bus
  std::string usbInterface;           ///< "1-3.2:1.0"
  std::uint32_t interfaceNumber = 0;  ///< bInterfaceNumber
};

/// The place that the folder of a hidraw device names, such as
/// ".../1-3.2/1-3.2:1.0/0003:2E7C:0818.0001/hidraw/hidraw0".
std::optional<HidPlace> ParseHidrawFolder(std::string_view folder);

/// The location path of a USB device, from the controller on:
/// "PCIROOT(0)#PCI(1400)#USBROOT(0)#USB(3)". `isSuperSpeed` distinguishes the two root hubs of
/// one controller.
std::string LocationPath(const UsbPlace& place, bool isSuperSpeed);

/// Upper-case hexadecimal, four digits.
std::string Hex4(std::uint32_t value);

}  // namespace qzhid::platform
