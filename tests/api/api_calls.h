// Every bridge and GPIO export that sends a request, called once with arguments that it accepts.
#pragma once

#include <functional>
#include <type_traits>

#include "api/api_test.h"

namespace qzhid::test {

inline std::uint8_t g_data[] = {0xD0, 0xD1, 0xD2, 0xD3};  // sent
inline std::uint8_t g_room[] = {0xB0, 0xB0, 0xB0};        // received into
inline std::uint8_t g_address[] = {1, 2, 3, 4, 5};

struct ApiCall {
  std::string name;
  const char* failure;  ///< what it logs when the device fails, if it does
  std::function<std::uint32_t(void* handle)> call;
  const char* header;  ///< of its report: setup and I2C settings
  const char* data;    ///< of its report

  bool IsGpio() const { return failure == nullptr; }
  /// What it returns when its request ends with that code: the one boolean is 1 without failure.
  std::uint32_t Result(std::uint32_t code) const {
    return name != "QZ_HidSetHubGPIO" ? code : code == 0 ? 1 : 0;
  }
  /// What it returns when it is not carried out.
  std::uint32_t Rejection() const { return IsGpio() ? Result(1) : kRejected; }
};

/// Calls that export with the handle and these arguments.
template <class Result, class... Arguments>
auto Call(Result (*exported)(void*, Arguments...), std::type_identity_t<Arguments>... arguments) {
  return [=](void* handle) { return exported(handle, arguments...); };
}

inline const ApiCall kApiCalls[] = {
    {"QZ_HidI2CWrite", "I2C Write Fail", Call(QZ_HidI2CWrite, 0x12345678, g_data, 3),
     "40 C6 78 56 34 12 03 00 A0 02 81", "D0 D1 D2"},
    {"QZ_HidI2CRead", "I2C Read Fail", Call(QZ_HidI2CRead, 0x12345678, g_room, 2),
     "40 D6 78 56 34 12 02 00 A0 02 81", "B0 B0"},
    {"QZ_HidI2CRead2", "Read Data Fail", Call(QZ_HidI2CRead2, g_address, 2, g_room, 0x103),
     "40 D6 01 02 00 00 03 00 A0 02 81", "B0 B0 B0"},
    {"QZ_HidI2CBlockWriteFlash", "Hid I2C Block WriteFlash Fail",
     Call(QZ_HidI2CBlockWriteFlash, 0x00023456, g_data, 4), "40 F1 56 34 02 00 04 00",
     "D0 D1 D2 D3"},
    {"QZ_Stage_Flash", "Hid I2C Stage WriteFlash Fail", Call(QZ_Stage_Flash, 0x23456, g_data, 2),
     "00 CF 56 34 02 00 02 00", "D0 D1"},
    {"QZ_Write_Byte", "Hid I2C Stage WriteFlash Fail", Call(QZ_Write_Byte, 0x23456, g_data, 129),
     "00 CF 56 34 02 00 81 00", "D0"},
    {"QZ_HidI2CBlockEraseFlash", "Hid I2C Block Erase Flash Fail", Call(QZ_HidI2CBlockEraseFlash),
     "40 F4", ""},
    {"QZ_HidI2CBlockStatus", "Hid I2C Block Read Status Fail", Call(QZ_HidI2CBlockStatus, g_room),
     "C0 F3 00 00 00 00 01 00", "B0"},
    {"QZ_MST_HidI2CBlock", "Hid I2C Block Read Status Fail",
     Call(QZ_MST_HidI2CBlock, 0x11, 0x22, 0x33, 0xFFFFFF11, 0x102, g_data, 1),
     "40 F2 11 22 00 33 13 00 00 00 D0", ""},
    {"QZ_HidGPIOR", nullptr, Call(QZ_HidGPIOR, 23, g_room, 0x10001), "C0 04 00 17 00 00 01 00",
     "B0"},
    {"QZ_HidGPIOW", nullptr, Call(QZ_HidGPIOW, 23, 0x301), "40 0C 00 17 00 01", ""},
    {"QZ_HidSetHubGPIO", nullptr, Call(QZ_HidSetHubGPIO, 0x10005, 1), "40 04 01 01 05", ""}};

}  // namespace qzhid::test
