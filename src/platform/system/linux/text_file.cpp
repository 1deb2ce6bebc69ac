// Writing text files line by line.
#include <csignal>
#include <ctime>

#include "platform/system/linux/system_call.h"

namespace qzhid::platform {

struct TextFileData {
  CFileHandle file;
};

void TextFileCloser::operator()(TextFileData* data) const noexcept { delete data; }

namespace {

bool IsPending(int signal) {
  sigset_t pending;
  return sigpending(&pending) == 0 && sigismember(&pending, signal) == 1;
}

/// While it lives, the signals that a write may raise do not reach the host: a pipe has no reader
/// any more, or a file has reached its limit. Either would end the process.
class CSignalShield {
 public:
  CSignalShield() {
    sigemptyset(&m_Raised);
    sigaddset(&m_Raised, SIGPIPE);
    sigaddset(&m_Raised, SIGXFSZ);
    pthread_sigmask(SIG_BLOCK, &m_Raised, &m_Before);
    // Signals that were pending before stay for the host.
    for (const int signal : {SIGPIPE, SIGXFSZ}) {
      if (sigismember(&m_Before, signal) == 1 && IsPending(signal)) sigdelset(&m_Raised, signal);
    }
  }
  ~CSignalShield() { pthread_sigmask(SIG_SETMASK, &m_Before, nullptr); }
  CSignalShield(const CSignalShield&) = delete;
  CSignalShield& operator=(const CSignalShield&) = delete;

  /// Discards the signals that a failed write has raised.
  void Discard() const {
    const timespec noTime{};
    while (sigtimedwait(&m_Raised, nullptr, &noTime) > 0) {
    }
  }

 private:
  sigset_t m_Raised, m_Before;
};

}  // namespace

Status CreateTextFile(const char* path, TextFile& file) {
  file.reset();
  TextFile created(new TextFileData);
  created->file = OpenFile(path, O_WRONLY | O_CREAT | O_TRUNC | O_NONBLOCK, 0666);
  if (!created->file) return LastFailure();
  file = std::move(created);
  return {};
}

void WriteTextFile(const TextFile& file, std::string_view text) {
  if (!file) return;
  const CSignalShield shield;
  while (!text.empty()) {
    const auto written =
        Uninterrupted([&] { return write(file->file.get(), text.data(), text.size()); });
    if (written <= 0) return shield.Discard();
    text.remove_prefix(static_cast<std::size_t>(written));
  }
}

Status CloseTextFile(TextFile& file) {
  if (!file) return InvalidHandle();
  const bool isClosed = file->file.Close();
  const Status status = isClosed ? Status{} : LastFailure();
  file.reset();
  return status;
}

}  // namespace qzhid::platform
