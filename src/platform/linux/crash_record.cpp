// The crash record: a text file with signal, fault address, backtrace and modules.
//
// Once a signal has arrived only async-signal-safe calls are made. glibc's backtrace is one of them
// after its first call, which loads the unwinder; that call is made on installing.
#include <execinfo.h>
#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <mutex>

#include "platform/platform.h"

namespace qzhid::platform {

namespace {

constexpr const char* kRecordName = "ConsoleApplication1.dmp";
constexpr std::size_t kAlternateStackSize = 64 * 1024;
constexpr int kMaxFrames = 64;

struct FatalSignal {
  int number;
  const char* name;
  struct sigaction previous;
};
FatalSignal g_Signals[] = {
    {SIGSEGV, "SIGSEGV", {}}, {SIGBUS, "SIGBUS", {}}, {SIGILL, "SIGILL", {}},
    {SIGFPE, "SIGFPE", {}},   {SIGSYS, "SIGSYS", {}}, {SIGABRT, "SIGABRT", {}},
};

void Write(int file, const char* text, std::size_t length) {
  while (length > 0) {
    const ssize_t written = write(file, text, length);
    if (written < 0 && errno == EINTR) continue;
    if (written <= 0) return;
    text += written;
    length -= static_cast<std::size_t>(written);
  }
}

void WriteText(int file, const char* text) { Write(file, text, std::strlen(text)); }

void WriteNumber(int file, std::uint64_t value, unsigned base) {
  char digits[24];
  std::size_t first = sizeof(digits);
  do {
    digits[--first] = "0123456789abcdef"[value % base];
    value /= base;
  } while (value != 0);
  Write(file, digits + first, sizeof(digits) - first);
}

void WriteModules(int file) {
  const int maps = open("/proc/self/maps", O_RDONLY | O_CLOEXEC);
  if (maps < 0) return;
  char chunk[512];
  for (;;) {
    const ssize_t length = read(maps, chunk, sizeof(chunk));
    if (length < 0 && errno == EINTR) continue;
    if (length <= 0) break;
    Write(file, chunk, static_cast<std::size_t>(length));
  }
  close(maps);
}

void WriteRecord(const FatalSignal& signal, const siginfo_t& info) {
  const int file = open(kRecordName, O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
  if (file < 0) return;
  WriteText(file, "Signal: ");
  WriteNumber(file, static_cast<std::uint64_t>(signal.number), 10);
  WriteText(file, " (");
  WriteText(file, signal.name);
  WriteText(file, ")\nFault address: 0x");
  WriteNumber(file, reinterpret_cast<std::uintptr_t>(info.si_addr), 16);
  WriteText(file, "\nProcess: ");
  WriteNumber(file, static_cast<std::uint64_t>(getpid()), 10);
  WriteText(file, "\nBacktrace:\n");
  void* frames[kMaxFrames];
  backtrace_symbols_fd(frames, backtrace(frames, kMaxFrames), file);
  WriteText(file, "Modules:\n");
  WriteModules(file);
  close(file);
}

void HandleFatalSignal(int number, siginfo_t* info, void*) {
  for (const FatalSignal& signal : g_Signals) {
    if (signal.number != number) continue;
    // A fault while writing the record takes the previous action at once.
    sigaction(number, &signal.previous, nullptr);
    WriteRecord(signal, *info);
  }
  // The kernel repeats a fault when this returns; a signal that was sent has to be sent again.
  if (info->si_code <= 0) raise(number);
}

using Handler = void (*)(int, siginfo_t*, void*);

QZ_ExceptionFilter ToFilter(const struct sigaction& action) {
  if ((action.sa_flags & SA_SIGINFO) != 0) {
    return reinterpret_cast<QZ_ExceptionFilter>(reinterpret_cast<void*>(action.sa_sigaction));
  }
  return action.sa_handler == SIG_DFL || action.sa_handler == SIG_IGN ? nullptr : action.sa_handler;
}

bool IsOurs(const struct sigaction& action) {
  return (action.sa_flags & SA_SIGINFO) != 0 && action.sa_sigaction == &HandleFatalSignal;
}

// A handler on its own stack also sees the overflow of the stack of the thread that installs it.
void UseAlternateStack() {
  alignas(16) static std::array<char, kAlternateStackSize> memory;
  stack_t current{};
  if (sigaltstack(nullptr, &current) != 0 || (current.ss_flags & SS_DISABLE) == 0) return;
  stack_t own{};
  own.ss_sp = memory.data();
  own.ss_size = memory.size();
  sigaltstack(&own, nullptr);
}

void Install(FatalSignal& signal) {
  struct sigaction current {};
  if (sigaction(signal.number, nullptr, &current) != 0 || IsOurs(current)) return;
  signal.previous = current;
  struct sigaction action {};
  action.sa_sigaction = &HandleFatalSignal;
  action.sa_flags = SA_SIGINFO | SA_ONSTACK;
  sigemptyset(&action.sa_mask);
  sigaction(signal.number, &action, nullptr);
}

}  // namespace

QZ_ExceptionFilter InstallCrashHandler() {
  static std::mutex lock;
  const std::lock_guard<std::mutex> guard(lock);
  void* frame = nullptr;
  backtrace(&frame, 1);
  static std::once_flag once;
  std::call_once(once, UseAlternateStack);
  struct sigaction before {};
  sigaction(SIGSEGV, nullptr, &before);
  for (FatalSignal& signal : g_Signals) Install(signal);
  return ToFilter(before);
}

}  // namespace qzhid::platform
