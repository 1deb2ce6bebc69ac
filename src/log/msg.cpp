#include "log/msg.h"

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <cwchar>
#include <stdexcept>
#include <string>
#include <string_view>

#include "platform/platform.h"
#include "platform/process_object.h"

namespace qzhid {

namespace {

constexpr std::size_t kBufferSize = 1024;
constexpr std::size_t kUsualName = 200;  // longer than the name of any operation
constexpr std::size_t kRestOfLine = 128 + kBufferSize;

/// Writes "[year-month-day, hour:minute:second]  func, " and returns its end.
char* PutPrefix(char* line, std::size_t room, std::string_view func) {
  const platform::LocalTime now = platform::GetLocalTime();
  return line + std::snprintf(line, room, "[%04d-%02d-%02d, %02d:%02d:%02d]  %.*s, ", now.year,
                              now.month, now.day, now.hour, now.minute, now.second,
                              static_cast<int>(func.size()), func.data());
}

/// Room for one line. A line that reports a lack of memory must not need any.
class CLine {
 public:
  explicit CLine(std::string_view func) {
    if (func.size() > kUsualName) m_strLong.resize(func.size() + kRestOfLine);
    m_pText = m_strLong.empty() ? m_Usual : m_strLong.data();
    m_pMessage = PutPrefix(m_pText, std::max(sizeof(m_Usual), m_strLong.size()), func);
  }
  CLine(const CLine&) = delete;
  CLine& operator=(const CLine&) = delete;

  const char* Text() const { return m_pText; }
  /// Where the message belongs: kBufferSize bytes.
  char* Message() { return m_pMessage; }
  std::string_view Prefix() const { return {m_pText, m_pMessage}; }

 private:
  char m_Usual[kUsualName + kRestOfLine] = {};
  std::string m_strLong;
  char* m_pText;
  char* m_pMessage;
};

}  // namespace

platform::CProcessObject<CMsg>& CMsg::Object() {
  static constinit platform::CProcessObject<CMsg> object;
  return object;
}

CMsg& CMsg::Instance() { return Object().Get(); }

void CMsg::TryClearResponders() noexcept {
  if (CMsg* const made = Object().IfMade(); made != nullptr) made->m_Responders.TryClear();
}

template <class Call>
void CMsg::Deliver(unsigned kind, const Call& call) {
  if (!m_Responders.Takes(kind)) return;
  const auto receivers = m_Responders.Get();
  if (!receivers) return;
  const std::lock_guard<CDeliveryTurn> lock(kind == kProgress ? m_ProgressTurn : m_TextTurn);
  for (const auto& entry : *receivers) {
    // An earlier receiver of this round may have removed a later one.
    if ((entry->takes & kind) != 0 && entry->isRegistered) call(entry->responder);
  }
}

void CMsg::BeginFork() { m_Responders.ForkLock().lock(); }

void CMsg::EndFork(bool isChild) noexcept {
  m_Responders.ForkLock().unlock();
  if (!isChild) return;
  m_ProgressTurn.EndFork();
  m_TextTurn.EndFork();
}

void CMsg::RemoveResponder(IResponder* responder) {
  m_Responders.Remove(responder);
  for (CDeliveryTurn* const turn : {&m_TextTurn, &m_ProgressTurn}) {
    const std::lock_guard<CDeliveryTurn> waitForDelivery(*turn);
  }
}

void CMsg::Log(int level, const char* func, const char* format, ...) {
  if (!m_Responders.Takes(kLines)) return;
  CLine line(func);
  std::va_list arguments;
  va_start(arguments, format);
  if (std::vsnprintf(line.Message(), kBufferSize, format, arguments) < 0) *line.Message() = '\0';
  va_end(arguments);
  Deliver(kLines, [&](IResponder& responder) { responder.OnLog(line.Text(), level); });
}

void CMsg::Log(int level, const char* func, const wchar_t* format, ...) {
  if (!m_Responders.Takes(kLines)) return;
  wchar_t message[kBufferSize];
  std::va_list arguments;
  va_start(arguments, format);
  const int length = std::vswprintf(message, kBufferSize, format, arguments);
  va_end(arguments);
  if (length < 0) throw std::range_error("wide log message does not fit");
  std::string line(CLine(func).Prefix());
  line += platform::ToNarrow(message);
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
