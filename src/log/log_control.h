// Which file the log goes to, and whether it goes there.
#pragma once

#include <memory>
#include <mutex>
#include <string>

#include "log/log_responder.h"
#include "platform/process_object.h"

namespace qzhid {

/// Any thread may call at any time, also from inside a delivery of the hub.
class CLogControl {
 public:
  static CLogControl& Instance();

  /// Chooses the log file. It must name a file, existing or not, in a folder given in the path that
  /// may be read and written. Returns whether it was accepted; null is not.
  bool SetPath(const char* path);

  /// Takes all receivers out of the hub; with `enable` set, registers the log file with the given
  /// threshold: the chosen file, else "info.txt" beside the library. Each of the two is opened,
  /// and emptied, on its first use and stays for the life of the process.
  void Configure(bool enable, int level);

  /// Held by the thread that forks the process, so that the child finds its files whole.
  std::mutex& ForkLock() { return m_Lock; }

 private:
  friend class platform::CProcessObject<CLogControl>;

  CLogControl() = default;

  CLogResponder& ChosenLog();

  std::mutex m_Lock;  // guards all below
  std::string m_strCustomPath;
  std::unique_ptr<CLogResponder> m_pDefaultLog, m_pCustomLog;
};

}  // namespace qzhid
