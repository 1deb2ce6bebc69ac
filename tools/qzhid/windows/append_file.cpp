#include "qzhid/append_file.h"

#include <windows.h>

namespace qzhid {

namespace {

constexpr int kTries = 20;
constexpr DWORD kBetweenTriesMs = 100;

[[noreturn]] void Fail(const std::string& what, DWORD error = GetLastError()) {
  throw tools::FileError(what + ": system error " + std::to_string(error));
}

LARGE_INTEGER SizeOf(HANDLE file) {
  LARGE_INTEGER size{};
  if (GetFileSizeEx(file, &size) == 0) Fail("cannot be examined");
  return size;
}

void CutAt(HANDLE file, LARGE_INTEGER size) {
  if (SetFilePointerEx(file, size, nullptr, FILE_BEGIN) == 0 || SetEndOfFile(file) == 0) {
    Fail("cannot be shortened");
  }
  FlushFileBuffers(file);
}

}  // namespace

struct AppendFile::Data {
  HANDLE file = INVALID_HANDLE_VALUE;
  ~Data() {
    if (file != INVALID_HANDLE_VALUE) CloseHandle(file);
  }
};

AppendFile::AppendFile(const std::filesystem::path& path) : data_(std::make_unique<Data>()) {
  for (int tries = 1;; ++tries) {
    data_->file = CreateFileW(path.c_str(), GENERIC_READ | GENERIC_WRITE, FILE_SHARE_READ, nullptr,
                              OPEN_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr);
    if (data_->file != INVALID_HANDLE_VALUE) break;
    if (GetLastError() != ERROR_SHARING_VIOLATION) Fail("cannot be opened");
    if (tries == kTries) throw tools::FileError("is open in another program");
    Sleep(kBetweenTriesMs);
  }
  if (GetFileType(data_->file) != FILE_TYPE_DISK) throw tools::FileError("is not a regular file");
}

AppendFile::~AppendFile() = default;

void AppendFile::Append(const std::string& text) {
  const HANDLE file = data_->file;
  const LARGE_INTEGER size = SizeOf(file);
  if (SetFilePointerEx(file, size, nullptr, FILE_BEGIN) == 0) Fail("cannot be written");
  DWORD written = 0;
  const auto length = static_cast<DWORD>(text.size());
  if (WriteFile(file, text.data(), length, &written, nullptr) != 0 && written == length &&
      FlushFileBuffers(file) != 0) {
    return;
  }
  const DWORD error = GetLastError();
  CutAt(file, size);
  Fail("cannot be written", error);
}

void AppendFile::Reserve(std::size_t bytes) {
  FILE_ALLOCATION_INFO room{};
  room.AllocationSize.QuadPart = SizeOf(data_->file).QuadPart + static_cast<LONGLONG>(bytes);
  if (SetFileInformationByHandle(data_->file, FileAllocationInfo, &room, sizeof(room)) != 0) {
    return;
  }
  const DWORD error = GetLastError();
  if (error == ERROR_DISK_FULL) Fail("has no room for more", error);
}

void AppendFile::Cut(std::uint64_t size) {
  LARGE_INTEGER end{};
  end.QuadPart = static_cast<LONGLONG>(size);
  CutAt(data_->file, end);
}

}  // namespace qzhid
