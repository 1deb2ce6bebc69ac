/* The public header as a C host sees it: alone, in C11. */
#include "QzHidAPI.h"

_Static_assert(sizeof(HidDevRecord) == 4136 && offsetof(HidDevRecord, LocationPath) == 2052 &&
                   offsetof(HidDevRecord, PID) == 4100 && offsetof(HidDevRecord, Port) == 4124,
               "records are laid out as ever");

const char* QzMisuseEveryExport(void);

static void onProgress(int32_t percent) { (void)percent; }

/* Calls every export on nothing; the first one that does not refuse, null when all do. */
const char* QzMisuseEveryExport(void) {
  const char* path = "/nonexistent/image.bin";
  const uint32_t refused = QZ_STATUS_REFUSED;
  HidDevRecord* list = NULL;
  QZ_ProgressCallback progress = onProgress;
  QZ_ExceptionFilter filter;
  uint32_t number = 0;
  uint16_t version = 0;
  uint8_t byte = 0;
  void* none = QZ_OpenHid(0);

  if (none != NULL) return "QZ_OpenHid";
  QZ_CloseDev(none);
  QZ_DllPassPara(0u);
  if (QZ_ListAllHidDev(NULL, &number) != 0) return "QZ_ListAllHidDev";
  if (QZ_ListAllHidDevByVIDPID(1u, 2u, &list, NULL) != 0) return "QZ_ListAllHidDevByVIDPID";
  QZ_FreeDevList(list);
  if (QZ_UpdateDev(none, path, progress) != 0) return "QZ_UpdateDev";
  if (QZ_ReadBinVersion(none, path, &version) != 0) return "QZ_ReadBinVersion";
  if (QZ_ReadDevVersion(none, &version) != 0) return "QZ_ReadDevVersion";
  if (QZ_GetHidBinFileVIDPID(path, &number, &number) != 0) return "QZ_GetHidBinFileVIDPID";
  if (QZ_GetHubVIDPIDFromHidDevice(0u, &number, NULL) != 0) return "QZ_GetHubVIDPIDFromHidDevice";
  if (QZ_HidI2CConfig(none, 1, 2, 1) != refused) return "QZ_HidI2CConfig";
  if (QZ_HidI2CWrite(none, 0u, &byte, 1) != refused) return "QZ_HidI2CWrite";
  if (QZ_HidI2CRead(none, 0u, &byte, 1) != refused) return "QZ_HidI2CRead";
  if (QZ_HidI2CRead2(none, &byte, 1, &byte, 1) != refused) return "QZ_HidI2CRead2";
  if (QZ_HidI2CBlockWriteFlash(none, 0u, &byte, 1) != refused) return "QZ_HidI2CBlockWriteFlash";
  if (QZ_Stage_Flash(none, 0u, &byte, 1) != refused) return "QZ_Stage_Flash";
  if (QZ_Write_Byte(none, 0u, &byte, 1) != refused) return "QZ_Write_Byte";
  if (QZ_HidI2CBlockEraseFlash(none) != refused) return "QZ_HidI2CBlockEraseFlash";
  if (QZ_HidI2CBlockStatus(none, &byte) != refused) return "QZ_HidI2CBlockStatus";
  if (QZ_MST_HidI2CBlock(none, 1, 2, 3, 4u, 5u, &byte, 1) != refused) return "QZ_MST_HidI2CBlock";
  if (QZ_HidGPIOR(none, 1u, &byte, 1u) != 1u) return "QZ_HidGPIOR";
  if (QZ_HidGPIOW(none, 1u, 1u) != 1u) return "QZ_HidGPIOW";
  if (QZ_HidSetHubGPIO(none, 1u, 1) != 0) return "QZ_HidSetHubGPIO";
  if (QZ_SetLogPath(path) != 0) return "QZ_SetLogPath";
  if (QZ_ConfigLog(0, 3) != 1) return "QZ_ConfigLog";
  filter = QZ_GenerateDumplog();
  if (QZ_GenerateDumplog() == filter) return "QZ_GenerateDumplog";
  return NULL;
}
