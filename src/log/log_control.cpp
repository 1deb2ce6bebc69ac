#include "log/log_control.h"

#include "log/log_responder.h"
#include "log/msg.h"
#include "platform/library_folder.h"
#include "platform/platform.h"

namespace qzhid {

namespace {

constexpr const char* kDefaultLogName = "info.txt";

/// A log file that leaves the hub before it closes.
class CProcessLog {
 public:
  explicit CProcessLog(const std::string& path) : m_Responder(path.c_str()) {}
  ~CProcessLog() { CMsg::Instance().ClearResponders(); }
  CProcessLog(const CProcessLog&) = delete;
  CProcessLog& operator=(const CProcessLog&) = delete;

  void Register(int level) {
    m_Responder.SetLevel(level);
    CMsg::Instance().AddResponder(&m_Responder);
  }

 private:
  CLogResponder m_Responder;
};

CProcessLog& DefaultLog(const std::string& path) {
  static CProcessLog log(path);
  return log;
}

CProcessLog& CustomLog(const std::string& path) {
  static CProcessLog log(path);
  return log;
}

}  // namespace

CLogControl& CLogControl::Instance() {
  static CLogControl instance;
  return instance;
}

bool CLogControl::SetPath(const char* path) {
  if (path == nullptr) return false;
  const std::string folder = FolderPart(path);
  if (!platform::IsReadableAndWritable(folder.c_str())) return false;
  if (platform::IsDirectory(path)) return false;
  const std::lock_guard<std::mutex> lock(m_Lock);
  m_strCustomPath = path;
  return true;
}

void CLogControl::Configure(bool enable, int level) {
  CMsg::Instance().ClearResponders();
  if (!enable) return;
  // Paths are found out before a file object is made: asking for the library's own path may wait
  // for the loader, under whose lock another thread may be waiting for that object.
  const std::string custom = CustomPath();
  if (custom.empty()) {
    std::string path = kDefaultLogName;
    PathBesideLibrary(kDefaultLogName, path);
    DefaultLog(path).Register(level);
  } else {
    CustomLog(custom).Register(level);
  }
}

std::string CLogControl::CustomPath() {
  const std::lock_guard<std::mutex> lock(m_Lock);
  return m_strCustomPath;
}

}  // namespace qzhid
