// The tunnel that carries vendor requests in HID reports.
#pragma once

#include <optional>

#include "virtualhub/hub/hub_config.h"
#include "virtualhub/hub/result.h"
#include "virtualhub/hub/vendor_request.h"

namespace virtualhub {

/// The hub's end of its report channels. It keeps the answer of the last IN request until it is
/// read or the next request comes.
///
/// Channel 1: output report ID 0, 64 header bytes, data from byte 65; answer in report ID 0 from
/// byte 1. Channel 2: output report ID 0xF0, 63 header bytes, data from byte 64; answer in report
/// ID 0xF1 from byte 64.
class ReportChannel {
 public:
  explicit ReportChannel(const ReportConfig& config);

  /// Unpacks a request and drops any older answer. Fails with BadReport when ID or length are not
  /// those of a declared output report, with Stall when the data stage does not fit the report.
  Result Decode(ByteView report, VendorRequest& request);

  /// Room for the answer to the request decoded last, zeroed: its length, or what the channel's
  /// input report can carry if that is less.
  MutableBytes PrepareAnswer(std::size_t length);
  void DropAnswer() { answerLength_.reset(); }

  /// Fills an input report with the waiting answer, which is then gone. Fails with BadReport when
  /// the ID in byte 0 is not that of the waiting answer's channel or the report does not fit, with
  /// Stall when no answer waits.
  Result Encode(MutableBytes report);

 private:
  struct Layout;
  const Layout* LayoutOf(std::uint8_t outputId) const;

  ReportConfig config_;
  const Layout* layout_ = nullptr;
  Bytes answer_;
  std::optional<std::size_t> answerLength_;
};

}  // namespace virtualhub
