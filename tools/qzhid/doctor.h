// What works on this machine, and what does not.
#pragma once

#include <string>
#include <vector>

namespace qzhid {

struct Finding {
  bool isFine;
  std::string what;
  std::string remedy;  ///< empty when nothing needs to be done
};

/// What hubs need of the operating system: its version, its drivers, its permissions.
std::vector<Finding> ExamineSystem();

/// What the user can do about a system that lets nobody open a hub; empty when it is fine.
std::string SystemRemedy();

}  // namespace qzhid
