#include "qzhid/system.h"

#include <dlfcn.h>
#include <link.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <string_view>

namespace qzhid::system {

std::vector<std::string> LibraryFiles(const std::filesystem::path& folder, bool isVirtual) {
  constexpr const char* kName = "libQzHidAPI.so.1";
  // In a build folder, where both are installed, in the archive for any Linux, and in RPM packages.
  const std::filesystem::path top = folder.parent_path();
  if (isVirtual) {
    return {(top / "lib/virtual" / kName).string(),
            (folder / QZHID_VIRTUAL_LIBRARY_FOLDER / kName).string(),
            (top / "lib/qzhidapi/virtual" / kName).string(),
            (top / "lib64/qzhidapi/virtual" / kName).string()};
  }
  // After the files that come with the program, the one that the system's loader finds.
  return {(top / "lib" / kName).string(), (folder / QZHID_LIBRARY_FOLDER / kName).string(),
          (top / "lib64" / kName).string(), kName};
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

void UnloadLibraryFile(void* library) { dlclose(library); }

void* FindFunction(void* library, const char* name) { return dlsym(library, name); }

static std::filesystem::path FileOfLibrary(void* library) {
  const link_map* map = nullptr;
  return dlinfo(library, RTLD_DI_LINKMAP, &map) == 0 ? map->l_name : "";
}

std::filesystem::path LibraryFolder(void* library) { return FileOfLibrary(library).parent_path(); }

std::string LibraryVersion(void* library) {
  constexpr std::string_view kBefore = ".so.";
  std::error_code error;
  const std::string name =
      std::filesystem::canonical(FileOfLibrary(library), error).filename().string();
  const std::size_t at = name.find(kBefore);
  return at == std::string::npos ? "" : name.substr(at + kBefore.size());
}

std::string HostName() {
  std::array<char, 256> name{};
  return gethostname(name.data(), name.size() - 1) == 0 ? name.data() : "";
}

bool IsTerminal(Stream stream) { return isatty(static_cast<int>(stream)) == 1; }

void PassBytesUnchanged(Stream) {}

TerminalSize DrawableTerminal() {
  constexpr TerminalSize kUsual{80, 24};
  if (!IsTerminal(Stream::Errors)) return {};
  winsize size{};
  if (ioctl(STDERR_FILENO, TIOCGWINSZ, &size) != 0 || size.ws_col == 0) return kUsual;
  return {size.ws_col, size.ws_row};
}

const std::vector<int> kInterrupts = {SIGINT, SIGTERM};
const bool kThreadsStartLog = false;

void OutliveReaders() {
  static_cast<void>(std::signal(SIGPIPE, SIG_IGN));
  static_cast<void>(std::signal(SIGHUP, SIG_IGN));
}

std::string StatusText(std::uint32_t status) {
  switch (status) {
    case EPIPE:
      return "the hub or the target refused it";
    case ENODEV:
    case EPROTO:
      return "the hub left";
    case ETIMEDOUT:
      return "no answer in time";
    case UINT32_MAX:
      return "rejected by the library";
    default:
      return std::strerror(static_cast<int>(status));
  }
}

std::filesystem::path ConfigFolder() {
  const char* const chosen = std::getenv("XDG_CONFIG_HOME");
  if (chosen != nullptr && *chosen == '/') return chosen;  // a relative one does not count
  const char* const home = std::getenv("HOME");
  return home != nullptr && *home != '\0' ? std::filesystem::path(home) / ".config"
                                          : std::filesystem::path();
}

std::filesystem::path MakePrivateFolder() {
  std::error_code error;
  const std::filesystem::path folder = std::filesystem::temp_directory_path(error);
  if (error) return {};
  std::string name = (folder / "qzhid-XXXXXX").string();
  return mkdtemp(name.data()) != nullptr ? std::filesystem::path(name) : std::filesystem::path();
}

}  // namespace qzhid::system
