#include "api/export_guard.h"

#include <cstdarg>
#include <cwchar>
#include <exception>

#include "log/msg.h"
#include "platform/forced_unwinding.h"

namespace qzhid {

namespace {

void LogEndOfThread(const char* exportName) noexcept {
  try {
    CMsg::Instance().Log(3, exportName, "The calling thread is being ended\n");
  } catch (...) {
    // Out of memory for a line that only explains.
  }
}

}  // namespace

void LogException(const char* exportName) noexcept {
  // Null for an exception that another language's runtime has thrown.
  const std::exception_ptr exception = std::current_exception();
  try {
    try {
      if (exception != nullptr) std::rethrow_exception(exception);
    } catch (const std::exception& e) {
      return CMsg::Instance().Log(3, exportName, "Exception:%s\n", e.what());
    } catch (...) {
      // No standard exception either.
    }
    CMsg::Instance().Log(3, exportName, "Unknown exception\n");
  } catch (...) {
    // Out of memory for the line itself: the export's result has to say it.
  }
}

QZ_CATCHES_FORCED_UNWINDING void GuardExport(const char* exportName, void (*body)(void* context),
                                             void* context) {
  const platform::CCancellationShield shield;
  platform::CoverThread();
  try {
    body(context);
  } catch (const platform::ForcedUnwinding&) {
    LogEndOfThread(exportName);
    throw;
  } catch (...) {
    LogException(exportName);
  }
}

void LogUpdateIsRunning(const char* exportName) {
  CMsg::Instance().Log(3, exportName, "An update is running\n");
}

void TellDebugger(const wchar_t* text) noexcept {
  try {
    platform::DebugOutput(text);
  } catch (...) {
    // No export fails because nobody can be told its name.
  }
}

void DebugPrint(const wchar_t* format, ...) noexcept {
  wchar_t text[256] = {};
  std::va_list arguments;
  va_start(arguments, format);
  std::vswprintf(text, sizeof(text) / sizeof(text[0]), format, arguments);
  va_end(arguments);
  TellDebugger(text);
}

}  // namespace qzhid
