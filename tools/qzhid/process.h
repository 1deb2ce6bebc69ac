// This program once more, as a process of its own.
#pragma once

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

/// Neither the terminal's interrupts nor the end of this process reach it.
class Process {
 public:
  enum class Errors { Shared, Taken };

  /// Starts it with those arguments; its standard error is this program's or goes where its
  /// standard output goes. Throws Failure when it cannot be started.
  Process(const std::vector<std::string>& arguments, Errors errors);
  Process(Process&&) noexcept;
  Process& operator=(Process&&) = delete;
  /// Closes its standard input, and does not wait for it.
  ~Process();

  /// Writes to its standard input; nothing happens when it has ended.
  void Write(const std::string& text);
  void CloseInput();

  /// Appends what it has written since, without waiting; false when there will be no more.
  bool Read(std::string& text);

  /// Waits for its end and tells it in words, as in "it ended with status 1".
  std::string Ending();

  /// Returns when one of them has something to read, or after a tenth of a second.
  static void AwaitOutput(const std::vector<const Process*>& processes);

 private:
  struct Data;
  std::unique_ptr<Data> data_;
};

}  // namespace qzhid
