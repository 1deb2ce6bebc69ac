// A job of the library, repeated with one fault at every place where one can strike.
#pragma once

#include <functional>

#include "support/log_capture.h"
#include "support/machine_test.h"
#include "virtualhub/hub/image.h"

namespace qzhid::test {

/// What goes wrong, and at each of what.
struct FaultKind {
  enum class At { Output, Input, Exchange, Reset, Call, Allocation, AllAllocationsFrom };

  const char* name;
  At at;
  Fault fault = {};
  bool isQuick = false;  ///< part of the sweeps of the small jobs, too
};
extern const std::vector<FaultKind> kFaultKinds;

/// Whether the fault gives the library a false answer; the key does not matter.
bool IsLie(const FaultKind& kind, std::uint16_t key);

/// The hub at the start: named "hub", with I2C targets, at port 3.1; a keyboard is there, too.
struct Start {
  const char* name;
  const char* members;  ///< more JSON members of the hub
  bool isDual = false;
  const char* numbers = "by_arrival";  ///< how nodes get theirs
};
extern const Start kFlashStart;

/// Flash code, with the ids of ROM code: the hub's nodes have the same numbers all the time.
extern const Start kSameNumbersStart;

/// Whether by such a fault the hub is away for a while, so that its old number may come back.
bool ComesBackAsItWas(const Fault& fault);

struct Job {
  enum class Opens {
    ForIt,      ///< it is given an open handle and leaves the device open
    AndCloses,  ///< it is given an open handle and closes the device
    Itself,     ///< it is given none and leaves nothing open
    ForFlow     ///< ForIt, and no export: what goes wrong need not be logged
  };

  const char* name;
  Opens opens;
  std::function<bool(void* handle)> run;  ///< whether it was reported as done
  std::function<bool()> isDone;           ///< whether it then is
  /// Whether it may be reported as done when it is not, with a fault at a request of that key.
  std::function<bool(const FaultKind&, std::uint16_t key)> mayLie = IsLie;
};

class FaultSweep : public MachineTest {
 protected:
  FaultSweep();
  ~FaultSweep() override;

  /// Injects the kind at every place of the job; one line of the summary.
  void Sweep(const Start& start, const Job& job, const FaultKind& kind);
  /// Lists and opens the hub; null when it is not there.
  void* OpenHub() const;
  bool Update(void* handle) const;
  bool RunsImage() const;

  static void OnProgress(std::int32_t percent) { s_progress = percent; }
  static inline int s_progress;

  const virtualhub::Bytes image = virtualhub::BuildImage({.version = 0x0210}, 0x8000);
  const TempFile file{image};

 private:
  /// One place of the sweep.
  struct Place {
    Fault fault;
    std::uint64_t allocation = 0;  ///< 0: the fault strikes
    std::uint16_t key = 0;         ///< of the request that is struck
  };
  /// Counts the failures in the log, without memory of its own.
  class Listener final : public SilentReceiver {
   public:
    void OnLog(const char*, int level) override { failures += level >= 3 ? 1 : 0; }
    int failures = 0;
  };
  struct Outcomes {
    int tried = 0, done = 0, wrong = 0, failed = 0, replugged = 0, lost = 0;
  };

  std::vector<Place> FindPlaces(const Job& job, const FaultKind& kind);
  void Inject(const Start& start, const Job& job, const FaultKind& kind, const Place& place);
  bool RunStruck(const Job& job, const FaultKind& kind, const Place& place, void* handle);
  void Recover(const FaultKind& kind, const Place& place);
  void Check(bool isMet, const char* claim, const Place& place);

  Listener m_Listener;
  virtualhub::Scenario m_Scenario;
  Outcomes m_Outcomes;
  int m_nComplaints = 0;
};

}  // namespace qzhid::test
