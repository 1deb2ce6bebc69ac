// Writes log lines to a text file.
#pragma once

#include <atomic>

#include "log/responder.h"
#include "platform/platform.h"

namespace qzhid {

/// Ignores everything but log lines. Every line is on disk when OnLog returns; one that cannot be
/// written is dropped. A file that cannot be opened makes the receiver discard everything.
class CLogResponder final : public IResponder {
 public:
  /// Empties the file or creates it; the threshold is 0.
  explicit CLogResponder(const char* path);
  ~CLogResponder() override;

  void OnLog(const char* line, int level) override;
  void OnPrint(const char*, int) override {}
  void OnNotify(const char*, int, int) override {}
  void OnProgress(int) override {}
  void SetLevel(int level) override { m_nLevel = level; }
  unsigned Takes() const override { return kLines; }

 private:
  std::atomic<int> m_nLevel{0};
  platform::TextFile m_File;
};

}  // namespace qzhid
