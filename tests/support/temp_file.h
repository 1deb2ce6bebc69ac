// Files and folders of one test.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

#include "virtualhub/base/bytes.h"

namespace qzhid::test {

/// A path in the temporary folder that no other test uses, and no benchmark.
inline std::string UniquePath(const std::string& name) {
  const ::testing::TestInfo* const info = ::testing::UnitTest::GetInstance()->current_test_info();
  std::string path = info == nullptr ? std::string("benchmark")
                                     : std::string(info->test_suite_name()) + "." + info->name();
  path += "." + name;
  std::replace(path.begin(), path.end(), '/', '_');
  return ::testing::TempDir() + path;
}

inline std::string ReadText(const std::filesystem::path& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}

inline void WriteText(const std::filesystem::path& path, const std::string& text) {
  std::ofstream(path, std::ios::binary) << text;
}

/// A file that is removed again.
class TempFile {
 public:
  explicit TempFile(const virtualhub::Bytes& contents, const std::string& name = "image.bin")
      : m_strPath(UniquePath(name)) {
    WriteText(m_strPath, {contents.begin(), contents.end()});
  }
  ~TempFile() { std::remove(m_strPath.c_str()); }
  TempFile(const TempFile&) = delete;
  TempFile& operator=(const TempFile&) = delete;

  const char* path() const { return m_strPath.c_str(); }

 private:
  const std::string m_strPath;
};

/// An empty folder that is removed again with all that is in it.
class ScratchFolder {
 public:
  explicit ScratchFolder(const std::string& name = "folder") : path(UniquePath(name)) { Renew(); }
  ~ScratchFolder() { std::filesystem::remove_all(path); }
  ScratchFolder(const ScratchFolder&) = delete;
  ScratchFolder& operator=(const ScratchFolder&) = delete;

  /// Empties it, or makes it again.
  void Renew() const {
    std::filesystem::remove_all(path);
    std::filesystem::create_directories(path);
  }
  std::string At(const std::string& name) const { return (path / name).string(); }

  const std::filesystem::path path;
};

}  // namespace qzhid::test
