// The frame of every exported function.
#pragma once

#include "api/call_gate.h"
#include "platform/forced_unwinding.h"
#include "platform/platform.h"

namespace qzhid {

/// Log, under the export's name, the exception that is being handled; that the calling thread is
/// being ended; that an update prevents the call.
void LogException(const char* exportName) noexcept;
void LogEndOfThread(const char* exportName) noexcept;
void LogUpdateIsRunning(const char* exportName);

/// Writes a text to an attached debugger; does nothing when there is no memory for it.
void WriteToDebugger(const wchar_t* text) noexcept;
/// The same for a text that is formatted as swprintf does.
void DebugPrint(const wchar_t* format, ...) noexcept;

/// A call of an export.
struct ExportCall {
  const char* name;                              ///< of the export, in the log
  const wchar_t* debugName;                      ///< shown to an attached debugger; may be null
  ConnectionUse use = ConnectionUse::Untouched;  ///< refused while an update forbids it
  void* closing = nullptr;                       ///< the handle that ConnectionUse::Close closes
};

/// Runs an export's body, which takes the export's name, and returns its result. Returns `failure`
/// when the call is refused, after calling `refused`, when a close is deferred, and when anything
/// throws: that becomes a log line, and only the unwinding of a thread that is being ended passes.
/// Needs no memory.
template <class Result, class Body, class Refused>
QZ_CATCHES_FORCED_UNWINDING Result Run(const ExportCall& call, Result failure, const Body& body,
                                       const Refused& refused) {
  const platform::CCancellationShield shield;
  platform::CoverThread();
  try {
    if (call.debugName != nullptr) WriteToDebugger(call.debugName);
    const CCallGate::CPass pass(call.use, call.closing);
    if (pass) return body(call.name);
    if (!pass.IsDeferred()) {
      LogUpdateIsRunning(call.name);
      refused();
    }
  } catch (const platform::ForcedUnwinding&) {
    LogEndOfThread(call.name);
    throw;
  } catch (...) {
    if (platform::IsThreadEnding()) {
      LogEndOfThread(call.name);
      throw;
    }
    LogException(call.name);
  }
  return failure;
}

template <class Result, class Body>
Result Run(const ExportCall& call, Result failure, const Body& body) {
  return Run(call, failure, body, [] {});
}

}  // namespace qzhid
