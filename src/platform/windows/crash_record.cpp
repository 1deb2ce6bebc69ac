// The crash record: a minidump.
#include "platform/windows/system.h"

// After the general Windows header.
#include <dbghelp.h>

namespace qzhid::platform {

namespace {

constexpr const wchar_t* kRecordName = L"ConsoleApplication1.dmp";

void WriteDump(EXCEPTION_POINTERS* exception) {
  using WriteFunction = decltype(&MiniDumpWriteDump);
  const auto write = FindFunction<WriteFunction>(
      LoadLibraryExW(L"dbghelp.dll", nullptr, LOAD_LIBRARY_SEARCH_SYSTEM32), "MiniDumpWriteDump");
  if (write == nullptr) return;
  const HANDLE file = CreateFileW(kRecordName, GENERIC_WRITE, FILE_SHARE_WRITE, nullptr,
                                  CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr);
  if (file == INVALID_HANDLE_VALUE) return;
  MINIDUMP_EXCEPTION_INFORMATION information{GetCurrentThreadId(), exception, FALSE};
  write(GetCurrentProcess(), GetCurrentProcessId(), file, MiniDumpNormal, &information, nullptr,
        nullptr);
  CloseHandle(file);
}

LONG WINAPI HandleException(EXCEPTION_POINTERS* exception) {
  WriteDump(exception);
  return EXCEPTION_CONTINUE_SEARCH;
}

}  // namespace

QZ_ExceptionFilter InstallCrashHandler() { return SetUnhandledExceptionFilter(&HandleException); }

}  // namespace qzhid::platform
