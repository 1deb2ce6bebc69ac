// Receivers of what the message hub delivers.
#pragma once

#include <string>
#include <vector>

#include "log/msg.h"
#include "support/log_line.h"

namespace qzhid::test {

/// Ignores everything; tests override what they need.
class SilentReceiver : public IResponder {
 public:
  void OnLog(const char*, int) override {}
  void OnPrint(const char*, int) override {}
  void OnNotify(const char*, int, int) override {}
  void OnProgress(int) override {}
  void SetLevel(int) override {}
};

/// What was delivered.
struct Deliveries {
  std::vector<LogLine> lines;
  std::vector<std::string> raw;  // lines with their time stamps
  std::vector<LogLine> prints;   // level and text
  std::vector<LogLine> notices;  // the remaining seconds in place of the level
  std::vector<int> progress;
};

/// Keeps everything; registered while it lives.
class LogCapture final : public SilentReceiver, public Deliveries {
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

  const std::vector<LogLine>& Lines() const { return lines; }
  void Clear() { static_cast<Deliveries&>(*this) = {}; }
};

}  // namespace qzhid::test
