// A copy of the library in a folder of its own, loaded and unloaded again: each one is as a library
// is in a fresh process.
#pragma once

#include <filesystem>
#include <string>

#include "QzHidAPI.h"
#include "support/machine_test.h"
#include "windows/kernel_doubles.h"

namespace qzhid::test {

/// An empty folder that is removed again.
class TempFolder {
 public:
  explicit TempFolder(const wchar_t* name) : m_Path(std::filesystem::temp_directory_path() / name) {
    std::filesystem::remove_all(m_Path);
    std::filesystem::create_directories(m_Path);
  }
  ~TempFolder() {
    std::error_code ignored;
    std::filesystem::remove_all(m_Path, ignored);
  }
  TempFolder(const TempFolder&) = delete;
  TempFolder& operator=(const TempFolder&) = delete;

  const std::filesystem::path& path() const { return m_Path; }
  /// The path of a file in it, in the ANSI code page.
  std::string Narrow(const wchar_t* file) const {
    const std::wstring wide = (m_Path / file).wstring();
    char narrow[1024] = {};
    WideCharToMultiByte(CP_ACP, 0, wide.c_str(), -1, narrow, sizeof(narrow), nullptr, nullptr);
    return narrow;
  }

 private:
  const std::filesystem::path m_Path;
};

class LoadedCopy {
 public:
  explicit LoadedCopy(const TempFolder& folder) {
    // Under another name, so that the loader does not take it for the one that is loaded already.
    const std::filesystem::path file = folder.path() / L"copy.dll";
    std::filesystem::copy_file(L"QzHidAPI.dll", file,
                               std::filesystem::copy_options::overwrite_existing);
    m_Module = LoadLibraryW(file.wstring().c_str());
    if (m_Module == nullptr) throw std::runtime_error("the library cannot be loaded");
    doubles::UseKernelDoubles(m_Module);
  }
  ~LoadedCopy() { FreeLibrary(m_Module); }
  LoadedCopy(const LoadedCopy&) = delete;
  LoadedCopy& operator=(const LoadedCopy&) = delete;

  /// The export that is declared as `declared` and has that name.
  template <class Function>
  Function* Export(Function*, const char* name) const {
    void* const found = reinterpret_cast<void*>(GetProcAddress(m_Module, name));
    return reinterpret_cast<Function*>(found);
  }
#define QZ_EXPORT(copy, name) (copy).Export(&(name), #name)

  std::uint32_t List() const {
    HidDevRecord* list = nullptr;
    std::uint32_t count = 0;
    QZ_EXPORT(*this, QZ_ListAllHidDev)(&list, &count);
    QZ_EXPORT(*this, QZ_FreeDevList)(list);
    return count;
  }

 private:
  HMODULE m_Module;
};

/// A machine, without the library that the program itself is linked with.
class LoadedCopyTest : public ::testing::Test {
 protected:
  ~LoadedCopyTest() override { virtualhub::UninstallMachine(); }
  void Install(const char* json) { machine = &virtualhub::InstallMachine(json); }

  virtualhub::Machine* machine = &virtualhub::InstallMachine(RecordedScenario());
  const TempFolder folder{L"Größe ½"};
};

}  // namespace qzhid::test
