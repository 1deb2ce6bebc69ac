// The lines of a log, one after the other, from text that comes in pieces of any size.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>

#include "qzhid/explain/log_patterns.h"

namespace qzhid {

/// A line that the library has logged. The texts are valid during the call.
struct LogEvent {
  const LogLine* line = nullptr;  ///< null when the table does not have it
  LogValues values;
  std::string_view name;     ///< such as "QZ_OpenHid"
  std::string_view text;     ///< without line ends
  std::int64_t timeUs = 0;   ///< since 1970, in the time of the computer that logged it
  std::uint64_t number = 0;  ///< of the line in the file, from 1
  bool isWindows = false;    ///< the line ends as on Windows
};

/// What a log is like as a whole.
struct LogShape {
  std::uint64_t bytes = 0;
  std::uint64_t lines = 0;
  std::uint64_t events = 0;   ///< lines of the library
  std::uint64_t unknown = 0;  ///< of these, the ones that the table does not have
  bool isWide = false;        ///< UTF-16, which no library writes
  bool isCutAtStart = false;  ///< begins in the middle of a line
  bool isCutAtEnd = false;    ///< ends in the middle of a line
};

class LogReader {
 public:
  using Receiver = std::function<void(const LogEvent&)>;

  /// `patterns` must outlive the reader.
  LogReader(const LogPatterns& patterns, Receiver receiver)
      : patterns_(patterns), receiver_(std::move(receiver)) {}

  /// The next piece of the text.
  void Take(std::string_view piece);
  /// The text has ended.
  void End();

  const LogShape& Shape() const { return shape_; }

 private:
  void TakeLine(std::string_view line);
  void TakeRest(std::string_view line);
  void BeginEvent(std::string_view stamp, std::string_view rest);
  void AddText(std::string_view text);
  void EndEvent();

  const LogPatterns& patterns_;
  Receiver receiver_;
  LogShape shape_;
  std::string open_;   ///< a line whose end has not come yet
  std::string event_;  ///< name and text of the line that may go on
  LogEvent current_;
  std::string stamp_;  ///< the last one that was read, and its time
  std::int64_t stampUs_ = 0;
  bool isInEvent_ = false;
  bool isWindows_ = false;  ///< the current line
};

}  // namespace qzhid
