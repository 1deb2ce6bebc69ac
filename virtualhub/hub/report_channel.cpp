#include "virtualhub/hub/report_channel.h"

namespace virtualhub {

struct ReportChannel::Layout {
  std::uint8_t outputId, inputId;
  std::size_t headerLength;  // from byte 1 of the output report
  std::size_t answerOffset;  // in the input report
};

namespace {

std::size_t Behind(std::size_t reportLength, std::size_t offset) {
  return reportLength > offset ? reportLength - offset : 0;
}

}  // namespace

ReportChannel::ReportChannel(const ReportConfig& config)
    : config_(config), answer_(config.inputLength) {}

const ReportChannel::Layout* ReportChannel::LayoutOf(std::uint8_t outputId) const {
  static constexpr Layout kChannel1{0x00, 0x00, 64, 1};
  static constexpr Layout kChannel2{0xF0, 0xF1, 63, 64};
  if (config_.channel1 && outputId == kChannel1.outputId) return &kChannel1;
  if (config_.channel2 && outputId == kChannel2.outputId) return &kChannel2;
  return nullptr;
}

Result ReportChannel::Decode(ByteView report, VendorRequest& request) {
  const Layout* layout = report.empty() ? nullptr : LayoutOf(report[0]);
  if (layout == nullptr || report.size() != config_.outputLength) return {Error::BadReport};
  DropAnswer();
  layout_ = layout;
  const std::size_t headerEnd = 1 + layout->headerLength;
  if (report.size() < headerEnd) return {Error::Stall};
  request = {report.subspan(1, layout->headerLength), report.subspan(headerEnd)};
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
