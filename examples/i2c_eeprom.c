/*
 * Writes to an EEPROM behind a hub and reads it back: configure, write, read, compare.
 *
 *   i2c_eeprom [SLAVE [ADDRESS_BYTES]]      defaults: 0x50 2
 *
 * Works on the first hub of the list. Exit status 0 if the bytes read are those written.
 */
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "QzHidAPI.h"

enum { MEMORY_ADDRESS = 0x0040, LENGTH = 32, SPEED = 1 };

static int check(const char* step, uint32_t status) {
  printf("%-9s %s\n", step, status == 0 ? "ok" : "failed");
  if (status != 0) fprintf(stderr, "i2c_eeprom: %s: status 0x%08x\n", step, (unsigned)status);
  return status == 0;
}

static int roundTrip(void* hub, uint8_t slave, uint8_t addressBytes) {
  uint8_t written[LENGTH];
  uint8_t read[LENGTH];
  int i;
  for (i = 0; i < LENGTH; ++i) written[i] = (uint8_t)(0xA0 + i);
  memset(read, 0, sizeof(read));
  return check("configure", QZ_HidI2CConfig(hub, slave, addressBytes, SPEED)) &&
         check("write", QZ_HidI2CWrite(hub, MEMORY_ADDRESS, written, LENGTH)) &&
         check("read", QZ_HidI2CRead(hub, MEMORY_ADDRESS, read, LENGTH)) &&
         check("compare", memcmp(written, read, LENGTH) == 0 ? 0 : 1);
}

int main(int argc, char** argv) {
  const uint8_t slave = (uint8_t)strtoul(argc > 1 ? argv[1] : "0x50", NULL, 0);
  const uint8_t addressBytes = (uint8_t)strtoul(argc > 2 ? argv[2] : "2", NULL, 0);
  HidDevRecord* list = NULL;
  uint32_t count = 0;
  void* hub = NULL;
  int isDone;
  if (QZ_ListAllHidDev(&list, &count)) hub = QZ_OpenHid(list[0].dwInst);
  QZ_FreeDevList(list);
  if (hub == NULL) {
    fprintf(stderr, "i2c_eeprom: no hub answers\n");
    return 1;
  }
  isDone = roundTrip(hub, slave, addressBytes);
  QZ_CloseDev(hub);
  return isDone ? 0 : 1;
}
