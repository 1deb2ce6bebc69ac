#include "log/msg.h"

#include <charconv>
#include <cstdarg>
#include <cstdio>
#include <cwchar>
#include <stdexcept>
#include <string>

#include "platform/platform.h"

namespace qzhid {

namespace {

constexpr std::size_t kBufferSize = 1024;
constexpr std::size_t kUsualLine = 240;

/// Writes a number as "%0*d" does, which would cost half the time of a line.
void Append(std::string& text, int value, std::size_t width) {
  char digits[16];
  const char* const end = std::to_chars(digits, digits + sizeof(digits), value).ptr;
  const auto length = static_cast<std::size_t>(end - digits);
  if (length < width) text.append(width - length, '0');
  text.append(digits, length);
}

/// "[year-month-day, hour:minute:second]  func, ", with room for the message.
std::string LinePrefix(const char* func) {
  const platform::LocalTime now = platform::GetLocalTime();
  std::string prefix;
  prefix.reserve(kUsualLine);
  Append(prefix += '[', now.year, 4);
  Append(prefix += '-', now.month, 2);
  Append(prefix += '-', now.day, 2);
  Append(prefix += ", ", now.hour, 2);
  Append(prefix += ':', now.minute, 2);
  Append(prefix += ':', now.second, 2);
  prefix += "]  ";
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
void CMsg::Deliver(unsigned kind, const Call& call) {
  if (!m_Responders.Takes(kind)) return;
  const std::lock_guard<std::recursive_mutex> lock(kind == kProgress ? m_ProgressTurn : m_TextTurn);
  const CResponderList::CPin pin(m_Responders);
  for (const auto& [responder, takes] : pin.Get()) {
    // An earlier receiver of this round may have removed a later one.
    if ((takes & kind) != 0 && pin.IsRegistered(responder)) call(*responder);
  }
}

void CMsg::RemoveResponder(IResponder* responder) {
  m_Responders.Remove(responder);
  for (std::recursive_mutex* const turn : {&m_TextTurn, &m_ProgressTurn}) {
    const std::lock_guard<std::recursive_mutex> waitForDelivery(*turn);
  }
}

void CMsg::Log(int level, const char* func, const char* format, ...) {
  if (!m_Responders.Takes(kLines)) return;
  char message[kBufferSize];
  std::va_list arguments;
  va_start(arguments, format);
  if (std::vsnprintf(message, sizeof(message), format, arguments) < 0) message[0] = '\0';
  va_end(arguments);
  std::string line = LinePrefix(func);
  line += message;
  Deliver(kLines, [&](IResponder& responder) { responder.OnLog(line.c_str(), level); });
}

void CMsg::Log(int level, const char* func, const wchar_t* format, ...) {
  if (!m_Responders.Takes(kLines)) return;
  wchar_t message[kBufferSize];
  std::va_list arguments;
  va_start(arguments, format);
  const int length = std::vswprintf(message, kBufferSize, format, arguments);
  va_end(arguments);
  if (length < 0) throw std::range_error("wide log message does not fit");
  const std::string line = LinePrefix(func) + platform::ToNarrow(message);
  if (line.size() >= kBufferSize) throw std::range_error("wide log line does not fit");
  Deliver(kLines, [&](IResponder& responder) { responder.OnLog(line.c_str(), level); });
}

void CMsg::Print(int level, const char* format, ...) {
  if (!m_Responders.Takes(kTexts)) return;
  char text[kBufferSize];
  std::va_list arguments;
  va_start(arguments, format);
  if (std::vsnprintf(text, sizeof(text), format, arguments) < 0) text[0] = '\0';
  va_end(arguments);
  Deliver(kTexts, [&](IResponder& responder) { responder.OnPrint(text, level); });
}

void CMsg::Notify(const char* text, int remaining) {
  Deliver(kNotices, [&](IResponder& responder) { responder.OnNotify(text, remaining, 0); });
}

void CMsg::Progress(int value) {
  Deliver(kProgress, [&](IResponder& responder) { responder.OnProgress(value); });
}

}  // namespace qzhid
