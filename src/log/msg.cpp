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

constexpr std::size_t kUsualLineSize = 256 + kBufferSize;

/// Writes "[time]  func, message" as snprintf does, which also says what it returns.
std::size_t WriteLine(char* line, std::size_t size, const char* func, const char* message) {
  const platform::LocalTime now = platform::GetLocalTime();
  const int length =
      std::snprintf(line, size, "[%04d-%02d-%02d, %02d:%02d:%02d]  %s, %s", now.year, now.month,
                    now.day, now.hour, now.minute, now.second, func, message);
  return static_cast<std::size_t>(std::max(length, 0));
}

std::string MakeLine(const char* func, const char* message) {
  std::string line(WriteLine(nullptr, 0, func, message), '\0');
  WriteLine(line.data(), line.size() + 1, func, message);
  return line;
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
  char message[kBufferSize] = {};
  std::va_list arguments;
  va_start(arguments, format);
  std::vsnprintf(message, sizeof(message), format, arguments);
  va_end(arguments);
  const auto deliver = [&](const char* line) {
    Deliver([&](IResponder& responder) { responder.OnLog(line, level); });
  };
  // A line that tells of a lack of memory must not need any.
  char usual[kUsualLineSize];
  if (WriteLine(usual, sizeof(usual), func, message) < sizeof(usual)) {
    deliver(usual);
  } else {
    deliver(MakeLine(func, message).c_str());
  }
}

void CMsg::Log(int level, const char* func, const wchar_t* format, ...) {
  if (m_Responders.IsEmpty()) return;
  wchar_t message[kBufferSize] = {};
  std::va_list arguments;
  va_start(arguments, format);
  const int length = std::vswprintf(message, kBufferSize, format, arguments);
  va_end(arguments);
  if (length < 0) throw std::range_error("wide log message does not fit");
  const std::string line = MakeLine(func, platform::ToNarrow(message).c_str());
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
