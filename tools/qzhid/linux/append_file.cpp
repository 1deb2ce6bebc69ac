#include "qzhid/append_file.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <utility>

#include "common/descriptor.h"

namespace qzhid {

namespace {

constexpr int kTries = 20;
constexpr useconds_t kBetweenTriesUs = 100000;

[[noreturn]] void Fail(const std::string& what, int error) {
  throw tools::FileError(what + ": " + std::strerror(error));
}

// Also the entry in its folder, which is new.
void SyncFolder(const std::filesystem::path& path) {
  const std::filesystem::path folder = std::filesystem::absolute(path).parent_path();
  const tools::Descriptor opened(open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  fsync(opened.get());  // not every file system can
}

std::uint64_t SizeOf(int file) {
  struct stat facts {};
  if (fstat(file, &facts) != 0) Fail("cannot be examined", errno);
  if (!S_ISREG(facts.st_mode)) throw tools::FileError("is not a regular file");
  return static_cast<std::uint64_t>(facts.st_size);
}

}  // namespace

struct AppendFile::Data {
  tools::Descriptor file;
  std::filesystem::path path;

  // What is appended to a file that nobody finds any more is lost.
  void CheckPlace() const {
    struct stat opened {};
    struct stat found {};
    const bool isThere = fstat(file.get(), &opened) == 0 && stat(path.c_str(), &found) == 0 &&
                         opened.st_dev == found.st_dev && opened.st_ino == found.st_ino;
    if (!isThere) throw tools::FileError("was moved, replaced or deleted");
  }
};

AppendFile::AppendFile(const std::filesystem::path& path) {
  constexpr mode_t kMode = 0666;
  tools::Descriptor file(
      open(path.c_str(), O_RDWR | O_APPEND | O_CREAT | O_CLOEXEC | O_NONBLOCK, kMode));
  if (!file) Fail("cannot be opened", errno);
  SizeOf(file.get());
  for (int tries = 1; flock(file.get(), LOCK_EX | LOCK_NB) != 0; ++tries) {
    if (errno != EWOULDBLOCK) break;  // not every file system can
    if (tries == kTries) throw tools::FileError("is open in another station");
    usleep(kBetweenTriesUs);
  }
  SyncFolder(path);
  data_.reset(new Data{std::move(file), std::filesystem::absolute(path)});
}

AppendFile::~AppendFile() = default;

void AppendFile::Append(const std::string& text) {
  data_->CheckPlace();
  const int file = data_->file.get();
  const std::uint64_t size = SizeOf(file);
  ssize_t written = 0;
  do {
    written = write(file, text.data(), text.size());
  } while (written < 0 && errno == EINTR);
  int error = written < 0 ? errno : ENOSPC;
  if (written == static_cast<ssize_t>(text.size())) {
    if (fsync(file) == 0) return;
    error = errno;
  }
  if (ftruncate(file, static_cast<off_t>(size)) != 0) error = errno;
  Fail("cannot be written", error);
}

void AppendFile::Reserve(std::size_t bytes) {
  data_->CheckPlace();
  const int file = data_->file.get();
  const std::uint64_t size = SizeOf(file);
  rlimit limit{};
  if (getrlimit(RLIMIT_FSIZE, &limit) == 0 && limit.rlim_cur != RLIM_INFINITY &&
      size + bytes > limit.rlim_cur) {
    Fail("has no room for more", EFBIG);
  }
  if (fallocate(file, FALLOC_FL_KEEP_SIZE, static_cast<off_t>(size), static_cast<off_t>(bytes)) ==
      0) {
    return;
  }
  if (errno != EOPNOTSUPP && errno != ENOSYS) Fail("has no room for more", errno);
  struct statvfs disk {};
  if (fstatvfs(file, &disk) == 0 && disk.f_bavail * disk.f_frsize < bytes) {
    Fail("has no room for more", ENOSPC);
  }
}

void AppendFile::Cut(std::uint64_t size) {
  if (ftruncate(data_->file.get(), static_cast<off_t>(size)) != 0) {
    Fail("cannot be shortened", errno);
  }
  fsync(data_->file.get());
}

}  // namespace qzhid
