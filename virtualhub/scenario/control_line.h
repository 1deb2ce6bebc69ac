// What users ask of a running machine: the lines of a control file and of standard input.
#pragma once

#include <cstdint>
#include <optional>
#include <stdexcept>
#include <string>

namespace virtualhub {

/// Why a line is rejected.
class ControlError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// "plug NAME [PORT]", "unplug NAME" or "power-loss NAME [MILLISECONDS]".
struct ControlLine {
  enum class Action { Plug, Unplug, PowerLoss };

  Action action = Action::Plug;
  std::string device = {};
  std::string port = {};         ///< Plug; empty: where it was
  std::uint32_t returnMs = 500;  ///< PowerLoss
};

/// Reads one line; none for a line of blanks only. Throws ControlError. Whether there is such a
/// device is for the caller to check.
std::optional<ControlLine> ParseControlLine(const std::string& text);

}  // namespace virtualhub
