// The report buffers of one device and the layout of the reports in them.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "platform/platform.h"

namespace qzhid {

/// Largest data stage that an output report carries, in bytes, whatever the device declares.
inline constexpr std::size_t kMaxReportData = 256;

/// A report channel of the hub. Vendor requests travel in the output report: report ID, a header
/// area that begins with the setup packet, and the data stage. Answers come in the input report.
struct ReportChannel {
  std::uint8_t outputReportId;
  bool asksForInputReport;     ///< whether reads name their report ID; else byte 0 stays as it is
  std::uint8_t inputReportId;  ///< the ID that they name
  std::size_t headerCapacity;  ///< bytes of the header area, which begins at byte 1
  std::size_t answerOffset;    ///< where the answer's data begins in the input report
  std::size_t outputPosition;  ///< where the output report is in the report block

  constexpr std::size_t DataOffset() const { return 1 + headerCapacity; }
  constexpr std::size_t OutputSize() const { return DataOffset() + kMaxReportData; }
};

inline constexpr std::size_t kInputReportSize = 1 + kMaxReportData;
inline constexpr ReportChannel kChannel1{0x00, false, 0x00, 64, 1, 0};
inline constexpr std::size_t kInputReportPosition = kChannel1.OutputSize();
inline constexpr ReportChannel kChannel2{0xF0, true, 0xF1,
                                         63,   64,   kInputReportPosition + kInputReportSize};

/// Output report of channel 1, input report, and output report of channel 2, in one block in this
/// order: an answer that is longer than the input report continues in the bytes after it.
class CReportBuffers {
 public:
  /// Adopts the report lengths that a device declares, the report ID byte included.
  void SetLengths(const platform::HidCaps& caps);

  std::uint16_t InputLength() const { return m_nInputLength; }

  /// Bytes of data that fit an output report; 0 to 256.
  std::int64_t OutputLimit(const ReportChannel& channel) const;
  /// Bytes of data that can be requested; negative when the device has no input report.
  std::int64_t InputLimit() const { return std::int64_t{m_nInputLength} - 1; }
  /// The limit that failed reads log: the room that the output report of channel 1 declares.
  std::int64_t PrintedInputLimit() const;

  /// Fills the header area, zero-padded. `length` is at most the header's capacity.
  void PlaceHeader(const ReportChannel& channel, const std::uint8_t* header, std::size_t length);
  /// Fills the data area, zero-padded. `length` is at most OutputLimit; `data` may be null when it
  /// is 0.
  void PlaceData(const ReportChannel& channel, const std::uint8_t* data, std::size_t length);

  /// Exchange the reports as they are, in the declared lengths.
  platform::Status Send(const platform::HidDevice& device, const ReportChannel& channel);
  platform::Status Receive(const platform::HidDevice& device, const ReportChannel& channel);

  /// Copies the first `length` bytes, at most 256, of the answer that was received last.
  void CopyAnswer(const ReportChannel& channel, std::uint8_t* data, std::size_t length) const;

 private:
  static constexpr std::size_t kBlockSize = kChannel2.outputPosition + kChannel2.OutputSize();

  std::array<std::uint8_t, kBlockSize> m_Block{};
  std::vector<std::uint8_t> m_LongReport;  // for reports that exceed their place in the block
  std::uint16_t m_nOutputLength = 0;
  std::uint16_t m_nInputLength = 0;
};

}  // namespace qzhid
