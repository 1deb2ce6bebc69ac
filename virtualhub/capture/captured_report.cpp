#include "virtualhub/capture/captured_report.h"

#include "virtualhub/bus/usb_descriptors.h"
#include "virtualhub/capture/usb_requests.h"

namespace virtualhub {

namespace {

constexpr std::uint8_t kNumberedReport = 0xF0;
constexpr std::uint16_t kHubVendor = 0x2E7C;
constexpr std::uint16_t kEnable = 0x4002;

bool IsEnable(const UsbTransfer& transfer) {
  const auto report = ReportOf(transfer);
  if (!report || !report->isOutput) return false;
  const Bytes whole = WholeReport(transfer, *report);
  return whole.size() >= 9 && BigEndian16(whole, 1) == kEnable &&
         LittleEndian16(whole, 5) == kHubVendor;
}

}  // namespace

std::optional<CapturedReport> ReportOf(const UsbTransfer& transfer) {
  if (transfer.type == TransferType::Interrupt) {
    if (transfer.IsIn() || transfer.data.empty()) return std::nullopt;
    // Nothing but its first byte says whether a report there is numbered.
    const std::uint8_t first = transfer.data[0];
    return CapturedReport{true, first == kNumberedReport ? first : std::uint8_t{0}};
  }
  if (!transfer.IsControl()) return std::nullopt;
  const auto kind = static_cast<std::uint8_t>(transfer.Value() >> 8);
  const auto id = static_cast<std::uint8_t>(transfer.Value());
  if (transfer.Request() == kSetReport && kind == kOutputReport) return CapturedReport{true, id};
  if (transfer.Request() == kGetReport && kind == kInputReport) return CapturedReport{false, id};
  return std::nullopt;
}

Bytes WholeReport(const UsbTransfer& transfer, const CapturedReport& report) {
  Bytes whole(report.id == 0 ? 1 : 0);
  Append(whole, transfer.data);
  return whole;
}

bool HubSpotter::Take(const UsbTransfer& transfer) {
  const auto ids = IdsReadBy(transfer);
  if (ids && ids->vid != kHubVendor) hubs_.erase(transfer.address);
  const bool isHub = (ids && ids->vid == kHubVendor) || IsEnable(transfer);
  if (isHub && hubs_.size() < kMostHubs) hubs_.insert(transfer.address);
  return hubs_.contains(transfer.address);
}

std::optional<UsbIds> IdsReadBy(const UsbTransfer& transfer) {
  constexpr auto kDevice = static_cast<std::uint16_t>(DescriptorType::Device) << 8;
  if (transfer.Request() != kGetDescriptor || transfer.Value() != kDevice) return std::nullopt;
  if (transfer.status != 0 || transfer.data.size() < 12) return std::nullopt;
  return UsbIds{LittleEndian16(transfer.data, 8), LittleEndian16(transfer.data, 10)};
}

}  // namespace virtualhub
