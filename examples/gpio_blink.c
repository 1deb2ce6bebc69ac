/*
 * Drives a GPIO line of a hub high and low a few times and reads it back each time.
 *
 *   gpio_blink [LINE]      default: 5
 *
 * Works on the first hub of the list. Exit status 0 if the line had each level that was set.
 */
#include <stdio.h>
#include <stdlib.h>

#include "QzHidAPI.h"

enum { BLINKS = 3 };

static int drive(void* hub, uint32_t line, uint32_t level) {
  uint8_t read = 0;
  uint32_t status = QZ_HidGPIOW(hub, line, level);
  if (status == 0) status = QZ_HidGPIOR(hub, line, &read, sizeof(read));
  if (status != 0) {
    fprintf(stderr, "gpio_blink: line %u: status 0x%08x\n", (unsigned)line, (unsigned)status);
    return 0;
  }
  printf("line %u driven %u, reads %u\n", (unsigned)line, (unsigned)level, (unsigned)read);
  return read == level;
}

int main(int argc, char** argv) {
  const uint32_t line = (uint32_t)strtoul(argc > 1 ? argv[1] : "5", NULL, 0);
  HidDevRecord* list = NULL;
  uint32_t count = 0;
  void* hub = NULL;
  int isDone = 1;
  int i;
  if (QZ_ListAllHidDev(&list, &count)) hub = QZ_OpenHid(list[0].dwInst);
  QZ_FreeDevList(list);
  if (hub == NULL) {
    fprintf(stderr, "gpio_blink: no hub answers\n");
    return 1;
  }
  for (i = 0; i < BLINKS && isDone; ++i) isDone = drive(hub, line, 1) && drive(hub, line, 0);
  QZ_CloseDev(hub);
  return isDone ? 0 : 1;
}
