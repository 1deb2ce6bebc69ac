// The frame of every exported function.
#pragma once

#include "platform/platform.h"

namespace qzhid {

/// Logs the exception that is being handled under the export's name; never throws.
void LogException(const char* exportName) noexcept;

/// Writes a text to an attached debugger; does nothing where there is no memory for it.
void TellDebugger(const wchar_t* text) noexcept;

/// Runs an export's body: names the export to an attached debugger (unless `debugName` is null) and
/// turns any exception into a log line and the export's failure value.
template <class Result, class Body>
Result RunExport(const char* exportName, const wchar_t* debugName, Result failure,
                 const Body& body) noexcept {
  try {
    if (debugName != nullptr) TellDebugger(debugName);
    return body();
  } catch (...) {
    LogException(exportName);
    return failure;
  }
}

/// The same for a text that is formatted as swprintf does.
void DebugPrint(const wchar_t* format, ...) noexcept;

}  // namespace qzhid
