// What is in order on this machine, and what is not.
#pragma once

#include <string>
#include <vector>

namespace qzhid {

struct Finding {
  bool isFine;
  std::string what;
  std::string remedy;  ///< empty when nothing needs to be done
};

/// What the operating system has to do with hubs: its version, its drivers, its permissions.
std::vector<Finding> ExamineSystem();

}  // namespace qzhid
