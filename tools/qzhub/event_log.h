#pragma once

#include <unistd.h>

#include <string>

#include "qzhub/line_writer.h"

namespace qzhub {

/// What the commands print while they run: events for scripts on standard output, one line each,
/// and remarks for people on standard error. Any thread may call it, and never waits for a reader.
class EventLog {
 public:
  explicit EventLog(int events = STDOUT_FILENO, int remarks = STDERR_FILENO)
      : events_(events, ""), remarks_(remarks, "qzhub: ") {}

  void Event(const std::string& line) { events_.Write(line); }
  void Remark(const std::string& line) { remarks_.Write(line); }

  /// The end of what is printed.
  void End() {
    events_.End();
    remarks_.End();
  }

 private:
  LineWriter events_, remarks_;
};

}  // namespace qzhub
