// Which file the log goes to, and whether it goes there.
#pragma once

#include <memory>
#include <mutex>
#include <string>

#include "log/log_responder.h"
#include "platform/process_object.h"

namespace qzhid {

/// Any thread can call at any time, also from inside a delivery.
class CLogControl {
 public:
  static CLogControl& Instance();

  /// Chooses the log file. It must name a file, existing or not, in a folder that the path names
  /// and that can be read and written. Returns whether it was accepted; null is not.
  bool SetPath(const char* path);

  /// Removes all receivers of the message hub; with `enable` set, registers the log file with the
  /// given threshold: the chosen file, else "info.txt" in the library's folder. Each of the two is
  /// opened, and emptied, on its first use and stays for the life of the process.
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
