/*
 * crasher HOW: installs the crash record and dies in that way. "none": lives, and tells whether the
 * filters that were installed before are as they must be.
 */
#include <string.h>
#include <windows.h>

#include "QzHidAPI.h"

static LONG WINAPI hostFilter(EXCEPTION_POINTERS* exception) {
  (void)exception;
  return EXCEPTION_CONTINUE_SEARCH;
}

int main(int argc, char** argv) {
  const char* how = argc > 1 ? argv[1] : "none";
  volatile int* volatile nowhere = NULL;
  QZ_ExceptionFilter own;
  SetUnhandledExceptionFilter(hostFilter);
  if (QZ_GenerateDumplog() != hostFilter) return 2;
  own = QZ_GenerateDumplog();
  if (own == NULL || own == hostFilter || own != QZ_GenerateDumplog()) return 3;
  if (strcmp(how, "null") == 0) *nowhere = 1; /* NOLINT: it is meant to crash */
  return 0;
}
