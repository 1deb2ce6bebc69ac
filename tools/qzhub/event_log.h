#pragma once

#include <iostream>
#include <mutex>
#include <string>

namespace qzhub {

/// What the commands print while they run: events for scripts on standard output, one line each,
/// and remarks for people on standard error. Any thread may call it.
class EventLog {
 public:
  void Event(const std::string& line) { Write(std::cout, line); }
  void Remark(const std::string& line) { Write(std::cerr, "qzhub: " + line); }

 private:
  void Write(std::ostream& stream, const std::string& line) {
    const std::lock_guard<std::mutex> guard(mutex_);
    stream << line << std::endl;
  }

  std::mutex mutex_;
};

}  // namespace qzhub
