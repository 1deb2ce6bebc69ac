// A receiver that keeps what the message hub delivers.
#pragma once

#include <algorithm>
#include <string>
#include <vector>

#include "log/msg.h"
#include "support/log_line.h"

namespace qzhid::test {

/// A receiver that ignores everything; tests override what they need.
class SilentReceiver : public IResponder {
 public:
  void OnLog(const char*, int) override {}
  void OnPrint(const char*, int) override {}
  void OnNotify(const char*, int, int) override {}
  void OnProgress(int) override {}
  void SetLevel(int) override {}
};

/// Registered with the hub while it lives.
class LogCapture final : public IResponder {
 public:
  LogCapture() { CMsg::Instance().AddResponder(this); }
  ~LogCapture() override { CMsg::Instance().RemoveResponder(this); }
  LogCapture(const LogCapture&) = delete;
  LogCapture& operator=(const LogCapture&) = delete;

  void OnLog(const char* line, int level) override {
    raw.emplace_back(line);
    lines.push_back(ParseLogLine(line, level));
  }
  void OnPrint(const char* text, int level) override { prints.push_back({level, "", text}); }
  void OnNotify(const char* text, int remaining, int) override {
    notices.push_back({remaining, "", text});
  }
  void OnProgress(int value) override { progress.push_back(value); }
  void SetLevel(int) override {}

  const std::vector<LogLine>& Lines() const { return lines; }
  void Clear() {
    raw.clear();
    lines.clear();
    prints.clear();
    notices.clear();
    progress.clear();
  }

  /// How often exactly that line was logged.
  std::size_t Count(const LogLine& line) const {
    return static_cast<std::size_t>(std::count(lines.begin(), lines.end(), line));
  }
  /// The lines of one tag, in order.
  std::vector<LogLine> Of(const std::string& tag) const {
    std::vector<LogLine> found;
    std::copy_if(lines.begin(), lines.end(), std::back_inserter(found),
                 [&](const LogLine& line) { return line.tag == tag; });
    return found;
  }
  /// All lines of at least that level.
  std::vector<LogLine> From(int level) const {
    std::vector<LogLine> found;
    std::copy_if(lines.begin(), lines.end(), std::back_inserter(found),
                 [&](const LogLine& line) { return line.level >= level; });
    return found;
  }

  std::vector<std::string> raw;  // with time stamp
  std::vector<LogLine> lines;
  std::vector<LogLine> prints;   // level and text
  std::vector<LogLine> notices;  // the remaining seconds in place of the level
  std::vector<int> progress;
};

}  // namespace qzhid::test
