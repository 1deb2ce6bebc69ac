#include "log/msg.h"

#include <cstdarg>
#include <cstdio>
#include <cwchar>
#include <stdexcept>
#include <string>

#include "platform/platform.h"

namespace qzhid {

namespace {

constexpr std::size_t kBufferSize = 1024;

std::string LinePrefix(const char* func) {
  const platform::LocalTime now = platform::GetLocalTime();
  char stamp[96];
  std::snprintf(stamp, sizeof(stamp), "[%04d-%02d-%02d, %02d:%02d:%02d]  ", now.year, now.month,
                now.day, now.hour, now.minute, now.second);
  std::string prefix(stamp);
  prefix += func;
  prefix += ", ";
  return prefix;
}

}  // namespace

CMsg& CMsg::Instance() {
  static CMsg instance;
  return instance;
}

template <class Call>
void CMsg::Deliver(std::recursive_mutex& turn, const Call& call) {
  const std::lock_guard<std::recursive_mutex> lock(turn);
  const CResponderList::CPin pin(m_Responders);
  for (IResponder* const responder : pin.Get()) {
    // An earlier receiver of this round may have removed a later one.
    if (pin.IsRegistered(responder)) call(*responder);
  }
}

void CMsg::RemoveResponder(IResponder* responder) {
  m_Responders.Remove(responder);
  for (std::recursive_mutex* const turn : {&m_TextTurn, &m_ProgressTurn}) {
    const std::lock_guard<std::recursive_mutex> waitForDelivery(*turn);
  }
}

void CMsg::Log(int level, const char* func, const char* format, ...) {
  if (m_Responders.IsEmpty()) return;
  char message[kBufferSize] = {};
  std::va_list arguments;
  va_start(arguments, format);
  std::vsnprintf(message, sizeof(message), format, arguments);
  va_end(arguments);
  const std::string line = LinePrefix(func) + message;
  Deliver(m_TextTurn, [&](IResponder& responder) { responder.OnLog(line.c_str(), level); });
}

void CMsg::Log(int level, const char* func, const wchar_t* format, ...) {
  if (m_Responders.IsEmpty()) return;
  wchar_t message[kBufferSize] = {};
  std::va_list arguments;
  va_start(arguments, format);
  const int length = std::vswprintf(message, kBufferSize, format, arguments);
  va_end(arguments);
  if (length < 0) throw std::range_error("wide log message does not fit");
  const std::string line = LinePrefix(func) + platform::ToNarrow(message);
  if (line.size() >= kBufferSize) throw std::range_error("wide log line does not fit");
  Deliver(m_TextTurn, [&](IResponder& responder) { responder.OnLog(line.c_str(), level); });
}

void CMsg::Print(int level, const char* format, ...) {
  if (m_Responders.IsEmpty()) return;
  char text[kBufferSize] = {};
  std::va_list arguments;
  va_start(arguments, format);
  std::vsnprintf(text, sizeof(text), format, arguments);
  va_end(arguments);
  Deliver(m_TextTurn, [&](IResponder& responder) { responder.OnPrint(text, level); });
}

void CMsg::Notify(const char* text, int remaining) {
  Deliver(m_TextTurn, [&](IResponder& responder) { responder.OnNotify(text, remaining, 0); });
}

void CMsg::Progress(int value) {
  Deliver(m_ProgressTurn, [&](IResponder& responder) { responder.OnProgress(value); });
}

}  // namespace qzhid
