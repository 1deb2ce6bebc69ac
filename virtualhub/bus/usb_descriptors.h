// The descriptors of a USB HID device: USB 2.0 chapter 9 and Device Class Definition for HID 1.11,
// section 6.2. Multi-byte fields are little-endian.
#pragma once

#include <string_view>

#include "virtualhub/base/bytes.h"
#include "virtualhub/bus/bus_device.h"

namespace virtualhub {

inline constexpr std::uint8_t kConfigurationValue = 1;
inline constexpr std::uint8_t kInterruptInEndpoint = 0x81;
inline constexpr std::uint8_t kInterruptOutEndpoint = 0x01;
inline constexpr std::uint16_t kDeviceRelease = 0x0100;  ///< bcdDevice

/// String indices. Manufacturer and product are those of the device descriptor; there is no serial
/// number, so that hosts distinguish devices by their port.
inline constexpr std::uint8_t kManufacturerString = 1;
inline constexpr std::string_view kManufacturer = "Virtual";
inline constexpr std::uint8_t kProductString = 2;
inline constexpr std::uint8_t kProductTextString = 52;
inline constexpr std::uint16_t kLanguage = 0x0409;  ///< the only one: English (United States)

enum class DescriptorType : std::uint8_t {
  Device = 1,
  Configuration = 2,
  String = 3,
  DeviceQualifier = 6,
  OtherSpeedConfiguration = 7,
  Hid = 0x21,
  Report = 0x22,
};

Bytes DeviceDescriptor(UsbIds ids);
/// What is different at full speed; the device runs at high speed.
Bytes DeviceQualifier();
/// The whole configuration: one HID interface with one interrupt IN endpoint, and one interrupt OUT
/// endpoint if the reports say so. `type` is Configuration or OtherSpeedConfiguration.
Bytes ConfigurationDescriptor(const ReportConfig& reports, DescriptorType type);
Bytes HidDescriptor(const ReportConfig& reports);

/// One vendor-defined collection with an input and an output report of the declared lengths. With
/// channel 1 alone the reports have no ID. With channel 2 the output report has ID 0xF0 and the
/// input report 0xF1; the device also takes reports of channel 1, but cannot declare them, because
/// either all reports of a device have an ID or none.
Bytes ReportDescriptor(const ReportConfig& reports);

/// A string descriptor; a text of more than 126 UTF-16 units is cut after a whole character.
Bytes StringDescriptor(std::string_view utf8);
/// String descriptor 0, the list of languages.
Bytes LanguageDescriptor();

}  // namespace virtualhub
