// Which calls can use the connection, and which must wait.
#pragma once

#include <condition_variable>
#include <mutex>
#include <thread>
#include <vector>

#include "platform/process_object.h"

namespace qzhid {

/// What a call does to the connection.
enum class ConnectionUse {
  Untouched,  ///< nothing: the call never waits and is never refused
  Share,      ///< sends requests to the hub that is open
  TakeOver,   ///< opens and closes devices for its own purpose
  Close,      ///< closes it
  Update,     ///< a take-over that no other call may cross
};

/// Calls that share the connection run side by side; the others wait until they have it for
/// themselves. No call of another thread waits for an update, because its progress callback may be
/// waiting for that very thread: such calls are refused. So is a take-over from the callback
/// itself, because it would redirect the update to another hub. Other calls inside a call of the
/// same thread pass.
class CCallGate {
 public:
  static CCallGate& Instance();

  CCallGate(const CCallGate&) = delete;
  CCallGate& operator=(const CCallGate&) = delete;

  /// How a call was received.
  enum class Entry {
    Free,      ///< the call does not touch the connection
    Refused,   ///< an update is running
    Shared,    ///< the call is one of those that run side by side
    Owned,     ///< the connection is this thread's
    Deferred,  ///< a close that the update makes when it returns: it is done with its hub
  };

  /// One call's stay; throws std::system_error, and std::bad_alloc for a close.
  class CPass {
   public:
    /// `closing` is the handle that a call with ConnectionUse::Close closes.
    explicit CPass(ConnectionUse use, void* closing = nullptr)
        : m_Use(use),
          m_Entry(use == ConnectionUse::Untouched ? Entry::Free : Instance().Enter(use, closing)) {}
    ~CPass() {
      if (m_Entry == Entry::Shared || m_Entry == Entry::Owned) Instance().Leave(m_Use, m_Entry);
    }
    CPass(const CPass&) = delete;
    CPass& operator=(const CPass&) = delete;

    /// Whether the call may run.
    explicit operator bool() const { return !IsDeferred() && m_Entry != Entry::Refused; }
    bool IsDeferred() const { return m_Entry == Entry::Deferred; }

   private:
    const ConnectionUse m_Use;
    const Entry m_Entry;
  };

  /// The running update is done with the hub: calls from its callback can take over, and handles
  /// that other threads close are collected until the update ends.
  void EndProtection();

  /// A handle that another thread wanted to close during the running update, which is this
  /// thread's. Null when none is left; from then on other threads wait for the update, whose
  /// callback is not called any more.
  void* TakeDeferredClose() noexcept;

  /// Held by the thread that forks the process.
  std::mutex& ForkLock() { return m_Lock; }
  /// In a child process, which has only the thread that made it: forgets the calls of all others.
  /// Returns whether there were any.
  bool DropOtherThreads() noexcept;

 private:
  friend class platform::CProcessObject<CCallGate>;

  /// The update that has the connection, as other threads see it.
  enum class Phase {
    None,       ///< there is no update
    Protected,  ///< calls are refused
    Done,       ///< 100 % was reported: calls are refused, closes are deferred
    Returning,  ///< calls wait
  };

  CCallGate() = default;

  bool IsOwn() const;
  bool IsRefusing() const;
  Entry Enter(ConnectionUse use, void* closing);
  Entry EnterAgain(ConnectionUse use);
  void Leave(ConnectionUse use, Entry entry);

  std::mutex m_Lock;
  std::condition_variable m_Free;
  unsigned m_nCalls = 0;  // of the owner, inside one another
  std::thread::id m_Owner;
  unsigned m_nShared = 0;   // calls that run side by side
  unsigned m_nWaiting = 0;  // calls that want to own
  Phase m_Phase = Phase::None;
  std::vector<void*> m_Deferred;
};

}  // namespace qzhid
