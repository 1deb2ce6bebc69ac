#include "log/msg.h"

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <cwchar>
#include <stdexcept>
#include <string>

#include "platform/platform.h"

namespace qzhid {

namespace {

constexpr std::size_t kBufferSize = 1024;

constexpr std::size_t kPrefixSize = 256;  // room for the stamp and the name of any operation

/// Writes "[time]  func, " and returns its length. Without memory of its own: a line that tells of
/// a lack of memory must not need any.
std::size_t WritePrefix(char* line, const char* func) {
  const platform::LocalTime now = platform::GetLocalTime();
  const int length =
      std::snprintf(line, kPrefixSize, "[%04d-%02d-%02d, %02d:%02d:%02d]  %s, ", now.year,
                    now.month, now.day, now.hour, now.minute, now.second, func);
  return std::min(static_cast<std::size_t>(length), kPrefixSize - 1);
}

}  // namespace

CMsg& CMsg::Instance() {
  static CMsg instance;
  return instance;
}

template <class Call>
void CMsg::Deliver(const Call& call) {
  const std::lock_guard<std::recursive_mutex> lock(m_Delivery);
  const CResponderList::CPin pin(m_Responders);
  for (IResponder* const responder : pin.Get()) {
    // An earlier receiver of this round may have removed a later one.
    if (pin.IsRegistered(responder)) call(*responder);
  }
}

void CMsg::RemoveResponder(IResponder* responder) {
  m_Responders.Remove(responder);
  const std::lock_guard<std::recursive_mutex> waitForDelivery(m_Delivery);
}

void CMsg::Log(int level, const char* func, const char* format, ...) {
  if (m_Responders.IsEmpty()) return;
  char line[kPrefixSize + kBufferSize] = {};
  char* const message = line + WritePrefix(line, func);
  std::va_list arguments;
  va_start(arguments, format);
  std::vsnprintf(message, kBufferSize, format, arguments);
  va_end(arguments);
  Deliver([&](IResponder& responder) { responder.OnLog(line, level); });
}

void CMsg::Log(int level, const char* func, const wchar_t* format, ...) {
  if (m_Responders.IsEmpty()) return;
  wchar_t message[kBufferSize] = {};
  std::va_list arguments;
  va_start(arguments, format);
  const int length = std::vswprintf(message, kBufferSize, format, arguments);
  va_end(arguments);
  if (length < 0) throw std::range_error("wide log message does not fit");
  char prefix[kPrefixSize];
  WritePrefix(prefix, func);
  const std::string line = prefix + platform::ToNarrow(message);
  if (line.size() >= kBufferSize) throw std::range_error("wide log line does not fit");
  Deliver([&](IResponder& responder) { responder.OnLog(line.c_str(), level); });
}

void CMsg::Print(int level, const char* format, ...) {
  if (m_Responders.IsEmpty()) return;
  char text[kBufferSize] = {};
  std::va_list arguments;
  va_start(arguments, format);
  std::vsnprintf(text, sizeof(text), format, arguments);
  va_end(arguments);
  Deliver([&](IResponder& responder) { responder.OnPrint(text, level); });
}

void CMsg::Notify(const char* text, int remaining) {
  Deliver([&](IResponder& responder) { responder.OnNotify(text, remaining, 0); });
}

void CMsg::Progress(int value) {
  Deliver([&](IResponder& responder) { responder.OnProgress(value); });
}

}  // namespace qzhid
