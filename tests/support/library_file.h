// A library file that a test loads and unloads.
#pragma once

#include <dlfcn.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <vector>

#include "QzHidAPI.h"

namespace qzhid::test {

/// For the name of a test with that library.
inline std::string LibraryName(const std::string& file) {
  return file.find("/virtual/") != std::string::npos ? "Virtual" : "Native";
}

class LibraryFile {
 public:
  explicit LibraryFile(const std::string& file)
      : m_pLoaded(dlopen(file.c_str(), RTLD_NOW | RTLD_LOCAL)) {
    EXPECT_NE(nullptr, m_pLoaded) << dlerror();
  }
  ~LibraryFile() { dlclose(m_pLoaded); }
  LibraryFile(const LibraryFile&) = delete;
  LibraryFile& operator=(const LibraryFile&) = delete;

  /// The export of that name.
  template <class Function>
  Function* Find(const char* name) const {
    return reinterpret_cast<Function*>(dlsym(m_pLoaded, name));
  }

  std::vector<HidDevRecord> List() const {
    HidDevRecord* list = nullptr;
    std::uint32_t count = 0;
    Find<decltype(QZ_ListAllHidDev)>("QZ_ListAllHidDev")(&list, &count);
    std::vector<HidDevRecord> records(list, list + (list != nullptr ? count : 0));
    Find<decltype(QZ_FreeDevList)>("QZ_FreeDevList")(list);
    return records;
  }

  /// Logs from that level on, to that file or to the default one.
  void Log(int level, const std::string& path = "") const {
    Find<decltype(QZ_SetLogPath)>("QZ_SetLogPath")(path.c_str());
    Find<decltype(QZ_ConfigLog)>("QZ_ConfigLog")(1, level);
  }

 private:
  void* const m_pLoaded;
};

}  // namespace qzhid::test
