// All that support needs to know about a computer and its hubs, in one file.
#pragma once

#include <string>
#include <vector>

#include "qzhid/bundle/archive.h"

namespace qzhid {

struct BundleOptions {
  std::string file;               ///< ends in .zip, .tar.gz or .tgz
  std::vector<std::string> logs;  ///< of the library
  bool hasNames = false;          ///< serial numbers and names of users and computers stay
  bool isYes = false;             ///< without a question
};

/// Rejects, by Failure, options by which no bundle can be written.
void CheckBundle(const BundleOptions& options);

/// What goes into the bundle: the evidence of the system, the logs and what explain says about
/// them, and what the caller knows.
std::vector<ArchiveEntry> CollectBundle(const BundleOptions& options,
                                        std::vector<ArchiveEntry> known);

/// Says what is in the bundle, asks whether to write it, and writes it. Throws Failure when it is
/// not to be written or cannot be.
void WriteBundle(const BundleOptions& options, const std::vector<ArchiveEntry>& entries);

}  // namespace qzhid
