// The whole terminal, while a program draws on it.
#pragma once

#include <string>
#include <vector>

#include "qzhid/canvas.h"
#include "qzhid/system.h"

namespace qzhid {

/// What is set up in a terminal before it is drawn on, and set back after that.
class TerminalSetup {
 public:
  /// From now on the terminal does not show what is typed. A bar-code reader types, too.
  TerminalSetup();
  ~TerminalSetup();
  TerminalSetup(const TerminalSetup&) = delete;
  TerminalSetup& operator=(const TerminalSetup&) = delete;

  bool HasUtf8() const { return hasUtf8_; }

 private:
  bool hasUtf8_ = false;
  bool isQuiet_ = false;                           ///< what is typed was shown before
  [[maybe_unused]] unsigned int oldCodePage_ = 0;  ///< of a Windows console
};

/// While an object of this class lives, its lines are all that the terminal on standard error
/// shows; after that the terminal shows again what it showed before.
class TerminalScreen {
 public:
  TerminalScreen();
  ~TerminalScreen();
  TerminalScreen(const TerminalScreen&) = delete;
  TerminalScreen& operator=(const TerminalScreen&) = delete;

  bool HasUtf8() const { return setup_.HasUtf8(); }

  /// Shows these lines, which fill a terminal of that size. Only those that changed are written.
  void Draw(const std::vector<std::string>& lines, const system::TerminalSize& size);

 private:
  TerminalSetup setup_;
  std::vector<std::string> drawn_;
  std::size_t columns_ = 0;
};

}  // namespace qzhid
