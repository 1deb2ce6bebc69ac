#pragma once

#include <string>

#include "virtualhub/scenario/scenario.h"

namespace qzhub {

/// The scenario of a file, or the default one for an empty name; time is real. Throws
/// std::runtime_error with the file's name when it is rejected or has no devices.
virtualhub::Scenario LoadScenario(const std::string& file);

}  // namespace qzhub
