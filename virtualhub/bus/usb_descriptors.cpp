#include "virtualhub/bus/usb_descriptors.h"

#include <initializer_list>

#include "virtualhub/base/utf16.h"

namespace virtualhub {

namespace {

constexpr std::uint16_t kUsbRelease = 0x0200;
constexpr std::uint16_t kHidRelease = 0x0111;
constexpr std::uint8_t kControlPacketSize = 64;
constexpr std::uint8_t kInterruptPacketSize = 64;
constexpr std::uint8_t kHighSpeedInterval = 4;  // 2^(4-1) microframes: a millisecond
constexpr std::uint8_t kFullSpeedInterval = 1;  // frames: a millisecond
constexpr std::uint8_t kSelfPowered = 0xC0;
constexpr std::uint8_t kHidClass = 3;
constexpr std::size_t kMostStringUnits = 126;

std::uint8_t Low(std::size_t value) { return static_cast<std::uint8_t>(value); }
std::uint8_t High(std::size_t value) { return static_cast<std::uint8_t>(value >> 8); }
std::uint8_t TypeByte(DescriptorType type) { return static_cast<std::uint8_t>(type); }

// Report count, usage 1, and the main item. A report that is its ID alone has no fields.
void AppendReport(Bytes& items, std::uint16_t reportLength, std::optional<std::uint8_t> id,
                  std::uint8_t mainItem) {
  if (reportLength < 2) return;
  const std::size_t count = reportLength - 1u;
  if (id) Append(items, Bytes{0x85, *id});
  Append(items, Bytes{0x96, Low(count), High(count), 0x09, 0x01, mainItem, 0x02});
}

}  // namespace

Bytes DeviceDescriptor(UsbIds ids) {
  return {18,
          TypeByte(DescriptorType::Device),
          Low(kUsbRelease),
          High(kUsbRelease),
          0,
          0,
          0,  // class, subclass and protocol: of the interface
          kControlPacketSize,
          Low(ids.vid),
          High(ids.vid),
          Low(ids.pid),
          High(ids.pid),
          Low(kDeviceRelease),
          High(kDeviceRelease),
          kManufacturerString,
          kProductString,
          0,   // no serial number
          1};  // configurations
}

Bytes DeviceQualifier() {
  return {10,
          TypeByte(DescriptorType::DeviceQualifier),
          Low(kUsbRelease),
          High(kUsbRelease),
          0,
          0,
          0,
          kControlPacketSize,
          1,
          0};
}

Bytes HidDescriptor(const ReportConfig& reports) {
  const std::size_t length = ReportDescriptor(reports).size();
  return {9,
          TypeByte(DescriptorType::Hid),
          Low(kHidRelease),
          High(kHidRelease),
          0,
          1,  // no country; one descriptor
          TypeByte(DescriptorType::Report),
          Low(length),
          High(length)};
}

Bytes ConfigurationDescriptor(const ReportConfig& reports, DescriptorType type) {
  const bool highSpeed = type == DescriptorType::Configuration;
  const bool hasOut = reports.outEndpoint != OutEndpoint::None;
  const std::uint8_t endpoints = hasOut ? 2 : 1;
  const auto appendEndpoint = [&](Bytes& bytes, std::uint8_t address) {
    Append(bytes, Bytes{7, 5, address, 3, kInterruptPacketSize, 0,
                        highSpeed ? kHighSpeedInterval : kFullSpeedInterval});
  };
  Bytes all{9, TypeByte(type), 0, 0, 1, kConfigurationValue, 0, kSelfPowered, 0};
  Append(all, Bytes{9, 4, 0, 0, endpoints, kHidClass, 0, 0, 0});  // interface 0, no boot protocol
  Append(all, HidDescriptor(reports));
  appendEndpoint(all, kInterruptInEndpoint);
  if (hasOut) appendEndpoint(all, kInterruptOutEndpoint);
  all[2] = Low(all.size());
  all[3] = High(all.size());
  return all;
}

Bytes ReportDescriptor(const ReportConfig& reports) {
  using Id = std::optional<std::uint8_t>;
  Bytes items{0x06, 0x00, 0xFF,  // usage page: vendor-defined 0xFF00
              0x09, 0x01,        // usage 1
              0xA1, 0x01,        // application collection
              0x15, 0x00,        // logical minimum 0
              0x26, 0xFF, 0x00,  // logical maximum 255
              0x75, 0x08};       // eight bits a field
  AppendReport(items, reports.inputLength, reports.channel2 ? Id(0xF1) : Id(), 0x81);
  AppendReport(items, reports.outputLength, reports.channel2 ? Id(0xF0) : Id(), 0x91);
  items.push_back(0xC0);
  return items;
}

Bytes StringDescriptor(std::string_view utf8) {
  std::u16string units = ToUtf16(utf8);
  if (units.size() > kMostStringUnits) {
    const bool splitsPair = (units[kMostStringUnits] & 0xFC00) == 0xDC00;
    units.resize(kMostStringUnits - (splitsPair ? 1 : 0));
  }
  Bytes descriptor{Low(2 + 2 * units.size()), TypeByte(DescriptorType::String)};
  for (const char16_t unit : units) Append(descriptor, Bytes{Low(unit), High(unit)});
  return descriptor;
}

Bytes LanguageDescriptor() {
  return {4, TypeByte(DescriptorType::String), Low(kLanguage), High(kLanguage)};
}

}  // namespace virtualhub
