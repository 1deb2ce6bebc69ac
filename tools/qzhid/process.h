// This program once more, as a process of its own.
#pragma once

#include <chrono>
#include <memory>
#include <string>
#include <vector>

#include "qzhid/failure.h"

namespace qzhid {

/// Why a process cannot be started.
inline Failure NotStarted(const std::string& reason) {
  return {Exit::Failed, "another process cannot be started: " + reason, "",
          "end other programs and repeat the command"};
}

/// What the system can wait for; see waitable.h of each system.
struct Waitable;

/// Neither the terminal's interrupts nor the end of this process reach it.
class Process {
 public:
  /// Starts it with one argument, the name of a command. Throws Failure when it cannot be started.
  explicit Process(const std::string& command);
  Process(Process&&) noexcept;
  Process& operator=(Process&&) = delete;
  /// Closes its standard input, and does not wait for it.
  ~Process();

  /// Writes to its standard input; nothing happens when it has ended.
  void Write(const std::string& text);
  void CloseInput();

  /// Appends what it has written since, without waiting; false when there will be no more.
  bool Read(std::string& text);

  /// Waits for its end and describes it, as in "it ended with status 1".
  std::string Ending();

  /// Returns when one of them has something to read, at an interrupt, or after 100 ms.
  static void AwaitOutput(const std::vector<const Process*>& processes);
  /// The same, but also returns when one of the system's objects is ready, and after that time.
  static void AwaitOutput(const std::vector<const Process*>& processes,
                          const std::vector<Waitable>& objects, std::chrono::milliseconds time);

 private:
  struct Data;
  std::unique_ptr<Data> data_;
};

}  // namespace qzhid
