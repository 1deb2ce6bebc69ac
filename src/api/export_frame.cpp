#include "api/export_frame.h"

#include <cstdarg>
#include <cwchar>
#include <exception>

#include "log/msg.h"

namespace qzhid {

void LogException(const char* exportName) noexcept {
  // Null for an exception that another language's runtime has thrown.
  const std::exception_ptr exception = std::current_exception();
  try {
    try {
      if (exception != nullptr) std::rethrow_exception(exception);
    } catch (const std::exception& e) {
      return CMsg::Instance().Log(3, exportName, "Exception:%s\n", e.what());
    } catch (...) {
      // Not a standard exception.
    }
    CMsg::Instance().Log(3, exportName, "Unknown exception\n");
  } catch (...) {
    // Out of memory for the line itself: only the export's result says it.
  }
}

void LogEndOfThread(const char* exportName) noexcept {
  try {
    CMsg::Instance().Log(3, exportName, "The calling thread is being ended\n");
  } catch (...) {
    // Out of memory for a line that only explains.
  }
}

void LogUpdateIsRunning(const char* exportName) {
  CMsg::Instance().Log(3, exportName, "An update is running\n");
}

void WriteToDebugger(const wchar_t* text) noexcept {
  try {
    platform::DebugOutput(text);
  } catch (...) {
    // No export fails because its name cannot be shown.
  }
}

void DebugPrint(const wchar_t* format, ...) noexcept {
  wchar_t text[256] = {};
  std::va_list arguments;
  va_start(arguments, format);
  std::vswprintf(text, sizeof(text) / sizeof(text[0]), format, arguments);
  va_end(arguments);
  WriteToDebugger(text);
}

}  // namespace qzhid
