// A hub that does what one did in a capture.
#pragma once

#include <memory>
#include <string>

#include "virtualhub/capture/captured_hub.h"
#include "virtualhub/hub/result.h"

namespace virtualhub {

/// It answers reports in the order of the capture. A report that differs from the next one there
/// stalls, and the next one stays the same.
class Replay {
 public:
  explicit Replay(std::shared_ptr<const CapturedHub> hub) : hub_(std::move(hub)) {}

  const CapturedStay& stay() const { return hub_->stays[stay_]; }
  /// The same, to be kept.
  std::shared_ptr<const CapturedStay> SharedStay() const { return {hub_, &stay()}; }

  /// How long the next exchange takes, in microseconds.
  std::uint64_t NextUs() const;

  /// The host sends a report, or reads one, of which byte 0 has the ID.
  Result Output(ByteView report);
  Result Input(MutableBytes report);

  /// How the last exchange differed from the capture; empty when it did not, and when the same one
  /// has differed before.
  const std::string& difference() const { return difference_; }

  /// Whether this stay has had all of its exchanges, and the hub left the bus after them.
  bool IsStayOver() const;
  /// Then: how long the hub is away, in microseconds. None: it does not come back.
  std::optional<std::uint64_t> AwayUs() const;
  /// The hub has left the bus: the next stay begins if this one is over.
  void Leave();

 private:
  const CapturedExchange* Next() const;
  bool IsLastStay() const { return stay_ + 1 == hub_->stays.size(); }
  Result Differ(std::string difference);
  Result Complete(const CapturedExchange& exchange);

  std::shared_ptr<const CapturedHub> hub_;
  std::size_t stay_ = 0, next_ = 0;
  std::string difference_;
  std::uint64_t reported_ = 0;  ///< the frame of the last difference
};

}  // namespace virtualhub
