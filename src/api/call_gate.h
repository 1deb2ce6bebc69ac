// Who may use the connection: one thread at a time, and nothing that would disturb an update.
#pragma once

#include <condition_variable>
#include <mutex>
#include <thread>

namespace qzhid {

/// What a call does to the connection.
enum class ConnectionUse {
  Share,     ///< sends requests to the hub that is open, or gives the connection up
  TakeOver,  ///< opens and closes devices for a purpose of its own
  Update,    ///< a take-over that none may cross
};

/// Calls of other threads wait for their turn, but never for an update: its progress callback may
/// be waiting for the very thread that calls. They are refused, and so is a take-over from the
/// callback itself, so that no update is led to another hub. Other calls inside a call of the same
/// thread pass.
class CCallGate {
 public:
  static CCallGate& Instance();

  CCallGate(const CCallGate&) = delete;
  CCallGate& operator=(const CCallGate&) = delete;

  /// One call's stay; throws std::system_error.
  class CPass {
   public:
    explicit CPass(ConnectionUse use) : m_Use(use), m_bPassed(Instance().Enter(use)) {}
    ~CPass() {
      if (m_bPassed) Instance().Leave(m_Use);
    }
    CPass(const CPass&) = delete;
    CPass& operator=(const CPass&) = delete;

    /// False: an update is running.
    explicit operator bool() const { return m_bPassed; }

   private:
    const ConnectionUse m_Use;
    const bool m_bPassed;
  };

  /// The running update is through with the hub: calls from its callback may take over.
  void EndProtection();

 private:
  CCallGate() = default;

  bool Enter(ConnectionUse use);
  void Leave(ConnectionUse use);

  std::mutex m_Lock;
  std::condition_variable m_Free;
  unsigned m_nCalls = 0;      // of one thread, inside one another
  std::thread::id m_Owner;    // that thread
  bool m_bUpdating = false;   // its outermost call is an update
  bool m_bProtected = false;  // from take-overs inside
};

}  // namespace qzhid
