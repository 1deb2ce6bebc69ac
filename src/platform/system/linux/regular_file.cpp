#include <fcntl.h>
#include <sys/stat.h>

#include <utility>

#include "platform/system/linux/system_call.h"

namespace qzhid::platform {

namespace {

Status RefuseIrregular(const struct stat& facts) {
  if (S_ISREG(facts.st_mode)) return {};
  return Status::Failure(S_ISDIR(facts.st_mode) ? EISDIR : EINVAL);
}

Status OpenRegularFile(const char* path, CFileHandle& file, std::size_t& size) {
  struct stat facts {};
  // Opening alone can block, or do something to a device.
  if (stat(path, &facts) != 0) return LastFailure();
  if (const Status status = RefuseIrregular(facts); !status) return status;
  // Another file may have the path by now.
  file = OpenFile(path, O_RDONLY | O_NONBLOCK | O_NOCTTY);
  if (!file || fstat(file.get(), &facts) != 0) return LastFailure();
  size = static_cast<std::size_t>(facts.st_size);
  return RefuseIrregular(facts);
}

}  // namespace

Status ReadRegularFile(const char* path, std::vector<std::uint8_t>& bytes) {
  CFileHandle file;
  std::size_t size = 0;
  if (const Status status = OpenRegularFile(path, file, size); !status) return status;
  // With room for one byte more, which shows that the file grows.
  std::vector<std::uint8_t> contents(size + 1);
  std::size_t held = 0;
  while (held < contents.size()) {
    const ssize_t count = Uninterrupted(
        [&] { return read(file.get(), contents.data() + held, contents.size() - held); });
    if (count < 0) return LastFailure();
    if (count == 0) break;
    held += static_cast<std::size_t>(count);
  }
  if (held != size) return Status::Failure(EBUSY);
  contents.pop_back();
  bytes = std::move(contents);
  return {};
}

}  // namespace qzhid::platform
