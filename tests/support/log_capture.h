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

/// Keeps everything; registered while it lives.
class LogCapture final : public SilentReceiver {
 public:
  LogCapture() { CMsg::Instance().AddResponder(this); }
  ~LogCapture() override { CMsg::Instance().RemoveResponder(this); }
  LogCapture(const LogCapture&) = delete;
  LogCapture& operator=(const LogCapture&) = delete;

  void OnLog(const char* line, int level) override {
    raw.emplace_back(line);
    m_Lines.push_back(ParseLogLine(line, level));
  }
  void OnPrint(const char* text, int level) override { prints.push_back({level, "", text}); }
  void OnNotify(const char* text, int remaining, int) override {
    notices.push_back({remaining, "", text});
  }
  void OnProgress(int value) override { progress.push_back(value); }

  const std::vector<LogLine>& Lines() const { return m_Lines; }
  void Clear() {
    m_Lines.clear();
    raw.clear();
    prints.clear();
    notices.clear();
    progress.clear();
  }

  std::vector<std::string> raw;  // lines with their time stamps
  std::vector<LogLine> prints;   // level and text
  std::vector<LogLine> notices;  // the remaining seconds in place of the level
  std::vector<int> progress;

 private:
  std::vector<LogLine> m_Lines;
};

}  // namespace qzhid::test
