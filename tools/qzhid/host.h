// What all commands share: the global options, the library, its log, and the way to report.
#pragma once

#include <filesystem>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <vector>

#include "qzhid/failure.h"
#include "qzhid/library.h"

namespace qzhid {

struct Options {
  std::string libraryFile;
  bool isVirtual = false;
  std::string log;
  int logLevel = 0;
  bool isJson = false;
  bool isQuiet = false;
  bool isPlain = false;
  bool isVerbose = false;
};

class Host {
 public:
  Host() = default;
  Host(const Host&) = delete;
  Host& operator=(const Host&) = delete;
  ~Host();

  Options& Settings() { return options_; }

  /// The library, loaded at the first call. Throws Failure when it cannot be.
  const Library& Api();

  /// A command's result on standard output: the object with --json, else the text, which ends with
  /// a newline; the text not with --quiet.
  void Report(const nlohmann::ordered_json& object, const std::string& text) const;

  /// One line on standard error, with --verbose the log's last failure lines behind it, with
  /// --json an object on standard output. Returns the exit status.
  int Report(const Failure& failure);

  /// Colours and moving bars on standard error are welcome.
  bool IsColourful() const;

 private:
  void StartLog();
  std::vector<std::string> LastFailures() const;

  Options options_;
  std::optional<Library> library_;
  std::filesystem::path logFile_;
  std::filesystem::path temporary_;
};

}  // namespace qzhid
