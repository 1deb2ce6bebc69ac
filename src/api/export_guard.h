// The frame of every exported function.
#pragma once

#include "api/call_gate.h"
#include "platform/platform.h"

namespace qzhid {

/// Logs the exception that is being handled under the export's name; never throws.
void LogException(const char* exportName) noexcept;

/// Writes a text to an attached debugger; does nothing where there is no memory for it.
void TellDebugger(const wchar_t* text) noexcept;

/// Calls an export's body with that context. Any exception of it becomes a log line under the
/// export's name; only a thread that is being ended unwinds through. Needs no memory.
void GuardExport(const char* exportName, void (*body)(void* context), void* context);

/// Runs an export's body: names the export to an attached debugger (unless `debugName` is null) and
/// returns what the body returns, or the export's failure value when that throws.
template <class Result, class Body>
Result RunExport(const char* exportName, const wchar_t* debugName, Result failure,
                 const Body& body) {
  Result result = failure;
  auto run = [&] {
    if (debugName != nullptr) TellDebugger(debugName);
    result = body();
  };
  GuardExport(
      exportName, [](void* context) { (*static_cast<decltype(run)*>(context))(); }, &run);
  return result;
}

/// Logs under the export's name that an update keeps it from running.
void LogUpdateIsRunning(const char* exportName);

/// The same for an export that uses the connection: fails while an update forbids that.
template <class Result, class Body>
Result RunDeviceExport(ConnectionUse use, const char* exportName, const wchar_t* debugName,
                       Result failure, const Body& body) {
  return RunExport(exportName, debugName, failure, [&]() -> Result {
    const CCallGate::CPass pass(use);
    if (pass) return body();
    LogUpdateIsRunning(exportName);
    return failure;
  });
}

/// Formats as swprintf does and writes the text to an attached debugger, as TellDebugger does.
void DebugPrint(const wchar_t* format, ...) noexcept;

}  // namespace qzhid
