// What the lines of a log say about a hub that is looked for or waited for.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <set>
#include <string>

#include "qzhid/explain/log_jobs.h"
#include "qzhid/explain/log_reader.h"

namespace qzhid {

/// Devices, locations or hubs of a session that are remembered.
inline constexpr std::size_t kMostSeen = 4096;

/// What is known of the devices, whichever job its lines belong to.
struct SeenDevices {
  std::optional<Trouble> openCause;   ///< why a device cannot be opened
  std::optional<Trouble> opening;     ///< of a device, that failed
  std::set<std::uint32_t> strangers;  ///< devices that are no hubs, or cannot be opened
  std::set<std::string> otherPaths;   ///< locations of other hubs

  struct Opening {
    Trouble failed;
    bool isStranger = false;  ///< the device is likely no hub
  };
  /// The opening that has failed, if there is one; `event` is the line after it.
  std::optional<Opening> TakeOpening(const LogEvent& event, bool isListing);
  /// A session begins.
  void Forget();
};

/// What one job sees of its hub.
class HubWait {
 public:
  explicit HubWait(SeenDevices& devices) : devices_(devices) {}

  /// A step begins that waits.
  void Begin();
  /// The wait of the step is over. What was wrong before is forgotten.
  void Connect();
  void Take(const LogEvent& event, Step step);

  void AddRefused(Trouble request);
  void AddClosed(Trouble opening);
  /// Why the hub did not come, as far as that is known.
  void Explain(Trouble& trouble) const;

  bool IsArrived() const { return isArrived_; }
  bool IsConnected() const { return isConnected_; }
  bool HasLeft() const { return hasLeft_; }
  const WaitFacts& Facts() const { return facts_; }
  const std::optional<Trouble>& Cause() const { return cause_; }

 private:
  void TakeSeenPath(const LogEvent& event, Step step);

  SeenDevices& devices_;
  bool isArrived_ = false;    ///< the wait of the step has found the hub
  bool isConnected_ = false;  ///< and is over
  bool hasLeft_ = false;      ///< to reset
  WaitFacts facts_;
  std::optional<Trouble> cause_;  ///< the last failure in the wait
};

}  // namespace qzhid
