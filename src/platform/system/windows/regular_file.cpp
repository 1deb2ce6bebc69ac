#include <algorithm>
#include <memory>
#include <utility>

#include "platform/system/windows/system.h"

namespace qzhid::platform {

namespace {

constexpr std::size_t kLongestRead = std::size_t{1} << 30;

struct FileCloser {
  void operator()(HANDLE file) const noexcept { CloseHandle(file); }
};
using File = std::unique_ptr<void, FileCloser>;

Status OpenRegularFile(const char* path, File& file, std::size_t& size) {
  const std::filesystem::path name = FilePath(path);
  // Opening alone can do something to a device.
  const DWORD attributes = GetFileAttributesW(name.c_str());
  if (attributes == INVALID_FILE_ATTRIBUTES) return LastFailure();
  if ((attributes & (FILE_ATTRIBUTE_DIRECTORY | FILE_ATTRIBUTE_DEVICE)) != 0) {
    return Status::Failure(ERROR_ACCESS_DENIED);
  }
  const HANDLE opened = CreateFileW(name.c_str(), GENERIC_READ,
                                    FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr,
                                    OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr);
  if (opened == INVALID_HANDLE_VALUE) return LastFailure();
  file.reset(opened);
  if (GetFileType(opened) != FILE_TYPE_DISK) return Status::Failure(ERROR_ACCESS_DENIED);
  LARGE_INTEGER length{};
  if (GetFileSizeEx(opened, &length) == 0) return LastFailure();
  size = static_cast<std::size_t>(length.QuadPart);
  return {};
}

}  // namespace

Status ReadRegularFile(const char* path, std::vector<std::uint8_t>& bytes) {
  File file;
  std::size_t size = 0;
  if (const Status status = OpenRegularFile(path, file, size); !status) return status;
  // With room for one byte more, which shows that the file grows.
  std::vector<std::uint8_t> contents(size + 1);
  std::size_t held = 0;
  while (held < contents.size()) {
    DWORD count = 0;
    const auto wanted = static_cast<DWORD>(std::min(contents.size() - held, kLongestRead));
    if (ReadFile(file.get(), contents.data() + held, wanted, &count, nullptr) == 0) {
      return LastFailure();
    }
    if (count == 0) break;
    held += count;
  }
  if (held != size) return Status::Failure(ERROR_SHARING_VIOLATION);
  contents.pop_back();
  bytes = std::move(contents);
  return {};
}

}  // namespace qzhid::platform
