#include "log/log_responder.h"

#include <iostream>
#include <system_error>

namespace qzhid {

CLogResponder::CLogResponder(const char* path) { platform::CreateTextFile(path, m_File); }

CLogResponder::~CLogResponder() {
  if (!m_File) return;
  const auto status = platform::CloseTextFile(m_File);
  if (status) return;
  std::cerr << "Failed to close the file: "
            << std::system_category().message(static_cast<int>(status.code)) << '\n';
}

void CLogResponder::OnLog(const char* line, int level) {
  if (level >= m_nLevel) platform::WriteTextFile(m_File, line);
}

}  // namespace qzhid
