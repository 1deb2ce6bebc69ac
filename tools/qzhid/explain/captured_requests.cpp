#include "qzhid/explain/captured_requests.h"

#include <algorithm>
#include <utility>

#include "virtualhub/hub/report_channel.h"

namespace qzhid {

namespace {

using virtualhub::CapturedReport;
using virtualhub::ReportLayout;
using virtualhub::UsbTransfer;
using virtualhub::VendorRequest;

LoggedRequest RequestOf(const VendorRequest& sent) {
  LoggedRequest request;
  request.type = sent.type();
  request.code = sent.request();
  request.value = sent.value();
  request.index = sent.index();
  request.length = static_cast<std::uint32_t>(sent.length());
  if (sent.IsI2cTransfer()) request.target = sent.header[8];
  return request;
}

void TakeEnd(CapturedRequest& request, const UsbTransfer& transfer) {
  request.endUs = static_cast<std::int64_t>(transfer.endUs);
  request.hasEnded = transfer.endFrame != 0;
  request.status = transfer.status;
  if (request.status != 0 && request.hasEnded) request.frame = transfer.endFrame;
}

}  // namespace

std::optional<CapturedRequest> RequestCollector::Take(const UsbTransfer& transfer) {
  const auto report = virtualhub::ReportOf(transfer);
  if (!report) return std::nullopt;
  return report->isOutput ? TakeOutput(transfer, *report) : TakeInput(transfer, *report);
}

std::optional<CapturedRequest> RequestCollector::TakeOutput(const UsbTransfer& transfer,
                                                            const CapturedReport& report) {
  const virtualhub::Bytes whole = virtualhub::WholeReport(transfer, report);
  const ReportLayout* const layout = ReportLayout::Of(report.id);
  if (layout == nullptr || whole.size() < 1 + layout->headerLength) return std::nullopt;
  const VendorRequest sent = layout->RequestIn(whole);
  CapturedRequest request{.address = transfer.address, .request = RequestOf(sent)};
  request.frame = transfer.frame;
  request.beginUs = static_cast<std::int64_t>(transfer.beginUs);
  TakeEnd(request, transfer);
  waiting_.erase(transfer.address);  // the answer to the request before was not asked for
  if (!sent.IsIn() || !request.IsDone()) {
    const auto size = std::min(sent.IsIn() ? 0 : sent.length(), sent.dataArea.size());
    request.data.assign(sent.dataArea.begin(), sent.dataArea.begin() + std::ptrdiff_t(size));
    return request;
  }
  waiting_[transfer.address] = {std::move(request), layout->inputId, layout->answerOffset};
  return std::nullopt;
}

std::optional<CapturedRequest> RequestCollector::TakeInput(const UsbTransfer& transfer,
                                                           const CapturedReport& report) {
  const auto found = waiting_.find(transfer.address);
  if (found == waiting_.end() || found->second.inputId != report.id) return std::nullopt;
  const Waiting waiting = std::move(waiting_.extract(found).mapped());
  CapturedRequest request = waiting.request;
  TakeEnd(request, transfer);
  request.isAnswer = request.status != 0;
  const virtualhub::Bytes whole = virtualhub::WholeReport(transfer, report);
  const std::size_t first = std::min(waiting.answerOffset, whole.size());
  const std::size_t size = std::min<std::size_t>(request.request.length, whole.size() - first);
  const auto begin = whole.begin() + static_cast<std::ptrdiff_t>(first);
  request.data.assign(begin, begin + static_cast<std::ptrdiff_t>(size));
  return request;
}

std::optional<CapturedRequest> RequestCollector::TakeRest() {
  if (waiting_.empty()) return std::nullopt;
  CapturedRequest request = std::move(waiting_.extract(waiting_.begin()).mapped().request);
  request.hasEnded = false;
  return request;
}

}  // namespace qzhid
