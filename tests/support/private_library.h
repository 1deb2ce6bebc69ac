// A copy of the library in a folder of its own: for what the library reads and writes beside its
// own file, and for what it does once a process.
#pragma once

#include <dlfcn.h>

#include <cstdlib>

#include "support/machine_test.h"

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
    setenv("QZ_VIRTUAL_HUB", folder.At("scenario.json").c_str(), 1);
    void* const loaded = dlopen(File().c_str(), RTLD_NOW | RTLD_LOCAL);
    EXPECT_NE(nullptr, loaded) << dlerror();
    std::vector<std::string> ids = ListWith(loaded, threshold);
    dlclose(loaded);
    EXPECT_EQ(nullptr, dlopen(File().c_str(), RTLD_NOW | RTLD_NOLOAD)) << "still loaded";
    unsetenv("QZ_VIRTUAL_HUB");
    return ids;
  }

  /// The same with a library that stays loaded.
  static std::vector<std::string> ListWith(void* loaded, int threshold) {
    HidDevRecord* list = nullptr;
    std::uint32_t count = 0;
    Find<decltype(QZ_ConfigLog)>(loaded, "QZ_ConfigLog")(1, threshold);
    Find<decltype(QZ_ListAllHidDev)>(loaded, "QZ_ListAllHidDev")(&list, &count);
    std::vector<std::string> ids;
    for (const HidDevRecord* record = list; list != nullptr && record < list + count; ++record) {
      ids.push_back(Narrow(record->VID) + ":" + Narrow(record->PID));
    }
    Find<decltype(QZ_FreeDevList)>(loaded, "QZ_FreeDevList")(list);
    return ids;
  }

  std::string File() const {
    return folder.At(std::filesystem::path(QZ_LIBRARY_FILE).filename().string());
  }

  const ScratchFolder folder{"library"};

 private:
  template <class Function>
  static Function* Find(void* loaded, const char* name) {
    return reinterpret_cast<Function*>(dlsym(loaded, name));
  }
  static std::string Narrow(const QZ_Utf16* text) {
    std::string narrow;
    for (; *text != 0; ++text) narrow += static_cast<char>(*text);
    return narrow;
  }
};

}  // namespace qzhid::test
