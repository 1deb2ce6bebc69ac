/*
 * A host that logs from the threshold of its first argument on, lists the hubs and prints the ids
 * of each. It finds the library beside itself.
 */
#include <stdio.h>
#include <stdlib.h>

#include "QzHidAPI.h"

static void PrintText(const QZ_Utf16* text) {
  for (; *text != 0; ++text) putchar((int)*text);
}

int main(int argc, char** argv) {
  HidDevRecord* list = NULL;
  uint32_t count = 0;
  if (argc != 2) return 2;
  QZ_ConfigLog(1, atoi(argv[1]));
  if (QZ_ListAllHidDev(&list, &count) == 0) return 0;
  for (uint32_t i = 0; i < count; ++i) {
    PrintText(list[i].VID);
    putchar(':');
    PrintText(list[i].PID);
    putchar('\n');
  }
  QZ_FreeDevList(list);
  return 0;
}
