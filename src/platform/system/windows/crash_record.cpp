// The crash record: a minidump.
#include <atomic>
#include <mutex>

#include "platform/system/windows/crash_entry.h"
#include "platform/system/windows/system.h"

// After the general Windows header.
#include <dbghelp.h>

namespace qzhid::platform {

namespace {

constexpr const wchar_t* kRecordName = L"ConsoleApplication1.dmp";
constexpr ULONG kStackForHandler = 64 * 1024;
constexpr DWORD kLongestDumpMs = 60 * 1000;

struct Crash {
  EXCEPTION_POINTERS* exception;
  DWORD thread;
};

std::mutex g_Lock;
ExceptionFilter g_Filter = nullptr;    // what is installed
ExceptionFilter g_First = nullptr;     // the filter before the first installation
ExceptionFilter g_Previous = nullptr;  // the filter before the last one
std::atomic<bool> g_bInstalled{false};
bool g_bPinned = false;        // the library stays loaded
bool g_bMayBeChained = false;  // another handler may call what is installed

// A new file: anything that has the name is removed, so that no link is followed.
HANDLE CreateRecord() {
  DeleteFileW(kRecordName);
  return CreateFileW(kRecordName, GENERIC_WRITE, FILE_SHARE_WRITE, nullptr, CREATE_NEW,
                     FILE_ATTRIBUTE_NORMAL | FILE_FLAG_OPEN_REPARSE_POINT, nullptr);
}

void WriteDump(const Crash& crash) {
  using WriteFunction = decltype(&MiniDumpWriteDump);
  const auto write = FindFunction<WriteFunction>(
      LoadLibraryExW(L"dbghelp.dll", nullptr, LOAD_LIBRARY_SEARCH_SYSTEM32), "MiniDumpWriteDump");
  if (write == nullptr) return;
  const HANDLE file = CreateRecord();
  if (file == INVALID_HANDLE_VALUE) return;
  MINIDUMP_EXCEPTION_INFORMATION information{crash.thread, crash.exception, FALSE};
  write(GetCurrentProcess(), GetCurrentProcessId(), file, MiniDumpNormal, &information, nullptr,
        nullptr);
  CloseHandle(file);
}

DWORD WINAPI WriteDumpOnThread(void* crash) {
  WriteDump(*static_cast<const Crash*>(crash));
  return 0;
}

// After a stack overflow the rest of the stack is enough to start a thread, but not to write a
// dump. The thread cannot start when the crash happened under the loader's lock, so the wait for it
// is limited.
void WriteDumpOnOtherStack(Crash& crash) {
  const HANDLE thread = CreateThread(nullptr, 0, &WriteDumpOnThread, &crash, 0, nullptr);
  if (thread == nullptr) return;
  WaitForSingleObject(thread, kLongestDumpMs);
  CloseHandle(thread);
}

LONG WINAPI HandleException(EXCEPTION_POINTERS* exception) {
  Crash crash{exception, GetCurrentThreadId()};
  if (exception->ExceptionRecord->ExceptionCode == EXCEPTION_STACK_OVERFLOW) {
    WriteDumpOnOtherStack(crash);
  } else {
    WriteDump(crash);
  }
  return EXCEPTION_CONTINUE_SEARCH;
}

// Forever: for systems on which no entry can outlive the library.
void PinLibrary() {
  HMODULE module = nullptr;
  GetModuleHandleExW(GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS | GET_MODULE_HANDLE_EX_FLAG_PIN,
                     reinterpret_cast<LPCWSTR>(&HandleException), &module);
}

void MakeFilter() {
  if (g_Filter != nullptr) return;
  g_Filter = MakeCrashEntry(&HandleException);
  g_bPinned = g_Filter == nullptr;
  if (!g_bPinned) return;
  PinLibrary();
  g_Filter = &HandleException;
}

}  // namespace

QZ_ExceptionFilter InstallCrashHandler() {
  const std::lock_guard<std::mutex> guard(g_Lock);
  MakeFilter();
  const ExceptionFilter before = SetUnhandledExceptionFilter(g_Filter);
  if (before == g_Filter) return before;
  if (g_bInstalled) g_bMayBeChained = true;
  if (!g_bInstalled) g_First = before;
  g_Previous = before;
  g_bInstalled = true;
  CoverThread();
  return before;
}

void CoverThread() noexcept {
  ULONG size = kStackForHandler;
  if (g_bInstalled) SetThreadStackGuarantee(&size);  // a second time it does nothing
}

void RemoveCrashHandler() noexcept {
  if (!g_bInstalled || g_bPinned) return;
  const ExceptionFilter current = SetUnhandledExceptionFilter(g_Previous);
  if (current != g_Filter) {
    SetUnhandledExceptionFilter(current);
    g_bMayBeChained = true;
  }
  if (g_bMayBeChained) {
    RetireCrashEntry(g_Filter, g_First);
  } else {
    FreeCrashEntry(g_Filter);
  }
  g_bInstalled = false;
}

}  // namespace qzhid::platform
