// A file to which lines are appended that must not be lost.
#pragma once

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <string>

#include "common/files.h"

namespace qzhid {

/// Open for this process alone. All functions throw tools::FileError, also when the file is no
/// longer where it was.
class AppendFile {
 public:
  /// Opens it, or makes it. Waits two seconds for a process that has it open and ends.
  explicit AppendFile(const std::filesystem::path& path);
  AppendFile(const AppendFile&) = delete;
  AppendFile& operator=(const AppendFile&) = delete;
  ~AppendFile();

  /// Appends the text with one write, and returns when it is on the disk. When that fails, the file
  /// is as before.
  void Append(const std::string& text);

  /// Fails unless so many bytes can be appended, and reserves them where the system can.
  void Reserve(std::size_t bytes);

  /// Ends the file there.
  void Cut(std::uint64_t size);

 private:
  struct Data;
  std::unique_ptr<Data> data_;
};

}  // namespace qzhid
