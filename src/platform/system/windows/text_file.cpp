// Writing text files line by line.
#include "platform/system/windows/system.h"

namespace qzhid::platform {

struct TextFileData {
  HANDLE handle = INVALID_HANDLE_VALUE;
};

void TextFileCloser::operator()(TextFileData* data) const noexcept {
  if (data->handle != INVALID_HANDLE_VALUE) CloseHandle(data->handle);
  delete data;
}

namespace {

// Lines end in "\r\n" here.
std::string WithSystemLineEnds(std::string_view text) {
  std::string converted;
  converted.reserve(text.size() + 2);
  for (const char c : text) {
    if (c == '\n') converted += '\r';
    converted += c;
  }
  return converted;
}

}  // namespace

Status CreateTextFile(const char* path, TextFile& file) {
  file.reset();
  TextFile created(new TextFileData);
  created->handle =
      CreateFileW(FilePath(path).c_str(), GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_WRITE,
                  nullptr, CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr);
  if (created->handle == INVALID_HANDLE_VALUE) return LastFailure();
  file = std::move(created);
  return {};
}

void WriteTextFile(const TextFile& file, std::string_view text) {
  if (!file) return;
  const std::string bytes = WithSystemLineEnds(text);
  DWORD written = 0;
  WriteFile(file->handle, bytes.data(), static_cast<DWORD>(bytes.size()), &written, nullptr);
}

Status CloseTextFile(TextFile& file) {
  if (!file) return InvalidHandle();
  const bool isClosed = CloseHandle(file->handle) != FALSE;
  const Status status = isClosed ? Status{} : LastFailure();
  file->handle = INVALID_HANDLE_VALUE;
  file.reset();
  return status;
}

}  // namespace qzhid::platform
