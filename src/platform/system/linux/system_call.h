// Calls of the kernel: what they return and how they fail.
#pragma once

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <utility>

#include "platform/platform.h"

namespace qzhid::platform {

/// The failure of the last system call.
inline Status LastFailure() { return Status::Failure(static_cast<std::uint32_t>(errno)); }

/// The failure of a call on an empty handle.
inline Status InvalidHandle() { return Status::Failure(EBADF); }

/// The failure of a call for a device that is not there, or is no longer.
inline Status NoDevice() { return Status::Failure(ENODEV); }

/// Repeats a call, which returns a negative number on failure, until no signal interrupts it.
template <typename Call>
auto Uninterrupted(Call call) {
  auto result = call();
  while (result < 0 && errno == EINTR) result = call();
  return result;
}

/// Owner of a file descriptor.
class CFileHandle {
 public:
  CFileHandle() = default;
  explicit CFileHandle(int file) : m_nFile(file) {}
  CFileHandle(CFileHandle&& other) noexcept : m_nFile(std::exchange(other.m_nFile, -1)) {}
  CFileHandle& operator=(CFileHandle&& other) noexcept {
    std::swap(m_nFile, other.m_nFile);
    return *this;
  }
  ~CFileHandle() { Close(); }

  /// Whether it was closed without a failure, which errno then explains.
  bool Close() { return m_nFile < 0 || close(std::exchange(m_nFile, -1)) == 0; }

  explicit operator bool() const { return m_nFile >= 0; }
  int get() const { return m_nFile; }
  /// Passes the descriptor to a new owner.
  int Release() { return std::exchange(m_nFile, -1); }

 private:
  int m_nFile = -1;
};

/// Becomes the owner of a descriptor that was just opened. A host may run with its standard input,
/// output or error closed, and what it then writes there must not reach a device or a log: such a
/// low number is replaced by a higher one, close-on-exec. Empty, with the reason in errno, when
/// `file` is negative or no higher number is left.
inline CFileHandle TakeDescriptor(int file) {
  CFileHandle taken(file);
  if (file > STDERR_FILENO || !taken) return taken;
  return CFileHandle(fcntl(file, F_DUPFD_CLOEXEC, STDERR_FILENO + 1));
}

/// Opens a file relative to an open folder, close-on-exec and never as descriptor 0, 1 or 2. Empty,
/// with the reason in errno, when it cannot be opened.
inline CFileHandle OpenFileAt(int folder, const char* path, int flags, mode_t mode = 0) {
  return TakeDescriptor(
      Uninterrupted([&] { return openat(folder, path, flags | O_CLOEXEC, mode); }));
}

/// The same for a path that is relative to the current folder, or to none.
inline CFileHandle OpenFile(const char* path, int flags, mode_t mode = 0) {
  return OpenFileAt(AT_FDCWD, path, flags, mode);
}

}  // namespace qzhid::platform
