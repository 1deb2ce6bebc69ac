#include "virtualhub/hub/report_channel.h"

namespace virtualhub {

namespace {

constexpr ReportLayout kChannel1{0x00, 0x00, 64, 1}, kChannel2{0xF0, 0xF1, 63, 64};

std::size_t Behind(std::size_t reportLength, std::size_t offset) {
  return reportLength > offset ? reportLength - offset : 0;
}

}  // namespace

ReportChannel::ReportChannel(const ReportConfig& config)
    : config_(config), answer_(config.inputLength) {}

const ReportLayout* ReportLayout::Of(std::uint8_t outputId) {
  if (outputId == kChannel1.outputId) return &kChannel1;
  return outputId == kChannel2.outputId ? &kChannel2 : nullptr;
}

bool ReportChannel::HasChannel(const ReportLayout& layout) const {
  return layout.outputId == kChannel1.outputId ? config_.channel1 : config_.channel2;
}

Result ReportChannel::Decode(ByteView report, VendorRequest& request) {
  const ReportLayout* layout = report.empty() ? nullptr : ReportLayout::Of(report[0]);
  if (layout == nullptr || !HasChannel(*layout) || report.size() != config_.outputLength) {
    return {Error::BadReport};
  }
  DropAnswer();
  layout_ = layout;
  if (report.size() < 1 + layout->headerLength) return {Error::Stall};
  request = layout->RequestIn(report);
  const bool fits = request.IsIn() || request.length() <= request.dataArea.size();
  return {fits ? Error::None : Error::Stall};
}

MutableBytes ReportChannel::PrepareAnswer(std::size_t length) {
  answerLength_ = std::min(length, Behind(config_.inputLength, layout_->answerOffset));
  const MutableBytes answer = MutableBytes(answer_).first(*answerLength_);
  std::fill(answer.begin(), answer.end(), std::uint8_t{0});
  return answer;
}

Result ReportChannel::Encode(MutableBytes report) {
  if (config_.inputLength == 0 || report.size() < config_.inputLength) return {Error::BadReport};
  if (!answerLength_) return {Error::Stall};
  if (report[0] != layout_->inputId) return {Error::BadReport};
  std::fill_n(report.begin() + 1, config_.inputLength - 1, std::uint8_t{0});
  std::copy_n(answer_.begin(), *answerLength_,
              report.begin() + static_cast<std::ptrdiff_t>(layout_->answerOffset));
  DropAnswer();
  return {};
}

}  // namespace virtualhub
