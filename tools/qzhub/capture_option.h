#pragma once

#include <string>

#include "virtualhub/scenario/scenario.h"

namespace CLI {
class App;
}

namespace qzhub {

/// Adds "--capture", a file for what passes on the wire; empty for none.
void AddCaptureOption(CLI::App& command, std::string& file);

/// A machine with that scenario then writes the file, which is replaced. Nothing changes for an
/// empty name. Throws std::runtime_error with a text for the user.
void CaptureTo(const std::string& file, virtualhub::Scenario& scenario);

}  // namespace qzhub
