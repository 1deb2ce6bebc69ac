// How an update goes on, on standard error.
#pragma once

#include <string>
#include <vector>

#include "qzhid/hubs.h"
#include "qzhid/outcome.h"
#include "qzhid/progress.h"

namespace qzhid {

/// Bars that move on a terminal and lines elsewhere; lines; or a JSON object a line.
enum class ProgressStyle { Auto, Lines, Json };

/// One line of the display.
struct ShownHub {
  std::string name;  ///< empty when there is one hub only
  const Progress* progress;
  std::string word;  ///< instead of the progress: "waiting", or the outcome
};

class UpdateDisplay {
 public:
  UpdateDisplay(Host& host, ProgressStyle style) : host_(host), style_(style) {}

  /// Begins to show bars, if this is a terminal with more lines than there are hubs.
  void Start(std::size_t hubs);
  /// Draws the bars again.
  void Draw(const std::vector<ShownHub>& hubs);

  /// A hub has come to its next ten percent.
  void ShowProgress(const Hub& hub, const Progress& progress);
  /// Why a hub is waited for.
  void ShowAway(const Hub& hub, const std::string& why);
  /// A try on a hub has failed, and the next one begins.
  void ShowRetry(const Hub& hub, const std::string& what, int retry, int retries);
  /// What becomes of a hub is known.
  void ShowOutcome(const Hub& hub, Outcome outcome, const std::string& runs,
                   const Failure* failure);
  /// Something that concerns no hub by itself.
  void Say(const std::string& text);

 private:
  Host& host_;
  ProgressStyle style_;
  LiveLines live_;
  bool isLive_ = false;
};

}  // namespace qzhid
