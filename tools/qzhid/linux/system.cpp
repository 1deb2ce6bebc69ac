#include "qzhid/system.h"

#include <dlfcn.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <cstring>

namespace qzhid::system {

std::vector<std::string> LibraryFiles(const std::filesystem::path& folder, bool isVirtual) {
  constexpr const char* kName = "libQzHidAPI.so.1";
  // In a build folder, and where both are installed.
  const std::filesystem::path built = folder.parent_path() / "lib";
  if (isVirtual) {
    return {(built / "virtual" / kName).string(),
            (folder / QZHID_VIRTUAL_LIBRARY_FOLDER / kName).string()};
  }
  // Behind the files beside the program comes the one that the system's loader finds.
  return {(built / kName).string(), (folder / QZHID_LIBRARY_FOLDER / kName).string(), kName};
}

std::filesystem::path ProgramFolder() {
  std::error_code error;
  return std::filesystem::read_symlink("/proc/self/exe", error).parent_path();
}

void* LoadLibraryFile(const std::string& file, std::string& reason) {
  void* library = dlopen(file.c_str(), RTLD_NOW | RTLD_LOCAL);
  if (library == nullptr) reason = dlerror();
  return library;
}

void* FindFunction(void* library, const char* name) { return dlsym(library, name); }

bool IsTerminal(Stream stream) { return isatty(static_cast<int>(stream)) == 1; }

void PassBytesUnchanged(Stream) {}

void WriteFromSignal(const char* text) {
  // A text that cannot be shown has nobody to miss it.
  [[maybe_unused]] const auto written = write(STDERR_FILENO, text, std::strlen(text));
}

void OutliveReaders() {
  static_cast<void>(std::signal(SIGPIPE, SIG_IGN));
  static_cast<void>(std::signal(SIGHUP, SIG_IGN));
}

std::filesystem::path MakePrivateFolder() {
  std::error_code error;
  std::string name = (std::filesystem::temp_directory_path(error) / "qzhid-XXXXXX").string();
  return mkdtemp(name.data()) != nullptr ? std::filesystem::path(name) : std::filesystem::path();
}

}  // namespace qzhid::system
