// The crash record: a text file with signal, fault address, backtrace and modules.
//
// Once a signal has arrived only async-signal-safe calls are made. glibc's backtrace is one of them
// after its first call, which loads the unwinder; that call is made on installing.
#include <dlfcn.h>
#include <execinfo.h>
#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstring>
#include <mutex>

#include "platform/platform.h"
#include "platform/system/linux/crash_entry.h"
#include "platform/system/linux/signal_stack.h"
#include "platform/system/linux/system_call.h"

namespace qzhid::platform {

namespace {

constexpr const char* kRecordName = "ConsoleApplication1.dmp";
constexpr int kMaxFrames = 64;

struct FatalSignal {
  const char* name;
  struct sigaction first;     // the action before the first installation
  struct sigaction previous;  // the action that follows
  int number;
  bool isInstalled;
};
FatalSignal g_Signals[] = {
    {"SIGSEGV", {}, {}, SIGSEGV, false}, {"SIGBUS", {}, {}, SIGBUS, false},
    {"SIGILL", {}, {}, SIGILL, false},   {"SIGFPE", {}, {}, SIGFPE, false},
    {"SIGSYS", {}, {}, SIGSYS, false},   {"SIGABRT", {}, {}, SIGABRT, false},
};

std::mutex g_Lock;
SignalHandler g_Handler = nullptr;  // what is installed
bool g_bPinned = false;             // the library stays loaded
bool g_bMayBeChained = false;       // another handler may call what is installed

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

// A new file: anything that has the name is removed, so that no link is followed and there is no
// wait for the reader of a FIFO.
CFileHandle CreateRecord() {
  unlink(kRecordName);
  return OpenFile(kRecordName, O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW, 0644);
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

bool IsSent(const siginfo_t& info) { return info.si_code <= 0; }

void WriteOrigin(int file, const siginfo_t& info) {
  if (IsSent(info)) {
    WriteText(file, "\nSent by process: ");
    WriteNumber(file, static_cast<std::uint64_t>(info.si_pid), 10);
  } else {
    WriteText(file, "\nFault address: 0x");
    WriteNumber(file, reinterpret_cast<std::uintptr_t>(info.si_addr), 16);
  }
}

void WriteRecord(const FatalSignal& signal, const siginfo_t& info) {
  const CFileHandle record = CreateRecord();
  if (!record) return;
  const int file = record.get();
  WriteText(file, "Signal: ");
  WriteNumber(file, static_cast<std::uint64_t>(signal.number), 10);
  WriteText(file, " (");
  WriteText(file, signal.name);
  WriteText(file, ")");
  WriteOrigin(file, info);
  WriteText(file, "\nProcess: ");
  WriteNumber(file, static_cast<std::uint64_t>(getpid()), 10);
  WriteText(file, "\nBacktrace:\n");
  void* frames[kMaxFrames];
  backtrace_symbols_fd(frames, backtrace(frames, kMaxFrames), file);
  WriteText(file, "Modules:\n");
  WriteModules(file);
}

// A record that exceeds the limit of file sizes is cut; the process still dies of its own signal.
void WriteRecordWithinLimits(const FatalSignal& signal, const siginfo_t& info) {
  struct sigaction ignore {
  }, before{};
  ignore.sa_handler = SIG_IGN;
  sigaction(SIGXFSZ, &ignore, &before);
  WriteRecord(signal, info);
  sigaction(SIGXFSZ, &before, nullptr);
}

void HandleFatalSignal(int number, siginfo_t* info, void*) {
  for (FatalSignal& signal : g_Signals) {
    if (signal.number != number) continue;
    // A fault while writing the record goes straight to the previous action.
    sigaction(number, &signal.previous, nullptr);
    // That action may call this one, if it was installed between two installations of this one.
    signal.previous = signal.first;
    WriteRecordWithinLimits(signal, *info);
  }
  // The kernel repeats a fault when this returns; a signal that was sent has to be sent again.
  if (IsSent(*info)) raise(number);
}

QZ_ExceptionFilter ToFilter(const struct sigaction& action) {
  if ((action.sa_flags & SA_SIGINFO) != 0) {
    return reinterpret_cast<QZ_ExceptionFilter>(reinterpret_cast<void*>(action.sa_sigaction));
  }
  return action.sa_handler == SIG_DFL || action.sa_handler == SIG_IGN ? nullptr : action.sa_handler;
}

bool IsOurs(const struct sigaction& action) {
  return (action.sa_flags & SA_SIGINFO) != 0 && action.sa_sigaction == g_Handler;
}

// Forever: for systems on which no entry can outlive the library.
void PinLibrary() {
  Dl_info info{};
  if (dladdr(reinterpret_cast<void*>(&PinLibrary), &info) == 0) return;
  dlopen(info.dli_fname, RTLD_LAZY | RTLD_NOLOAD | RTLD_NODELETE);
}

void MakeHandler() {
  if (g_Handler != nullptr) return;
  g_Handler = MakeCrashEntry(&HandleFatalSignal);
  g_bPinned = g_Handler == nullptr;
  if (!g_bPinned) return;
  PinLibrary();
  g_Handler = &HandleFatalSignal;
}

void Install(FatalSignal& signal) {
  struct sigaction current {};
  if (sigaction(signal.number, nullptr, &current) != 0 || IsOurs(current)) return;
  if (signal.isInstalled) g_bMayBeChained = true;
  if (!signal.isInstalled) signal.first = current;
  signal.isInstalled = true;
  signal.previous = current;
  struct sigaction action {};
  action.sa_sigaction = g_Handler;
  action.sa_flags = SA_SIGINFO | SA_ONSTACK;
  sigemptyset(&action.sa_mask);
  sigaction(signal.number, &action, nullptr);
}

void Restore(const FatalSignal& signal) {
  struct sigaction current {};
  sigaction(signal.number, nullptr, &current);
  if (IsOurs(current)) {
    sigaction(signal.number, &signal.previous, nullptr);
  } else {
    g_bMayBeChained = true;
  }
}

void RetireHandler() {
  struct sigaction actions[kCrashEntrySignals] = {};
  for (const FatalSignal& signal : g_Signals) actions[signal.number] = signal.first;
  RetireCrashEntry(g_Handler, actions);
}

__attribute__((destructor)) void OnUnload() { RemoveCrashHandler(); }

}  // namespace

QZ_ExceptionFilter InstallCrashHandler() {
  const std::lock_guard<std::mutex> guard(g_Lock);
  void* frame = nullptr;
  backtrace(&frame, 1);
  MakeHandler();
  StartSignalStacks();
  CoverThread();
  struct sigaction before {};
  sigaction(SIGSEGV, nullptr, &before);
  for (FatalSignal& signal : g_Signals) Install(signal);
  return ToFilter(before);
}

void RemoveCrashHandler() noexcept {
  // No thread holds the lock when the library is unloaded. There is no wait for a thread that holds
  // it when the process ends, or held it when the process was forked.
  const std::unique_lock<std::mutex> guard(g_Lock, std::try_to_lock);
  if (!guard || g_Handler == nullptr || g_bPinned) return;
  for (const FatalSignal& signal : g_Signals) Restore(signal);
  if (g_bMayBeChained) {
    RetireHandler();
  } else {
    FreeCrashEntry(g_Handler);
  }
  g_Handler = nullptr;
  EndSignalStacks();
}

}  // namespace qzhid::platform
