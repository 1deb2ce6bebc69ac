#include "log/log_control.h"

#include "log/msg.h"
#include "platform/library_folder.h"
#include "platform/platform.h"

namespace qzhid {

namespace {

constexpr const char* kDefaultLogName = "info.txt";

}  // namespace

CLogControl& CLogControl::Instance() {
  static constinit platform::CProcessObject<CLogControl> instance;
  return instance.Get();
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
  CMsg& msg = CMsg::Instance();
  msg.ClearResponders();
  if (!enable) return;
  CLogResponder& log = ChosenLog();
  log.SetLevel(level);
  msg.AddResponder(&log);
}

CLogResponder& CLogControl::ChosenLog() {
  const std::lock_guard<std::mutex> lock(m_Lock);
  const bool isCustom = !m_strCustomPath.empty();
  std::unique_ptr<CLogResponder>& log = isCustom ? m_pCustomLog : m_pDefaultLog;
  if (!log) {
    std::string path = isCustom ? m_strCustomPath : kDefaultLogName;
    if (!isCustom) PathBesideLibrary(kDefaultLogName, path);
    log = std::make_unique<CLogResponder>(path.c_str());
  }
  return *log;
}

}  // namespace qzhid
