// A copy of the library in a folder of its own, loaded and unloaded again: each one is as a library
// is in a fresh process.
#pragma once

#include "support/machine_test.h"
#include "windows/kernel_doubles.h"

namespace qzhid::test {

namespace fs = std::filesystem;

class LoadedCopy {
 public:
  explicit LoadedCopy(const fs::path& folder) {
    // Under another name, so that the loader does not take it for the one that is loaded already.
    const fs::path file = folder / L"copy.dll";
    fs::copy_file(L"QzHidAPI.dll", file, fs::copy_options::overwrite_existing);
    m_Module = LoadLibraryW(file.wstring().c_str());
    if (m_Module == nullptr) throw std::runtime_error("the library cannot be loaded");
    UseKernelDoubles(m_Module);
  }
  ~LoadedCopy() { FreeLibrary(m_Module); }
  LoadedCopy(const LoadedCopy&) = delete;
  LoadedCopy& operator=(const LoadedCopy&) = delete;

  /// Calls the export that is declared as `declared` and has that name.
  template <class Result, class... Parameters>
  Result Call(Result(declared)(Parameters...), const char* name,
              std::type_identity_t<Parameters>... arguments) const {
    void* const found = reinterpret_cast<void*>(GetProcAddress(m_Module, name));
    return reinterpret_cast<decltype(declared)>(found)(arguments...);
  }
#define QZ_CALL(copy, name, ...) (copy).Call(&(name), #name, __VA_ARGS__)

  std::uint32_t List() const {
    HidDevRecord* list = nullptr;
    std::uint32_t count = 0;
    QZ_CALL(*this, QZ_ListAllHidDev, &list, &count);
    QZ_CALL(*this, QZ_FreeDevList, list);
    return count;
  }

 private:
  HMODULE m_Module;
};

/// A machine and an empty folder, without the library that the program itself is linked with.
class LoadedCopyTest : public ::testing::Test {
 protected:
  LoadedCopyTest() { fs::create_directory(folder); }
  ~LoadedCopyTest() override { virtualhub::UninstallMachine(); }

  /// The path of a file in the folder, in the ANSI code page.
  std::string Narrow(const wchar_t* file) const {
    return platform::ToNarrow((folder / file).wstring());
  }

  virtualhub::Machine* machine = &virtualhub::InstallMachine(RecordedScenario());
  const ScratchFolder m_Scratch;
  const fs::path folder = m_Scratch.path / L"Größe ½";
};

}  // namespace qzhid::test
