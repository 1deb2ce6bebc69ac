/* Prints the firmware version of the first hub. */
#include <QzHidAPI.h>
#include <stdio.h>

int main(void) {
  HidDevRecord* list = NULL;
  uint32_t count = 0;
  if (!QZ_ListAllHidDev(&list, &count)) return 1;
  void* hub = QZ_OpenHid(list[0].dwInst);
  QZ_FreeDevList(list);
  uint16_t version = 0;
  const uint8_t read = QZ_ReadDevVersion(hub, &version);
  if (read) printf("%u hub, %x.%02x\n", (unsigned)count, version >> 8, version & 0xFFu);
  QZ_CloseDev(hub);
  return !read;
}
