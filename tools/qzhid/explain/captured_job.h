// The jobs of one hub in a capture, made of its requests.
#pragma once

#include <cstdint>
#include <optional>

#include "qzhid/explain/captured_requests.h"
#include "qzhid/explain/log_jobs.h"
#include "virtualhub/base/bytes.h"

namespace qzhid {

/// An update while its requests are read.
class CapturedUpdate {
 public:
  /// Begins with what was asked of the hub before: it was found, and its status was read.
  CapturedUpdate(Job found, std::int64_t modeUs);

  /// Whether the host goes on with this update when it sends the request; otherwise it has ended.
  bool Continues(const CapturedRequest& request) const;
  void Take(const CapturedRequest& request);
  /// The hub has come to a new address.
  void Arrive() { isBack_ = true; }

  /// Whether the hub has said what it runs now.
  bool IsOver() const { return isOver_; }
  /// `isCut`: the capture ends here.
  Job End(bool isCut);

 private:
  void TakeReady(const CapturedRequest& request);
  void TakeMode(const CapturedRequest& request);
  void TakeStep(const CapturedRequest& request, Step step);
  void TakeData(const CapturedRequest& request);
  void EnterStep(Step step, std::int64_t timeUs);
  void AddTrouble(Trouble trouble);

  Job job_;
  Step step_ = Step::None;
  bool isBack_ = false;  ///< since the last reset
  bool isOver_ = false;
  bool isGood_ = true;         ///< the hub did not say that it is in its loader at the end
  bool isDamaged_ = false;     ///< what was read back is not what was written
  std::uint32_t refused_ = 0;  ///< requests 40/02 since the last reset
  std::optional<CapturedRequest> lastRefused_;
  virtualhub::Bytes image_;  ///< what was written
};

/// Follows all requests to one hub.
class CapturedJobs {
 public:
  explicit CapturedJobs(Session& session) : session_(session) {}

  /// The hub has come to a new address.
  void Arrive();
  void Take(const CapturedRequest& request);
  /// The capture has ended.
  void End();

  /// Whether the hub is to come back at another address, after a reset or because it left.
  bool IsAway() const { return isAway_; }

 private:
  void TakeIdentification(const CapturedRequest& request);
  void TakeOther(const CapturedRequest& request);
  void BeginUpdate(const CapturedRequest& request);
  void EndUpdate(bool isCut);
  void EndIdentification();
  void MergeFound();

  Session& session_;
  JobKeeper keeper_;
  bool isAway_ = false;
  std::optional<CapturedUpdate> update_;
  std::optional<Job> opened_;  ///< the hub was identified, and then opened
  std::optional<Job> found_;   ///< what may be the beginning of an update
  std::int64_t modeUs_ = 0;    ///< when it was asked what it runs, in `found_`
  std::uint16_t lastKey_ = 0;
};

}  // namespace qzhid
