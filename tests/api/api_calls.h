// Every bridge and GPIO export that sends a request, called once with arguments that it accepts.
#pragma once

#include "api/api_test.h"

namespace qzhid::test {

inline std::uint8_t g_data[] = {0xD0, 0xD1, 0xD2, 0xD3};  // sent
inline std::uint8_t g_room[] = {0xB0, 0xB0, 0xB0};        // received into
inline std::uint8_t g_address[] = {1, 2, 3, 4, 5};

struct ApiCall {
  const char* name;
  const char* failure;                  ///< what it logs when the device fails, if it does
  std::uint32_t (*call)(void* handle);  ///< booleans turned round: 0 is success
  Bytes report;                         ///< setup and I2C settings (11 bytes), then the data
};

inline const ApiCall kApiCalls[] = {
    {"QZ_HidI2CWrite",
     "I2C Write Fail",
     [](void* h) { return QZ_HidI2CWrite(h, 0x12345678, g_data, 3); },
     {0x40, 0xC6, 0x78, 0x56, 0x34, 0x12, 3, 0, 0xA0, 2, 0x81, 0xD0, 0xD1, 0xD2}},
    {"QZ_HidI2CRead",
     "I2C Read Fail",
     [](void* h) { return QZ_HidI2CRead(h, 0x12345678, g_room, 2); },
     {0x40, 0xD6, 0x78, 0x56, 0x34, 0x12, 2, 0, 0xA0, 2, 0x81, 0xB0, 0xB0}},
    {"QZ_HidI2CRead2",
     "Read Data Fail",
     [](void* h) { return QZ_HidI2CRead2(h, g_address, 2, g_room, 0x103); },
     {0x40, 0xD6, 1, 2, 0, 0, 3, 0, 0xA0, 2, 0x81, 0xB0, 0xB0, 0xB0}},
    {"QZ_HidI2CBlockWriteFlash",
     "Hid I2C Block WriteFlash Fail",
     [](void* h) { return QZ_HidI2CBlockWriteFlash(h, 0x00023456, g_data, 4); },
     {0x40, 0xF1, 0x56, 0x34, 0x02, 0, 4, 0, 0, 0, 0, 0xD0, 0xD1, 0xD2, 0xD3}},
    {"QZ_Stage_Flash",
     "Hid I2C Stage WriteFlash Fail",
     [](void* h) { return QZ_Stage_Flash(h, 0x00023456, g_data, 2); },
     {0x00, 0xCF, 0x56, 0x34, 0x02, 0, 2, 0, 0, 0, 0, 0xD0, 0xD1}},
    {"QZ_Write_Byte",
     "Hid I2C Stage WriteFlash Fail",
     [](void* h) { return QZ_Write_Byte(h, 0x00023456, g_data, 129); },
     {0x00, 0xCF, 0x56, 0x34, 0x02, 0, 129, 0, 0, 0, 0, 0xD0}},
    {"QZ_HidI2CBlockEraseFlash",
     "Hid I2C Block Erase Flash Fail",
     [](void* h) { return QZ_HidI2CBlockEraseFlash(h); },
     {0x40, 0xF4, 0, 0, 0, 0, 0, 0, 0, 0, 0}},
    {"QZ_HidI2CBlockStatus",
     "Hid I2C Block Read Status Fail",
     [](void* h) { return QZ_HidI2CBlockStatus(h, g_room); },
     {0xC0, 0xF3, 0, 0, 0, 0, 1, 0, 0, 0, 0, 0xB0}},
    {"QZ_MST_HidI2CBlock",
     "Hid I2C Block Read Status Fail",
     [](void* h) { return QZ_MST_HidI2CBlock(h, 0x11, 0x22, 0x33, 0xFFFFFF11, 0x102, g_data, 1); },
     {0x40, 0xF2, 0x11, 0x22, 0, 0x33, 0x13, 0, 0, 0, 0xD0}},
    {"QZ_HidGPIOR",
     nullptr,
     [](void* h) { return QZ_HidGPIOR(h, 23, g_room, 0x10001); },
     {0xC0, 0x04, 0x00, 23, 0, 0, 1, 0, 0, 0, 0, 0xB0}},
    {"QZ_HidGPIOW",
     nullptr,
     [](void* h) { return QZ_HidGPIOW(h, 23, 0x301); },
     {0x40, 0x0C, 0x00, 0x17, 0, 0x01, 0, 0, 0, 0, 0}},
    {"QZ_HidSetHubGPIO",
     nullptr,
     [](void* h) { return QZ_HidSetHubGPIO(h, 0x10005, 1) == 1 ? 0u : 1u; },
     {0x40, 0x04, 0x01, 0x01, 5, 0, 0, 0, 0, 0, 0}}};

/// The same for their boolean: every code is 1.
inline std::uint32_t ResultOf(const ApiCall& call, std::uint32_t code) {
  return call.name == std::string("QZ_HidSetHubGPIO") && code != 0 ? 1 : code;
}
inline bool IsGpio(const ApiCall& call) { return call.failure == nullptr; }

}  // namespace qzhid::test
