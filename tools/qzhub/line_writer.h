// Lines for a reader that may be slow, or that may never read.
#pragma once

#include <memory>
#include <string>

namespace qzhub {

/// Writes lines to a descriptor from a thread of its own, so that nobody waits for the reader. At
/// most kMostLines wait to be written; more are dropped, and a line says how many. When the reader
/// has gone, all are dropped.
class LineWriter {
 public:
  static constexpr std::size_t kMostLines = 1000;

  /// Each line begins with the prefix. The descriptor must stay open until the process ends.
  LineWriter(int descriptor, const std::string& prefix);
  ~LineWriter() { End(); }
  LineWriter(const LineWriter&) = delete;
  LineWriter& operator=(const LineWriter&) = delete;

  /// Any thread may call it.
  void Write(const std::string& line);

  /// Takes no more lines, and gives the reader a short time to take those that are left.
  void End();

 private:
  struct State;

  std::shared_ptr<State> state_;  // the thread's, too: it may still be writing after the end
};

}  // namespace qzhub
