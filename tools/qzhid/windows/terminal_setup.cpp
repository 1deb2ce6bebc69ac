#include <windows.h>

#include "qzhid/terminal_screen.h"

namespace qzhid {

namespace {

// Whether what is typed is shown from now on; whether that was changed.
bool SetEcho(bool isShown) {
  HANDLE input = GetStdHandle(STD_INPUT_HANDLE);
  DWORD mode = 0;
  if (GetConsoleMode(input, &mode) == 0) return false;
  if (((mode & ENABLE_ECHO_INPUT) != 0) == isShown) return false;
  return SetConsoleMode(input, mode ^ ENABLE_ECHO_INPUT) != 0;
}

}  // namespace

TerminalSetup::TerminalSetup() : isQuiet_(SetEcho(false)), oldCodePage_(GetConsoleOutputCP()) {
  hasUtf8_ = SetConsoleOutputCP(CP_UTF8) != 0;
}

TerminalSetup::~TerminalSetup() {
  SetConsoleOutputCP(oldCodePage_);
  if (isQuiet_) SetEcho(true);
}

}  // namespace qzhid
