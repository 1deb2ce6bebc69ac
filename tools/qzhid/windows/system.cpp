#include "qzhid/system.h"

#include <fcntl.h>
#include <io.h>
#include <windows.h>

#include <array>
#include <csignal>
#include <system_error>

namespace qzhid::system {

std::vector<std::string> LibraryFiles(const std::filesystem::path& folder, bool isVirtual) {
  const std::filesystem::path place = isVirtual ? folder / "virtual" : folder;
  return {(place / "QzHidAPI.dll").string()};
}

std::filesystem::path ProgramFolder() {
  std::array<wchar_t, 32768> path{};
  const DWORD length = GetModuleFileNameW(nullptr, path.data(), static_cast<DWORD>(path.size()));
  return std::filesystem::path(std::wstring(path.data(), length)).parent_path();
}

void* LoadLibraryFile(const std::string& file, std::string& reason) {
  HMODULE library = LoadLibraryA(file.c_str());
  if (library == nullptr) reason = file + ": system error " + std::to_string(GetLastError());
  return reinterpret_cast<void*>(library);
}

void UnloadLibraryFile(void* library) { FreeLibrary(reinterpret_cast<HMODULE>(library)); }

void* FindFunction(void* library, const char* name) {
  return reinterpret_cast<void*>(GetProcAddress(reinterpret_cast<HMODULE>(library), name));
}

static std::filesystem::path FileOfLibrary(void* library) {
  std::array<wchar_t, 32768> path{};
  GetModuleFileNameW(reinterpret_cast<HMODULE>(library), path.data(),
                     static_cast<DWORD>(path.size()));
  return path.data();
}

std::filesystem::path LibraryFolder(void* library) { return FileOfLibrary(library).parent_path(); }

std::string LibraryVersion(void* library) {
  const std::wstring path = FileOfLibrary(library).wstring();
  std::vector<char> facts(GetFileVersionInfoSizeW(path.c_str(), nullptr));
  VS_FIXEDFILEINFO* version = nullptr;
  UINT size = 0;
  if (facts.empty() ||
      GetFileVersionInfoW(path.c_str(), 0, static_cast<DWORD>(facts.size()), facts.data()) == 0 ||
      VerQueryValueW(facts.data(), L"\\", reinterpret_cast<void**>(&version), &size) == 0) {
    return "";
  }
  return std::to_string(HIWORD(version->dwFileVersionMS)) + '.' +
         std::to_string(LOWORD(version->dwFileVersionMS)) + '.' +
         std::to_string(HIWORD(version->dwFileVersionLS));
}

std::string HostName() {
  std::array<char, 256> name{};
  DWORD size = static_cast<DWORD>(name.size());
  return GetComputerNameExA(ComputerNameDnsHostname, name.data(), &size) != 0 ? name.data() : "";
}

bool IsTerminal(Stream stream) { return _isatty(static_cast<int>(stream)) != 0; }

void PassBytesUnchanged(Stream stream) { _setmode(static_cast<int>(stream), _O_BINARY); }

TerminalSize DrawableTerminal() {
  HANDLE console = GetStdHandle(STD_ERROR_HANDLE);
  CONSOLE_SCREEN_BUFFER_INFO info{};
  DWORD mode = 0;
  if (GetConsoleMode(console, &mode) == 0 || GetConsoleScreenBufferInfo(console, &info) == 0 ||
      SetConsoleMode(console, mode | ENABLE_VIRTUAL_TERMINAL_PROCESSING) == 0) {
    return {};
  }
  return {static_cast<std::size_t>(info.srWindow.Right - info.srWindow.Left + 1),
          static_cast<std::size_t>(info.srWindow.Bottom - info.srWindow.Top + 1)};
}

const std::vector<int> kInterrupts = {SIGINT, SIGTERM, SIGBREAK};
const bool kThreadsStartLog = true;

void OutliveReaders() {}  // a broken pipe is an ordinary error here

std::string StatusText(std::uint32_t status) {
  switch (status) {
    case ERROR_GEN_FAILURE:
      return "the hub or the target refused it";
    case ERROR_DEVICE_NOT_CONNECTED:
      return "the hub left";
    case ERROR_SEM_TIMEOUT:
      return "no answer in time";
    case UINT32_MAX:
      return "rejected by the library";
    default:
      return std::system_category().message(static_cast<int>(status));
  }
}

std::filesystem::path ConfigFolder() {
  const wchar_t* const folder = _wgetenv(L"APPDATA");
  return folder != nullptr ? std::filesystem::path(folder) : std::filesystem::path();
}

std::filesystem::path MakePrivateFolder() {
  // The temporary folder is the user's own here.
  std::error_code error;
  const std::filesystem::path parent = std::filesystem::temp_directory_path(error);
  if (error) return {};
  const std::filesystem::path folder = parent / ("qzhid-" + std::to_string(GetCurrentProcessId()) +
                                                 "-" + std::to_string(GetTickCount64()));
  if (!std::filesystem::create_directory(folder, error)) return {};
  // Where the system keeps short names, they have no letters that the library's paths cannot hold.
  std::array<wchar_t, 32768> name{};
  const DWORD length =
      GetShortPathNameW(folder.c_str(), name.data(), static_cast<DWORD>(name.size()));
  return length > 0 && length < name.size() ? std::filesystem::path(name.data()) : folder;
}

}  // namespace qzhid::system
