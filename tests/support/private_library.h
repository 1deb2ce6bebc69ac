// A copy of the library in a folder of its own, with a host that runs on it: for what the library
// reads and writes beside its own file.
#pragma once

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

#include "support/library_test.h"

namespace qzhid::test {

inline std::string ReadText(const std::filesystem::path& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}

inline void WriteText(const std::filesystem::path& path, const std::string& text) {
  std::ofstream(path, std::ios::binary) << text;
}

/// The folder is removed again.
class PrivateLibrary {
 public:
  explicit PrivateLibrary(const std::string& scenario) : m_Folder(UniquePath("library")) {
    std::filesystem::remove_all(m_Folder);
    std::filesystem::create_directories(m_Folder);
    std::filesystem::copy(QZ_LIBRARY_FILE, m_Folder);
    std::filesystem::copy(QZ_HOST_FILE, m_Folder);
    WriteText(m_Folder / "scenario.json", scenario);
  }
  ~PrivateLibrary() { std::filesystem::remove_all(m_Folder); }
  PrivateLibrary(const PrivateLibrary&) = delete;
  PrivateLibrary& operator=(const PrivateLibrary&) = delete;

  const std::filesystem::path& folder() const { return m_Folder; }

  /// Runs the host with that log threshold; what it printed.
  std::string List(int threshold) const {
    const auto host = m_Folder / std::filesystem::path(QZ_HOST_FILE).filename();
    const auto output = m_Folder / "output.txt";
    setenv("QZ_VIRTUAL_HUB", (m_Folder / "scenario.json").c_str(), 1);
    const std::string command =
        host.string() + " " + std::to_string(threshold) + " > " + output.string();
    EXPECT_EQ(0, std::system(command.c_str()));
    unsetenv("QZ_VIRTUAL_HUB");
    return ReadText(output);
  }

 private:
  std::filesystem::path m_Folder;
};

}  // namespace qzhid::test
