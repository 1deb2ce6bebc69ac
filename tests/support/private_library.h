// A copy of the library in a folder of its own: for what the library reads and writes beside its
// own file, and for what it does once a process.
#pragma once

#include <cstdlib>

#include "support/library_file.h"
#include "support/temp_file.h"

namespace qzhid::test {

class PrivateLibrary {
 public:
  explicit PrivateLibrary(const std::string& scenario) {
    std::filesystem::copy(QZ_LIBRARY_FILE, folder.path);
    WriteText(folder.At("scenario.json"), scenario);
  }

  /// Loads the library, which is then as in a fresh process, lists the hubs with that log threshold
  /// and unloads it. Returns the ids of the hubs.
  std::vector<std::string> List(int threshold) const {
    std::vector<std::string> ids = Load(file, threshold);
    EXPECT_EQ(nullptr, dlopen(file.c_str(), RTLD_NOW | RTLD_NOLOAD)) << "still loaded";
    return ids;
  }

  /// The same with the library loaded by that path; `then` is called before it is used.
  std::vector<std::string> Load(
      const std::string& path, int threshold, const std::function<void()>& then = [] {}) const {
    setenv("QZ_VIRTUAL_HUB", folder.At("scenario.json").c_str(), 1);
    const LibraryFile library(path);
    then();
    library.Log(threshold);
    std::vector<std::string> ids;
    for (const HidDevRecord& record : library.List()) {
      const std::u16string id = std::u16string(record.VID) + u':' + record.PID;
      ids.emplace_back(id.begin(), id.end());
    }
    unsetenv("QZ_VIRTUAL_HUB");
    return ids;
  }

  const ScratchFolder folder{"library"};
  const std::string name = std::filesystem::path(QZ_LIBRARY_FILE).filename().string();
  const std::string file = folder.At(name);
};

}  // namespace qzhid::test
