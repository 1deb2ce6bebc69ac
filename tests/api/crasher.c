/*
 * crasher HOW: installs the crash record and dies in that way. "none": lives, and tells whether the
 * handlers that were installed before are as they must be.
 */
#include <signal.h>
#include <stdlib.h>
#include <string.h>

#include "QzHidAPI.h"

static volatile char g_sink;

static int overflow(int depth) {
  volatile char room[4096];
  room[0] = (char)depth;
  if (depth < 0) return 0;
  g_sink = room[0];
  return overflow(depth + 1) + room[0];
}

int main(int argc, char** argv) {
  const char* how = argc > 1 ? argv[1] : "none";
  volatile int* volatile nowhere = NULL;
  const QZ_ExceptionFilter before = QZ_GenerateDumplog();
  const QZ_ExceptionFilter own = QZ_GenerateDumplog();
  if (before != NULL || own == NULL || own != QZ_GenerateDumplog()) return 2;
  if (strcmp(how, "null") == 0) *nowhere = 1; /* NOLINT: it is meant to crash */
  if (strcmp(how, "abort") == 0) abort();
  if (strcmp(how, "raise") == 0) raise(SIGFPE);
  if (strcmp(how, "overflow") == 0) return overflow(0);
  return 0;
}
