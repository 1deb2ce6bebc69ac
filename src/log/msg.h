// The process-wide message hub: log lines, raw text, wait notices and progress values on their way
// to the registered receivers.
#pragma once

#include "log/delivery_turn.h"
#include "log/responder.h"
#include "log/responder_list.h"
#include "platform/process_object.h"

// Lets compilers that can do so check the arguments of narrow format strings.
#if defined(__GNUC__)
#define QZ_PRINTF(text, first) __attribute__((format(printf, text, first)))
#else
#define QZ_PRINTF(text, first)
#endif

namespace qzhid {

/// Levels: 0 trace, 1 and 2 information, 3 failure. Any thread may use the hub. Deliveries of
/// different threads never overlap, except that progress has a lock of its own: the host's callback
/// may be waiting for a thread that logs. A receiver's call back into the hub on the same
/// thread is delivered immediately.
class CMsg {
 public:
  static CMsg& Instance();

  CMsg(const CMsg&) = delete;
  CMsg& operator=(const CMsg&) = delete;

  /// Registers a receiver after the others; it must stay alive until it is removed. Takes effect
  /// with the next delivery and waits for none.
  void AddResponder(IResponder* responder) { m_Responders.Add(responder); }

  /// Removes the first registration of the receiver. On return no delivery to it is under way,
  /// except one that this call was made from.
  void RemoveResponder(IResponder* responder);

  /// Removes all receivers. Waits for no delivery: one that is under way may still reach a receiver
  /// after this has returned.
  void ClearResponders() noexcept { m_Responders.Clear(); }
  /// The same for a process whose other threads may be gone while they had locks. Waits
  /// for no lock: while another thread has the list, the receivers stay.
  static void TryClearResponders() noexcept;

  /// Whether any receiver takes lines; for callers that must prepare what they log.
  bool IsHeard() { return m_Responders.Takes(kLines); }

  /// Delivers one line: "[time]  func, message". The message carries its own line end and is cut at
  /// 1023 characters.
  void Log(int level, const char* func, const char* format, ...) QZ_PRINTF(4, 5);

  /// The same for a wide message. Throws std::range_error when prefix and narrow message together
  /// exceed 1023 bytes.
  void Log(int level, const char* func, const wchar_t* format, ...);

  /// Delivers raw text, cut at 1023 characters.
  void Print(int level, const char* format, ...) QZ_PRINTF(3, 4);

  /// Delivers the notice of a polling wait.
  void Notify(const char* text, int remaining);

  /// Delivers a progress value in percent.
  void Progress(int value);

  /// Around a fork of the process, on the thread that forks. The child can log, whatever the other
  /// threads of the process were doing.
  void BeginFork();
  void EndFork(bool isChild) noexcept;

 private:
  friend class platform::CProcessObject<CMsg>;

  CMsg() = default;
  ~CMsg() = default;

  static platform::CProcessObject<CMsg>& Object();

  /// Calls the receivers that take that kind, under its lock.
  template <class Call>
  void Deliver(unsigned kind, const Call& call);

  CResponderList m_Responders;
  CDeliveryTurn m_TextTurn;      // held while receivers are called
  CDeliveryTurn m_ProgressTurn;  // the same for progress values
};

}  // namespace qzhid
