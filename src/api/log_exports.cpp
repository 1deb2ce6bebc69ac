// Log control and crash record.
#include "QzHidAPI.h"
#include "api/export_frame.h"
#include "log/log_control.h"

using namespace qzhid;

int32_t QZ_SetLogPath(const char* path) {
  return Run({"QZ_SetLogPath", L"QZ_SetLogPath"}, int32_t{0},
             [&](const char*) { return CLogControl::Instance().SetPath(path) ? 1 : 0; });
}

int32_t QZ_ConfigLog(uint8_t enable, int32_t level) {
  return Run({"QZ_ConfigLog", L"Create Log"}, int32_t{1}, [&](const char*) {
    CLogControl::Instance().Configure(enable != 0, level);
    return 1;
  });
}

QZ_ExceptionFilter QZ_GenerateDumplog(void) {
  return Run({"QZ_GenerateDumplog", nullptr}, static_cast<QZ_ExceptionFilter>(nullptr),
             [](const char*) { return platform::InstallCrashHandler(); });
}
