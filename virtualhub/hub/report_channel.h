// The tunnel that carries vendor requests in HID reports.
#pragma once

#include <optional>

#include "virtualhub/hub/hub_config.h"
#include "virtualhub/hub/result.h"
#include "virtualhub/hub/vendor_request.h"

namespace virtualhub {

/// Where the parts of a request are in the reports of a channel. Channel 1: output report ID 0, 64
/// header bytes, data from byte 65; answer in report ID 0 from byte 1. Channel 2: output report ID
/// 0xF0, 63 header bytes, data from byte 64; answer in report ID 0xF1 from byte 64.
struct ReportLayout {
  std::uint8_t outputId, inputId;
  std::size_t headerLength;  ///< from byte 1 of the output report
  std::size_t answerOffset;  ///< in the input report

  /// By the ID of the output report; null when no channel has it.
  static const ReportLayout* Of(std::uint8_t outputId);

  /// The request in an output report, which has its whole header.
  VendorRequest RequestIn(ByteView report) const {
    return {report.subspan(1, headerLength), report.subspan(1 + headerLength)};
  }
};

/// The hub's end of its report channels. It keeps the answer of the last IN request until it is
/// read or the next request comes.
class ReportChannel {
 public:
  explicit ReportChannel(const ReportConfig& config);

  /// Unpacks a request and drops any older answer. Fails with BadReport when no declared output
  /// report has that ID and length, with Stall when the data stage does not fit the report.
  Result Decode(ByteView report, VendorRequest& request);

  /// A buffer of zeros for the answer to the last request: of its length, or less if the channel's
  /// input report cannot carry that.
  MutableBytes PrepareAnswer(std::size_t length);
  void DropAnswer() { answerLength_.reset(); }

  /// Moves the waiting answer into an input report. Fails with BadReport when the ID in byte 0 is
  /// not that of the answer's channel or the report is too short, with Stall when no answer waits.
  Result Encode(MutableBytes report);

 private:
  bool HasChannel(const ReportLayout& layout) const;

  ReportConfig config_;
  const ReportLayout* layout_ = nullptr;
  Bytes answer_;
  std::optional<std::size_t> answerLength_;
};

}  // namespace virtualhub
