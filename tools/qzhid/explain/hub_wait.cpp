#include "qzhid/explain/hub_wait.h"

#include <utility>

#include "qzhid/explain/line_facts.h"

namespace qzhid {

std::optional<SeenDevices::Opening> SeenDevices::TakeOpening(const LogEvent& event,
                                                             bool isListing) {
  if (!opening) return std::nullopt;
  Trouble failed = *std::exchange(opening, std::nullopt);
  const bool hasCause = openCause && openCause->line->sign != Sign::NoText;
  const bool isKnown = openCause.has_value();
  if (openCause) failed = *std::exchange(openCause, std::nullopt);
  bool isStranger = !hasCause;
  if (event.line->sign == Sign::NoHub) {
    const std::uint32_t device = event.values.Number(0);
    isStranger = isStranger || strangers.contains(device);
    if (isListing && strangers.size() < kMostSeen) strangers.insert(device);
  } else if (!isKnown) {
    isStranger = false;  // it was a hub a moment before
  }
  return Opening{std::move(failed), isStranger};
}

void SeenDevices::Forget() {
  strangers.clear();
  otherPaths.clear();
}

void HubWait::Begin() { isArrived_ = isConnected_ = hasLeft_ = false; }

void HubWait::Connect() {
  isConnected_ = true;
  facts_ = {};
  cause_.reset();
}

void HubWait::Take(const LogEvent& event, Step step) {
  switch (event.line->sign) {
    case Sign::DeviceIds:
    case Sign::IsHub:
      devices_.openCause.reset();
      return;
    case Sign::NoText:
      devices_.openCause = TroubleOf(event);
      return;
    case Sign::Cause:
      if (event.line->topic == Topic::Finding) devices_.openCause = TroubleOf(event);
      return;
    case Sign::OpenResult:
      devices_.opening = TroubleOf(event);
      return;
    case Sign::ScanFail:
    case Sign::ParentFail:
      ++facts_.blind;
      cause_ = TroubleOf(event);
      cause_->step = step;
      return;
    case Sign::Arrived:
      isArrived_ = true;
      return;
    case Sign::LeftTrue:
      hasLeft_ = true;
      return;
    case Sign::WantedPath:
      facts_.wanted = ShortText(event.values.texts[0]);
      return;
    case Sign::SeenPath:
      return TakeSeenPath(event, step);
    default:
      return;
  }
}

void HubWait::TakeSeenPath(const LogEvent& event, Step step) {
  const std::string path = ShortText(event.values.texts[0]);
  auto& others = devices_.otherPaths;
  if (step == Step::Find) {
    if (others.size() < kMostSeen) others.insert(path);
  } else if (IsWait(step) && !isConnected_ && !others.contains(path)) {
    facts_.elsewhere = path;
  }
}

void HubWait::AddRefused(Trouble request) {
  ++facts_.refused;
  cause_ = std::move(request);
}

void HubWait::AddClosed(Trouble opening) {
  ++facts_.closed;
  cause_ = std::move(opening);
}

void HubWait::Explain(Trouble& trouble) const {
  trouble.wait = facts_;
  if (!cause_) return;
  trouble.code = cause_->code;
  trouble.codeKind = cause_->codeKind;
  trouble.request = cause_->request;
}

}  // namespace qzhid
