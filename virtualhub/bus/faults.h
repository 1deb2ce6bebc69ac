// Faults: what goes wrong, and at which event.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "virtualhub/base/bytes.h"
#include "virtualhub/bus/service.h"

namespace virtualhub {

/// One fault. It watches events of one kind, strikes at the n-th that it sees, and then at the
/// following ones, `count` times in all. Of several faults that strike at one event the first
/// added acts.
struct Fault {
  enum class On {
    Exchange,  ///< any report exchange
    Output,    ///< an output report
    Input,     ///< an input report
    Request,   ///< a decoded vendor request of `requestType` and `request`
    Call,      ///< a call of `service`
    Reset,     ///< a reset that a hub has accepted
  };
  enum class Action {
    Fail,          ///< fails with the system code `code`, which may be 0; nothing is carried out
    Stall,         ///< the device refuses; nothing is carried out
    AnswerZeros,   ///< the answer's data is all 0x00
    AnswerOnes,    ///< the answer's data is all 0xFF
    AnswerRandom,  ///< the answer's data is pseudo-random, from `seed`
    LoseWrite,     ///< accepted, but not carried out
    Unplug,        ///< the device loses its plug; an exchange under way is cut off
    PowerLoss,     ///< the device loses its supply; an exchange under way is cut off
    Hold,          ///< another program opens the device for itself alone
    NeverReturn,   ///< On::Reset only: the hub leaves the bus for good
    ReturnAt,      ///< On::Reset only: the hub comes back at `port`
  };

  On on = On::Exchange;
  std::uint8_t requestType = 0, request = 0;
  std::optional<Service> service = {};  ///< for On::Call, which needs one
  std::string device = {};  ///< watches, and strikes, only this device; empty: the one concerned
  std::uint32_t nth = 1;
  std::uint32_t count = 1;  ///< 0: for ever

  Action action = Action::Fail;
  std::uint32_t code = 0;
  std::uint32_t seed = 1;
  std::optional<std::uint32_t> returnMs = {};   ///< Unplug, PowerLoss: back after that; none: never
  std::string port = {};                        ///< where it comes back; empty: where it was
  std::optional<std::uint32_t> releaseMs = {};  ///< Hold: closed after that; none: never
};

/// One event as the faults see it. An exchange is Output or Input.
struct FaultEvent {
  Fault::On on = Fault::On::Exchange;
  std::string_view device;  ///< empty when no device is concerned
  std::optional<Service> service = {};
  std::uint8_t requestType = 0, request = 0;
};

class Faults {
 public:
  void Add(const Fault& fault) { watched_.push_back({fault}); }
  void Clear() { watched_.clear(); }

  /// Counts the event with every fault that watches it; the fault that strikes now, or null.
  const Fault* Strike(const FaultEvent& event);

 private:
  struct Watched {
    Fault fault;
    std::uint64_t seen = 0;
  };
  std::vector<Watched> watched_;
};

/// Overwrites answer data as one of the Answer... actions says; any other action leaves it.
void Garble(const Fault& fault, MutableBytes data);

}  // namespace virtualhub
