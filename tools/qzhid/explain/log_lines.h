// Every line that the library can log, and what it means. docs/logs.md shows the same table.
#pragma once

#include <cstdint>
#include <span>

namespace qzhid {

/// What a line says about the call that it belongs to.
enum class Nature {
  Normal,    ///< what goes on
  Harmless,  ///< looks like a failure and is none
  Depends,   ///< a failure, unless the lines around it say otherwise
  Failure    ///< something failed
};

/// What the library was doing; a section of docs/logs.md.
enum class Topic {
  Session,
  Calls,
  Listing,
  Opening,
  Finding,
  Requests,
  Status,
  Image,
  Update,
  Version,
  Bridge,
  Gpio,
  Other
};

/// Whose code the first number of a line is.
enum class CodeKind {
  None,
  System,  ///< a Windows error code or an errno value
  Node,    ///< on Windows a result of the configuration manager, else an errno value
  Parser   ///< on Windows a status of the HID parser, else an errno value
};

/// The lines that tell this program where a call begins, how far it has come and how it ended.
enum class Sign : std::uint8_t {
  None,
  // What is part of what.
  Host,
  Built,
  Unload,
  UpdateRunning,
  Exception,
  Rejected,  ///< a call that sent nothing
  Failed,    ///< the last line of a call that failed
  // Listing.
  ListEnter,
  ListExit,
  ListCause,  ///< why a device cannot be listed
  ListFail,
  ListRecord,
  Freed,
  // Finding hubs.
  DeviceIds,
  IsHub,
  NoHub,
  NoText,  ///< a device of another vendor
  OpenResult,
  ScanFail,
  ParentFail,
  WantedPath,
  SeenPath,
  Arrived,
  ConnectTrue,
  ConnectFalse,
  LeftTrue,
  LeftFalse,
  Forget,
  Remove,
  // Opening and closing.
  Opened,
  OpenEnd,
  OpenFail,
  ClockWarning,
  Closed,
  Cause,  ///< why something failed; what failed is another line
  // Requests.
  SendFail,
  AnswerFail,
  AnswerCode,
  TraceType,
  TraceValue,
  TraceLength,
  TraceReturn,
  Header,
  Header8,  ///< a code and eight bytes
  TooLong,
  // What the hub runs.
  StatusBytes,
  NoStatus,
  FlashCode,
  Mode,
  ModeFail,
  OneBank,
  TwoBanks,
  // An update.
  Notify,
  Path,
  Loaded,
  NotLoaded,
  ResetSent,
  LoaderOk,
  LoaderFail,
  EraseOk,
  EraseFail,
  BankEraseFail,
  Clock,
  WriteOk,
  WriteFail,
  CheckOk,
  CheckFail,
  StartOk,
  StartFail,
  ReturnOk,
  ReturnFail,
  FlowModeFail,
  StateRefuses,
  FlowOk,
  FlowFail,
  UpdateFail,
  // Versions and ids.
  ReadBegin,
  ReadFail,
  HubIds,
  FileIds,
  // GPIO.
  GpioBegin,
  GpioFail,
  GpioEnd
};

struct LogLine {
  Sign sign;
  Topic topic;
  int level;
  Nature nature;
  CodeKind code;
  const char* names;    ///< that the line is logged under, with blanks between; see IsNamed
  const char* text;     ///< as the source has it: a format of printf
  const char* meaning;  ///< a sentence
  const char* advice;   ///< what to do; empty when nothing needs to be done
};

/// In the order of docs/logs.md.
std::span<const LogLine> LogLines();

/// The names of a line that no log file has.
inline constexpr const char* kNotInFiles = "-";

}  // namespace qzhid
