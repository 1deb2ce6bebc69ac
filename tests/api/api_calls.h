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
  Bytes report;  ///< setup and I2C settings (11 bytes), then the data

  bool IsGpio() const { return failure == nullptr; }
  /// Whether null is the only handle that it refuses.
  bool TakesAnyPointer() const { return name == "QZ_HidSetHubGPIO"; }
  /// What it returns when its request ends with that code: the one boolean is 1 without failure.
  std::uint32_t Result(std::uint32_t code) const {
    return !TakesAnyPointer() ? code : code == 0 ? 1 : 0;
  }
};

/// Calls that export with the handle and these arguments.
template <class Result, class... Arguments>
auto Call(Result (*exported)(void*, Arguments...), std::type_identity_t<Arguments>... arguments) {
  return [=](void* handle) { return exported(handle, arguments...); };
}

inline const ApiCall kApiCalls[] = {
    {"QZ_HidI2CWrite", "I2C Write Fail", Call(QZ_HidI2CWrite, 0x12345678, g_data, 3),
     Bytes{0x40, 0xC6, 0x78, 0x56, 0x34, 0x12, 3, 0, 0xA0, 2, 0x81, 0xD0, 0xD1, 0xD2}},
    {"QZ_HidI2CRead", "I2C Read Fail", Call(QZ_HidI2CRead, 0x12345678, g_room, 2),
     Bytes{0x40, 0xD6, 0x78, 0x56, 0x34, 0x12, 2, 0, 0xA0, 2, 0x81, 0xB0, 0xB0}},
    {"QZ_HidI2CRead2", "Read Data Fail", Call(QZ_HidI2CRead2, g_address, 2, g_room, 0x103),
     Bytes{0x40, 0xD6, 1, 2, 0, 0, 3, 0, 0xA0, 2, 0x81, 0xB0, 0xB0, 0xB0}},
    {"QZ_HidI2CBlockWriteFlash", "Hid I2C Block WriteFlash Fail",
     Call(QZ_HidI2CBlockWriteFlash, 0x00023456, g_data, 4),
     Bytes{0x40, 0xF1, 0x56, 0x34, 0x02, 0, 4, 0, 0, 0, 0, 0xD0, 0xD1, 0xD2, 0xD3}},
    {"QZ_Stage_Flash", "Hid I2C Stage WriteFlash Fail", Call(QZ_Stage_Flash, 0x23456, g_data, 2),
     Bytes{0x00, 0xCF, 0x56, 0x34, 0x02, 0, 2, 0, 0, 0, 0, 0xD0, 0xD1}},
    {"QZ_Write_Byte", "Hid I2C Stage WriteFlash Fail", Call(QZ_Write_Byte, 0x23456, g_data, 129),
     Bytes{0x00, 0xCF, 0x56, 0x34, 0x02, 0, 129, 0, 0, 0, 0, 0xD0}},
    {"QZ_HidI2CBlockEraseFlash", "Hid I2C Block Erase Flash Fail", Call(QZ_HidI2CBlockEraseFlash),
     Bytes{0x40, 0xF4, 0, 0, 0, 0, 0, 0, 0, 0, 0}},
    {"QZ_HidI2CBlockStatus", "Hid I2C Block Read Status Fail", Call(QZ_HidI2CBlockStatus, g_room),
     Bytes{0xC0, 0xF3, 0, 0, 0, 0, 1, 0, 0, 0, 0, 0xB0}},
    {"QZ_MST_HidI2CBlock", "Hid I2C Block Read Status Fail",
     Call(QZ_MST_HidI2CBlock, 0x11, 0x22, 0x33, 0xFFFFFF11, 0x102, g_data, 1),
     Bytes{0x40, 0xF2, 0x11, 0x22, 0, 0x33, 0x13, 0, 0, 0, 0xD0}},
    {"QZ_HidGPIOR", nullptr, Call(QZ_HidGPIOR, 23, g_room, 0x10001),
     Bytes{0xC0, 0x04, 0x00, 23, 0, 0, 1, 0, 0, 0, 0, 0xB0}},
    {"QZ_HidGPIOW", nullptr, Call(QZ_HidGPIOW, 23, 0x301),
     Bytes{0x40, 0x0C, 0x00, 0x17, 0, 0x01, 0, 0, 0, 0, 0}},
    {"QZ_HidSetHubGPIO", nullptr, Call(QZ_HidSetHubGPIO, 0x10005, 1),
     Bytes{0x40, 0x04, 0x01, 0x01, 5, 0, 0, 0, 0, 0, 0}}};

}  // namespace qzhid::test
