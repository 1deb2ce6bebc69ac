#include <termios.h>
#include <unistd.h>

#include <cstdlib>
#include <string>

#include "qzhid/terminal_screen.h"

namespace qzhid {

namespace {

// What the user's settings say about the letters of a terminal.
bool IsLocaleUtf8() {
  for (const char* const name : {"LC_ALL", "LC_CTYPE", "LANG"}) {
    const char* const value = std::getenv(name);
    if (value == nullptr || *value == '\0') continue;  // the next one counts
    const std::string locale(value);
    return locale.find("UTF-8") != std::string::npos || locale.find("utf8") != std::string::npos;
  }
  return false;
}

// Whether what is typed is shown from now on; whether that was changed.
bool SetEcho(bool isShown) {
  termios mode{};
  // A program in the background would be stopped when it changes the terminal.
  if (tcgetattr(STDIN_FILENO, &mode) != 0 || tcgetpgrp(STDIN_FILENO) != getpgrp()) return false;
  if (((mode.c_lflag & ECHO) != 0) == isShown) return false;
  mode.c_lflag ^= ECHO;
  return tcsetattr(STDIN_FILENO, TCSANOW, &mode) == 0;
}

}  // namespace

TerminalSetup::TerminalSetup() : hasUtf8_(IsLocaleUtf8()), isQuiet_(SetEcho(false)) {}

TerminalSetup::~TerminalSetup() {
  if (isQuiet_) SetEcho(true);
}

}  // namespace qzhid
