#pragma once

#include <cstddef>
#include <string>
#include <thread>

#include "qzhub/event_log.h"
#include "qzhub/stop_event.h"
#include "virtualhub/bus/machine.h"

namespace qzhub {

/// Carries out the lines that a user writes to standard input, on a thread of its own until the end
/// is requested. It also looks after the control file, if there is one: nothing else may be asked
/// of the machine for a long time.
class ControlInput {
 public:
  ControlInput(virtualhub::Machine& machine, bool hasFile, const StopEvent& stop, EventLog& log);
  /// Requests the end.
  ~ControlInput();
  ControlInput(const ControlInput&) = delete;
  ControlInput& operator=(const ControlInput&) = delete;

 private:
  void Run();
  bool Read();
  void Take(const std::string& line);

  virtualhub::Machine& machine_;
  const bool hasFile_;
  const StopEvent& stop_;
  EventLog& log_;
  std::string rest_;  // what was read of a line that is not complete
  std::size_t lines_ = 0;
  std::thread thread_;
};

}  // namespace qzhub
