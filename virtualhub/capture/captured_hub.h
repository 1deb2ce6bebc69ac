// What one hub said in a capture, in memory.
#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "virtualhub/bus/usb_tree.h"
#include "virtualhub/capture/captured_report.h"
#include "virtualhub/hub/hub_config.h"

namespace virtualhub {

/// One report that was sent or read.
struct CapturedExchange {
  bool isOutput = false;
  std::uint8_t id = 0;
  Bytes report;             ///< with its ID
  bool isCut = false;       ///< the report goes on, and its end was not captured
  std::int32_t status = 0;  ///< as UrbStatus
  std::uint64_t tookUs = 0;
  std::uint64_t frame = 0;  ///< which has the report, or asks for it
  std::size_t dataAt = 0;   ///< where the report begins in that frame, without an ID that is 0
};

struct CapturedDescriptor {
  std::uint64_t key = 0;
  Bytes bytes;
};

/// From one arrival of the hub on the bus until it leaves.
struct CapturedStay {
  UsbAddress address;
  std::uint64_t beginUs = 0;  ///< of the first transfer
  std::uint64_t endUs = 0;    ///< of the last report
  std::uint64_t lastFrame = 0;
  UsbIds ids;
  std::optional<std::string> productText;  ///< string 52
  ReportConfig reports;
  std::vector<CapturedDescriptor> descriptors;
  std::vector<CapturedExchange> exchanges;
  bool hasLeft = false;  ///< the hub left the bus after them

  /// The longest answer to that request, by bmRequestType, wValue and wIndex; null when a host did
  /// not ask for it.
  const Bytes* FindDescriptor(std::uint8_t type, std::uint16_t value, std::uint16_t index) const;
};

/// A hub has at least one stay, and a new one after each reset.
struct CapturedHub {
  std::vector<CapturedStay> stays;
};

/// What of a capture is wanted.
struct CapturedPart {
  std::vector<UsbAddress> addresses;  ///< that the hub had, one after the other; none: the only hub
  std::uint64_t firstFrame = 0;       ///< the reports before it are not
};

/// Throws FileError or CaptureError.
CapturedHub ReadCapturedHub(const std::filesystem::path& file, const CapturedPart& part);
CapturedHub ReadCapturedHub(std::istream& stream, const CapturedPart& part);

/// "1.7": bus and device.
std::string TextOf(UsbAddress address);
std::optional<UsbAddress> ParseUsbAddress(const std::string& text);

}  // namespace virtualhub
