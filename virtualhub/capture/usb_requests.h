// The requests of USB 2.0 chapter 9 and HID 1.11 section 7.2 that captures are about, as
// bmRequestType x 256 + bRequest.
#pragma once

#include <cstdint>

namespace virtualhub {

inline constexpr std::uint16_t kGetDescriptor = 0x8006;  ///< of the device
inline constexpr std::uint16_t kGetInterfaceDescriptor = 0x8106;
inline constexpr std::uint16_t kSetConfiguration = 0x0009;
inline constexpr std::uint16_t kSetReport = 0x2109, kGetReport = 0xA101;
inline constexpr std::uint8_t kInputReport = 1, kOutputReport = 2;  ///< types of reports

}  // namespace virtualhub
