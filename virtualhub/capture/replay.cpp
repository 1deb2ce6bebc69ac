#include "virtualhub/capture/replay.h"

#include <algorithm>

#include "virtualhub/bus/urb_status.h"

namespace virtualhub {

namespace {

std::string Hex(std::uint8_t byte) {
  constexpr const char* kDigits = "0123456789ABCDEF";
  return {'0', 'x', kDigits[byte >> 4], kDigits[byte & 15]};
}

std::string InFrame(const CapturedExchange& exchange) {
  return "frame " + std::to_string(exchange.frame);
}

Result ResultOf(std::int32_t status) {
  switch (status) {
    case kUrbOk:
      return {};
    case kUrbStall:
      return {Error::Stall};
    case kUrbProtocolError:
      return {Error::CutOff};
    default:
      return {Error::SystemCode, 0u - static_cast<std::uint32_t>(status)};
  }
}

// Where two reports differ, as far as the capture has them; empty when they do not.
std::string DifferenceOf(ByteView sent, const CapturedExchange& captured) {
  const ByteView wanted = captured.report;
  const std::size_t length = std::min(sent.size(), wanted.size());
  const auto at = static_cast<std::size_t>(
      std::mismatch(wanted.begin(), wanted.begin() + static_cast<std::ptrdiff_t>(length),
                    sent.begin())
          .first -
      wanted.begin());
  if (at == 0 || sent.empty()) {
    return "the host sends another report than that of " + InFrame(captured);
  }
  // An ID that is 0 is not in the frame.
  const std::size_t inFrame = captured.dataAt + at - (captured.id == 0 ? 1 : 0);
  const std::string place = InFrame(captured) + ", byte " + std::to_string(inFrame);
  if (at < length) {
    return "the host sends " + Hex(sent[at]) + " as byte " + std::to_string(at) +
           " of the report, which is " + Hex(wanted[at]) + " in " + place;
  }
  if (sent.size() < wanted.size() || (sent.size() > wanted.size() && !captured.isCut)) {
    return "the host sends a report of " + std::to_string(sent.size()) + " bytes, which has " +
           std::to_string(wanted.size()) + " in " + place;
  }
  return "";
}

}  // namespace

const CapturedExchange* Replay::Next() const {
  return next_ < stay().exchanges.size() ? &stay().exchanges[next_] : nullptr;
}

std::uint64_t Replay::NextUs() const {
  const CapturedExchange* const next = Next();
  return next == nullptr ? 0 : next->tookUs;
}

Result Replay::Output(ByteView report) {
  const CapturedExchange* const next = Next();
  if (next == nullptr) return Differ("");
  if (!next->isOutput) {
    return Differ("the host sends a report, and reads one in " + InFrame(*next));
  }
  std::string difference = DifferenceOf(report, *next);
  return difference.empty() ? Complete(*next) : Differ(std::move(difference));
}

Result Replay::Input(MutableBytes report) {
  const CapturedExchange* const next = Next();
  if (next == nullptr) return Differ("");
  if (next->isOutput || report.empty() || report[0] != next->id) {
    return Differ(std::string("the host reads a report, and ") +
                  (next->isOutput ? "sends one in " : "another one in ") + InFrame(*next));
  }
  if (next->status == kUrbOk) {
    std::copy_n(next->report.begin(), std::min(report.size(), next->report.size()), report.begin());
  }
  return Complete(*next);
}

Result Replay::Complete(const CapturedExchange& exchange) {
  ++next_;
  difference_.clear();
  return ResultOf(exchange.status);
}

// What comes between the end of a stay and the moment when the hub leaves is no difference: that
// depends on time.
Result Replay::Differ(std::string difference) {
  const CapturedExchange* const next = Next();
  const std::uint64_t frame = next == nullptr ? stay().lastFrame : next->frame;
  if (next == nullptr) {
    difference = IsStayOver() ? "" : "the capture ends with frame " + std::to_string(frame);
  }
  const bool isKnown = reported_ == frame;
  difference_ = isKnown ? "" : std::move(difference);
  if (!difference_.empty()) reported_ = frame;
  return {Error::Stall};
}

bool Replay::IsStayOver() const { return Next() == nullptr && (!IsLastStay() || stay().hasLeft); }

std::optional<std::uint64_t> Replay::AwayUs() const {
  if (IsLastStay()) return std::nullopt;
  const std::uint64_t begin = hub_->stays[stay_ + 1].beginUs, end = stay().endUs;
  return begin > end ? begin - end : 0;
}

void Replay::Leave() {
  if (!IsStayOver() || IsLastStay()) return;
  ++stay_;
  next_ = 0;
}

}  // namespace virtualhub
