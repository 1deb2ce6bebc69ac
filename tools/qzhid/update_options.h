// What the commands that write firmware have in common.
#pragma once

#include <CLI/CLI.hpp>
#include <cstddef>
#include <optional>
#include <string>

#include "qzhid/image.h"
#include "qzhid/update_rules.h"

namespace qzhid {

/// What is to be written, and how.
struct WriteOptions {
  std::string image;
  std::string sha256;                      ///< what the image must have; empty: any
  std::optional<std::size_t> flashSize{};  ///< of the hubs in bytes, where the user knows it
  int retries = 2;
  int patience = 30;  ///< seconds to wait for a hub that has left
  bool staysInLoader = false;
  UpdateRules rules;
};

/// --image, --flash-size, --sha256, --retries and --wait.
void AddWriteOptions(CLI::App& command, WriteOptions& options);
/// --force and --allow-older.
void AddRuleOptions(CLI::App& command, UpdateRules& rules);

/// Reads the image. Throws Failure when it is not usable or not the wanted one.
Image ReadWantedImage(const WriteOptions& options);

}  // namespace qzhid
