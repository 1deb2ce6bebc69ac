// Which file the log goes to, and whether it goes there.
#pragma once

#include <mutex>
#include <string>

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

 private:
  CLogControl() = default;

  std::string CustomPath();

  std::mutex m_Lock;  // guards the path
  std::string m_strCustomPath;
};

}  // namespace qzhid
