#include "log/log_responder.h"

#include <cerrno>
#include <iostream>
#include <system_error>

#include "platform/platform.h"

namespace qzhid {

CLogResponder::CLogResponder(const char* path)
    : m_Stream(platform::FilePath(path), std::ios::out | std::ios::trunc),
      m_bOpened(m_Stream.is_open()) {}

CLogResponder::~CLogResponder() {
  if (!m_bOpened) return;
  m_Stream.clear();  // what went wrong before is no failure to close
  m_Stream.close();
  if (m_Stream.fail()) {
    std::cerr << "Failed to close the file: " << std::generic_category().message(errno) << '\n';
  }
}

void CLogResponder::OnLog(const char* line, int level) {
  if (level < m_nLevel || !m_bOpened) return;
  m_Stream.clear();  // a disk that was full may have room again
  m_Stream << line << std::flush;
}

}  // namespace qzhid
