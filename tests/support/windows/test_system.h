// What differs between the systems that tests run on; the other one is support/linux. Here:
// Windows, with the library in its DLL.
#pragma once

#ifndef NOMINMAX
#define NOMINMAX
#endif
#include <windows.h>
#undef far  // left over from 16-bit times, and good names
#undef near

#include <gtest/gtest.h>

#include <cstdint>
#include <fstream>
#include <string>
#include <vector>

#include "QzHidAPI.h"
#include "support/log_line.h"

namespace qzhid::test {

/// What the library logs while it lives: its log file, which says nothing of levels. The file is
/// one for the whole process, as the library keeps the one that it opened first.
class ExportLog {
 public:
  ExportLog() {
    QZ_SetLogPath(Path().c_str());
    QZ_ConfigLog(1, 0);
    Clear();
  }
  ~ExportLog() { QZ_ConfigLog(0, 0); }
  ExportLog(const ExportLog&) = delete;
  ExportLog& operator=(const ExportLog&) = delete;

  /// What was logged since the last Clear.
  std::vector<LogLine> Lines() const {
    std::ifstream file(Path());
    file.seekg(m_Begin);
    std::vector<LogLine> lines;
    for (std::string line; std::getline(file, line);) {
      // A text may hold line ends of its own; only a stamp begins a line.
      if (line.compare(0, 2, "[2") == 0) {
        lines.push_back(ParseLogLine(line + '\n', kAnyLevel));
      } else if (!lines.empty()) {
        lines.back().text += line + '\n';
      }
    }
    return lines;
  }
  void Clear() { m_Begin = std::ifstream(Path(), std::ios::ate).tellg(); }

 private:
  static const std::string& Path() {
    static const std::string path = ::testing::TempDir() + "exports.log";
    return path;
  }
  std::streampos m_Begin;
};

inline constexpr std::uint32_t kStalled = ERROR_GEN_FAILURE;  // the device refuses a request
inline constexpr std::uint32_t kGone = ERROR_DEVICE_NOT_CONNECTED;
inline constexpr std::uint32_t kInvalidHandle = ERROR_INVALID_HANDLE;

}  // namespace qzhid::test
