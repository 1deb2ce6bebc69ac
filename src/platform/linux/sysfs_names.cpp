#include "platform/linux/sysfs_names.h"

#include <algorithm>
#include <charconv>
#include <cstdio>

#include "platform/linux/system_path.h"

namespace qzhid::platform {

namespace {

constexpr std::size_t kMostPorts = 6;  // USB 2.0, 4.1.1: seven tiers, the root hub included
constexpr std::uint32_t kLastPort = 255;
constexpr std::uint32_t kUsbBus = 3;  // BUS_USB, as HID devices name it

/// Takes the text up to the separator off the front; all of it when there is none.
std::string_view Take(std::string_view& text, char separator) {
  const std::string_view taken = text.substr(0, text.find(separator));
  text.remove_prefix(std::min(text.size(), taken.size() + 1));
  return taken;
}

/// The name of the device that is `depth` ports away from the root hub, on the way to the place.
std::string DeviceName(const UsbPlace& place, std::size_t depth) {
  if (depth == 0) return "usb" + std::to_string(place.bus);
  std::string name = std::to_string(place.bus);
  for (std::size_t i = 0; i < depth; ++i) {
    name += (i == 0 ? '-' : '.') + std::to_string(place.ports[i]);
  }
  return name;
}

/// "1-3.2" or "usb1".
bool ParseDeviceName(std::string_view name, UsbPlace& place) {
  if (name.starts_with("usb")) {
    const auto bus = ToNumber(name.substr(3), 10);
    place.bus = bus.value_or(0);
    return bus.has_value();
  }
  const auto bus = ToNumber(Take(name, '-'), 10);
  if (!bus || name.empty()) return false;
  place.bus = *bus;
  while (!name.empty()) {
    const auto port = ToNumber(Take(name, '.'), 10);
    if (!port || *port == 0 || *port > kLastPort || place.ports.size() == kMostPorts) return false;
    place.ports.push_back(*port);
  }
  return true;
}

/// "0003:2E7C:0818.0001": bus type, vendor, product, and a number of its own.
bool ParseHidName(std::string_view name, HidPlace& place) {
  place.name = name;
  const auto bus = ToNumber(Take(name, ':'), 16);
  const auto vid = ToNumber(Take(name, ':'), 16);
  const auto pid = ToNumber(Take(name, '.'), 16);
  if (!bus || !vid || !pid || !ToNumber(name, 16) || (*vid | *pid) > 0xFFFF) return false;
  place.bus = *bus;
  place.vid = *vid;
  place.pid = *pid;
  return true;
}

/// Stores the folder if it is that of a USB interface, below its device's.
bool ParseInterfaceFolder(std::string_view folder, HidPlace& place) {
  const std::string_view name = LastPart(folder), device = FolderOf(folder);
  std::string_view number = name.substr(std::min(name.size(), name.find(':')));
  if (number.empty() || name.substr(0, name.find(':')) != LastPart(device)) return false;
  number.remove_prefix(1);
  const auto configuration = ToNumber(Take(number, '.'), 10), interface = ToNumber(number, 10);
  if (!configuration || !interface || !ParseUsbFolder(device)) return false;
  place.usbFolder = device;
  place.usbInterface = name;
  place.interfaceNumber = *interface;
  return true;
}

/// "pci0000:00", the root of a PCI domain.
std::optional<std::string> PciRootStep(std::string_view name) {
  if (!name.starts_with("pci")) return std::nullopt;
  name.remove_prefix(3);
  const auto domain = ToNumber(Take(name, ':'), 16), bus = ToNumber(name, 16);
  if (!domain || !bus || *domain > 0xFFFFF || *bus > 0xFF) return std::nullopt;
  char text[32];
  std::snprintf(text, sizeof(text), "PCIROOT(%X)", *domain << 8 | *bus);
  return text;
}

/// "0000:00:14.0": domain, bus, device and function.
std::optional<std::string> PciStep(std::string_view name) {
  const auto domain = ToNumber(Take(name, ':'), 16), bus = ToNumber(Take(name, ':'), 16);
  const auto device = ToNumber(Take(name, '.'), 16), function = ToNumber(name, 16);
  if (!domain || !bus || !device || !function || *device > 0x1F || *function > 7) {
    return std::nullopt;
  }
  char text[32];
  std::snprintf(text, sizeof(text), "PCI(%02X%02X)", *device, *function);
  return text;
}

/// "xhci-hcd.0.auto" without its number, which the kernel gives in the order in which drivers find
/// their devices.
std::string_view WithoutAutomaticNumber(std::string_view name) {
  constexpr std::string_view kMark = ".auto";
  if (!name.ends_with(kMark)) return name;
  const std::string_view numbered = name.substr(0, name.size() - kMark.size());
  const std::size_t dot = numbered.rfind('.');
  if (dot == std::string_view::npos || !ToNumber(numbered.substr(dot + 1), 10)) return name;
  return numbered.substr(0, dot);
}

/// One component of a controller's folder. Bus numbers of PCI bridges are omitted: they change.
std::string ControllerStep(std::string_view name) {
  if (auto step = PciRootStep(name)) return *step;
  if (auto step = PciStep(name)) return *step;
  std::string text(WithoutAutomaticNumber(name));
  const auto isNotation = [](char c) { return c == '#' || c == '(' || c == ')'; };
  std::replace_if(text.begin(), text.end(), isNotation, '_');
  return "DEV(" + text + ")";
}

}  // namespace

std::optional<std::uint32_t> ToNumber(std::string_view text, int base) {
  std::uint32_t number = 0;
  const char* const end = text.data() + text.size();
  const auto [stop, error] = std::from_chars(text.data(), end, number, base);
  if (error != std::errc() || stop != end) return std::nullopt;
  return number;
}

std::optional<std::uint32_t> HidrawNumber(std::string_view name) {
  constexpr std::string_view kPrefix = "hidraw";
  if (!name.starts_with(kPrefix)) return std::nullopt;
  return ToNumber(name.substr(kPrefix.size()), 10);
}

std::string_view LastPart(std::string_view path) { return path.substr(path.rfind('/') + 1); }

std::string_view FolderOf(std::string_view path) {
  const std::size_t separator = path.rfind('/');
  return path.substr(0, separator == std::string_view::npos ? 0 : separator);
}

std::optional<UsbPlace> ParseUsbFolder(std::string_view folder) {
  UsbPlace place;
  if (!ParseDeviceName(LastPart(folder), place)) return std::nullopt;
  for (std::size_t depth = place.ports.size();; --depth) {
    if (LastPart(folder) != DeviceName(place, depth)) return std::nullopt;
    folder = FolderOf(folder);
    if (depth == 0) break;
  }
  place.controllerFolder = folder;
  return place;
}

std::optional<HidPlace> ParseHidrawFolder(std::string_view folder) {
  HidPlace place;
  if (!HidrawNumber(LastPart(folder)) || LastPart(FolderOf(folder)) != "hidraw") {
    return std::nullopt;
  }
  folder = FolderOf(FolderOf(folder));
  if (!ParseHidName(LastPart(folder), place)) return std::nullopt;
  // What is above a HID device on another bus is its adapter, which may well be on USB.
  if (place.bus != kUsbBus) return place;
  // Receivers put the HID devices that they forward below their own.
  do {
    folder = FolderOf(folder);
  } while (!folder.empty() && !ParseInterfaceFolder(folder, place));
  return place;
}

std::string LocationPath(const UsbPlace& place, bool isSuperSpeed) {
  std::string_view controller = place.controllerFolder;
  const std::string devices = SystemPath("/sys/devices");
  if (controller.starts_with(devices)) controller.remove_prefix(devices.size());
  std::string path;
  while (!controller.empty()) {
    const std::string_view name = Take(controller, '/');
    if (!name.empty()) path += ControllerStep(name) + '#';
  }
  path += isSuperSpeed ? "USBROOT(1)" : "USBROOT(0)";
  for (const std::uint32_t port : place.ports) path += "#USB(" + std::to_string(port) + ")";
  return path;
}

std::string Hex4(std::uint32_t value) {
  char text[16];
  std::snprintf(text, sizeof(text), "%04X", value);
  return text;
}

}  // namespace qzhid::platform
