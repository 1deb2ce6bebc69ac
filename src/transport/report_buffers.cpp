#include "transport/report_buffers.h"

#include <algorithm>

namespace qzhid {

void CReportBuffers::SetLengths(const platform::HidCaps& caps) {
  m_LongReport.assign(std::max(caps.outputReportLength, caps.inputReportLength), 0);
  m_nOutputLength = caps.outputReportLength;
  m_nInputLength = caps.inputReportLength;
}

std::int64_t CReportBuffers::OutputLimit(const ReportChannel& channel) const {
  const std::int64_t room =
      std::int64_t{m_nOutputLength} - static_cast<std::int64_t>(channel.DataOffset());
  return std::clamp<std::int64_t>(room, 0, kMaxReportData);
}

std::int64_t CReportBuffers::PrintedInputLimit() const {
  const std::int64_t room =
      std::int64_t{m_nOutputLength} - static_cast<std::int64_t>(kChannel1.DataOffset());
  return std::max<std::int64_t>(room, 0);
}

void CReportBuffers::PlaceHeader(const ReportChannel& channel, const std::uint8_t* header,
                                 std::size_t length) {
  const auto area = m_Block.begin() + static_cast<std::ptrdiff_t>(channel.outputPosition + 1);
  std::fill_n(std::copy_n(header, length, area), channel.headerCapacity - length, std::uint8_t{0});
}

void CReportBuffers::PlaceData(const ReportChannel& channel, const std::uint8_t* data,
                               std::size_t length) {
  const auto area =
      m_Block.begin() + static_cast<std::ptrdiff_t>(channel.outputPosition + channel.DataOffset());
  std::fill_n(std::copy_n(data, length, area), kMaxReportData - length, std::uint8_t{0});
}

platform::Status CReportBuffers::Send(const platform::HidDevice& device,
                                      const ReportChannel& channel) {
  std::uint8_t* const report = m_Block.data() + channel.outputPosition;
  report[0] = channel.outputReportId;
  if (m_nOutputLength <= channel.OutputSize()) {
    return platform::SetOutputReport(device, report, m_nOutputLength);
  }
  std::fill(m_LongReport.begin(), m_LongReport.end(), std::uint8_t{0});
  std::copy_n(report, channel.OutputSize(), m_LongReport.begin());
  return platform::SetOutputReport(device, m_LongReport.data(), m_nOutputLength);
}

platform::Status CReportBuffers::Receive(const platform::HidDevice& device,
                                         const ReportChannel& channel) {
  std::uint8_t* const report = m_Block.data() + kInputReportPosition;
  std::fill_n(report + 1, kMaxReportData, std::uint8_t{0});
  if (channel.asksForInputReport) report[0] = channel.inputReportId;
  constexpr std::size_t kRoom = kBlockSize - kInputReportPosition;
  if (m_nInputLength <= kRoom) {
    return platform::GetInputReport(device, report, m_nInputLength);
  }
  std::fill(m_LongReport.begin(), m_LongReport.end(), std::uint8_t{0});
  m_LongReport[0] = report[0];
  const platform::Status status =
      platform::GetInputReport(device, m_LongReport.data(), m_nInputLength);
  std::copy_n(m_LongReport.begin(), kRoom, report);
  return status;
}

void CReportBuffers::CopyAnswer(const ReportChannel& channel, std::uint8_t* data,
                                std::size_t length) const {
  const auto answer =
      m_Block.begin() + static_cast<std::ptrdiff_t>(kInputReportPosition + channel.answerOffset);
  std::copy_n(answer, length, data);
}

}  // namespace qzhid
