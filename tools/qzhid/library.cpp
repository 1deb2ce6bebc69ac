#include "qzhid/library.h"

#include "qzhid/failure.h"
#include "qzhid/system.h"

namespace qzhid {

namespace {

constexpr const char* kChoose = "choose the library with --library FILE";

void LoadFirst(const std::vector<std::string>& files, Library& library) {
  std::string reasons;
  for (const std::string& file : files) {
    std::string reason;
    library.path = file;
    library.file = system::LoadLibraryFile(file, reason);
    if (library.file != nullptr) return;
    reasons += (reasons.empty() ? "" : "; ") + reason;
  }
  throw Failure(Exit::Failed, "the library cannot be loaded (" + reasons + ")", "", kChoose);
}

template <typename Function>
void Bind(void* library, const char* name, Function& function) {
  function = reinterpret_cast<Function>(system::FindFunction(library, name));
  if (function == nullptr) {
    throw Failure(Exit::Failed, std::string("the library has no function ") + name, "", kChoose);
  }
}

}  // namespace

Library LoadLibrary(const std::vector<std::string>& files) {
  Library library;
  LoadFirst(files, library);
  void* const file = library.file;
  Bind(file, "QZ_ListAllHidDev", library.ListAllHidDev);
  Bind(file, "QZ_ListAllHidDevByVIDPID", library.ListAllHidDevByVIDPID);
  Bind(file, "QZ_FreeDevList", library.FreeDevList);
  Bind(file, "QZ_OpenHid", library.OpenHid);
  Bind(file, "QZ_CloseDev", library.CloseDev);
  Bind(file, "QZ_DllPassPara", library.DllPassPara);
  Bind(file, "QZ_UpdateDev", library.UpdateDev);
  Bind(file, "QZ_ReadDevVersion", library.ReadDevVersion);
  Bind(file, "QZ_GetHubVIDPIDFromHidDevice", library.GetHubVIDPIDFromHidDevice);
  Bind(file, "QZ_HidI2CConfig", library.HidI2CConfig);
  Bind(file, "QZ_HidI2CWrite", library.HidI2CWrite);
  Bind(file, "QZ_HidI2CRead", library.HidI2CRead);
  Bind(file, "QZ_HidI2CBlockWriteFlash", library.HidI2CBlockWriteFlash);
  Bind(file, "QZ_Stage_Flash", library.Stage_Flash);
  Bind(file, "QZ_HidI2CBlockEraseFlash", library.HidI2CBlockEraseFlash);
  Bind(file, "QZ_HidI2CBlockStatus", library.HidI2CBlockStatus);
  Bind(file, "QZ_HidGPIOR", library.HidGPIOR);
  Bind(file, "QZ_HidGPIOW", library.HidGPIOW);
  Bind(file, "QZ_HidSetHubGPIO", library.HidSetHubGPIO);
  Bind(file, "QZ_SetLogPath", library.SetLogPath);
  Bind(file, "QZ_ConfigLog", library.ConfigLog);
  return library;
}

}  // namespace qzhid
