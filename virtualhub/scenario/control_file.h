// A file of lines that grows.
#pragma once

#include <cstddef>
#include <filesystem>
#include <string>
#include <vector>

#include "virtualhub/base/files.h"

namespace virtualhub {

/// The control file of a scenario, which several processes read, each at its own pace.
class ControlFile {
 public:
  struct Line {
    std::size_t number;  ///< in the file, from 1
    std::string text;
  };

  explicit ControlFile(std::filesystem::path path) : path_(std::move(path)) {}

  const std::filesystem::path& path() const { return path_; }

  /// The lines that have been completed since the last call. There are none while there is no file,
  /// and a file that has become shorter is read from its beginning. Throws FileError.
  std::vector<Line> TakeNew();

 private:
  void ReadTo(std::uintmax_t size);

  std::filesystem::path path_;
  std::uintmax_t read_ = 0;  // bytes
  std::size_t lines_ = 0;    // complete ones
  std::string rest_;         // what was read of a line that is not complete
};

}  // namespace virtualhub
