// The vendor requests of hubs in a capture.
#pragma once

#include <cstdint>
#include <map>
#include <optional>

#include "qzhid/explain/log_jobs.h"
#include "virtualhub/capture/captured_report.h"

namespace qzhid {

/// A request with what became of it.
struct CapturedRequest {
  virtualhub::UsbAddress address;
  LoggedRequest request;
  std::uint64_t frame = 0;  ///< where it was sent, or where it failed
  std::int64_t beginUs = 0, endUs = 0;
  std::int32_t status = 0;   ///< of Linux: 0, or the negative error number
  bool isAnswer = false;     ///< the request was sent, and its answer not read
  bool hasEnded = true;      ///< otherwise the capture ends before
  virtualhub::Bytes data{};  ///< its data, or those of the answer

  bool IsDone() const { return hasEnded && status == 0; }
};

/// Makes requests of transfers: each takes one report, and another one for its answer.
class RequestCollector {
 public:
  /// A transfer of a hub. The request that ends with it.
  std::optional<CapturedRequest> Take(const virtualhub::UsbTransfer& transfer);
  /// A request whose answer the capture does not have.
  std::optional<CapturedRequest> TakeRest();

 private:
  struct Waiting {
    CapturedRequest request;
    std::uint8_t inputId = 0;
    std::size_t answerOffset = 0;
  };

  std::optional<CapturedRequest> TakeOutput(const virtualhub::UsbTransfer& transfer,
                                            const virtualhub::CapturedReport& report);
  std::optional<CapturedRequest> TakeInput(const virtualhub::UsbTransfer& transfer,
                                           const virtualhub::CapturedReport& report);

  std::map<virtualhub::UsbAddress, Waiting> waiting_;
};

}  // namespace qzhid
