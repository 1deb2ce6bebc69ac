// The library's functions, found at run time.
#pragma once

#include <string>
#include <vector>

#include "QzHidAPI.h"

namespace qzhid {

struct Library {
  void* file = nullptr;  ///< as the system loaded it
  std::string path;
  decltype(&QZ_ListAllHidDev) ListAllHidDev = nullptr;
  decltype(&QZ_ListAllHidDevByVIDPID) ListAllHidDevByVIDPID = nullptr;
  decltype(&QZ_FreeDevList) FreeDevList = nullptr;
  decltype(&QZ_OpenHid) OpenHid = nullptr;
  decltype(&QZ_CloseDev) CloseDev = nullptr;
  decltype(&QZ_DllPassPara) DllPassPara = nullptr;
  decltype(&QZ_UpdateDev) UpdateDev = nullptr;
  decltype(&QZ_ReadDevVersion) ReadDevVersion = nullptr;
  decltype(&QZ_GetHubVIDPIDFromHidDevice) GetHubVIDPIDFromHidDevice = nullptr;
  decltype(&QZ_HidI2CConfig) HidI2CConfig = nullptr;
  decltype(&QZ_HidI2CWrite) HidI2CWrite = nullptr;
  decltype(&QZ_HidI2CRead) HidI2CRead = nullptr;
  decltype(&QZ_HidI2CBlockWriteFlash) HidI2CBlockWriteFlash = nullptr;
  decltype(&QZ_Stage_Flash) Stage_Flash = nullptr;
  decltype(&QZ_HidI2CBlockEraseFlash) HidI2CBlockEraseFlash = nullptr;
  decltype(&QZ_HidI2CBlockStatus) HidI2CBlockStatus = nullptr;
  decltype(&QZ_HidGPIOR) HidGPIOR = nullptr;
  decltype(&QZ_HidGPIOW) HidGPIOW = nullptr;
  decltype(&QZ_HidSetHubGPIO) HidSetHubGPIO = nullptr;
  decltype(&QZ_SetLogPath) SetLogPath = nullptr;
  decltype(&QZ_ConfigLog) ConfigLog = nullptr;
};

/// Loads the first of the files that can be loaded. Throws Failure when none can, or when it lacks
/// a function.
Library LoadLibrary(const std::vector<std::string>& files);

}  // namespace qzhid
