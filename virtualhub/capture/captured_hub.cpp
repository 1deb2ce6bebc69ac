#include "virtualhub/capture/captured_hub.h"

#include <algorithm>
#include <charconv>
#include <fstream>
#include <utility>

#include "virtualhub/base/files.h"
#include "virtualhub/base/utf16.h"
#include "virtualhub/bus/urb_status.h"
#include "virtualhub/bus/usb_descriptors.h"
#include "virtualhub/capture/usb_requests.h"
#include "virtualhub/hub/report_channel.h"

namespace virtualhub {

namespace {

constexpr std::uint16_t kStatusRequest = 0xC009;
constexpr UsbIds kUsualIds{0x2E7C, 0x0818};
constexpr ReportConfig kNoReports{.channel1 = false, .outputLength = 0, .inputLength = 0};
constexpr std::size_t kMostReports = 0x10000000;  // bytes of all together

std::uint64_t KeyOf(std::uint8_t type, std::uint16_t value, std::uint16_t index) {
  return std::uint64_t{type} << 32 | std::uint64_t{value} << 16 | index;
}

bool IsGone(std::int32_t status) {
  constexpr std::int32_t kShutDown = -108;
  return status == kUrbNoDevice || status == kShutDown;
}

// Whether the hub leaves by the exchange, or has left.
bool TakesAway(const CapturedExchange& exchange) {
  constexpr std::uint16_t kToLoader = 0x4000, kToFirmware = 0x40E9;
  if (exchange.status != kUrbOk) {
    return IsGone(exchange.status) || exchange.status == kUrbProtocolError;
  }
  if (!exchange.isOutput || exchange.report.size() < 3) return false;
  const std::uint16_t key = BigEndian16(exchange.report, 1);
  return key == kToLoader || key == kToFirmware;
}

/// Makes stays of transfers.
class StayCollector {
 public:
  explicit StayCollector(const CapturedPart& part) : part_(part) {}

  void Take(const UsbTransfer& transfer) {
    const auto& wanted = part_.addresses;
    const bool isWanted =
        wanted.empty() || std::find(wanted.begin(), wanted.end(), transfer.address) != wanted.end();
    if (!spotter_.Take(transfer) || !isWanted) return;
    CapturedStay& stay = StayOf(transfer);
    stay.lastFrame = std::max({stay.lastFrame, transfer.frame, transfer.endFrame});
    TakeDescriptor(stay, transfer);
    if (const auto report = ReportOf(transfer)) TakeReport(stay, transfer, *report);
  }

  std::vector<CapturedStay> stays;

 private:
  CapturedStay& StayOf(const UsbTransfer& transfer) {
    const auto last = std::find_if(
        stays.rbegin(), stays.rend(),
        [&](const CapturedStay& candidate) { return candidate.address == transfer.address; });
    if (last != stays.rend() && !IsArrival(*last, transfer)) return *last;
    CapturedStay stay;
    stay.address = transfer.address;
    stay.beginUs = stay.endUs = transfer.beginUs;
    stay.reports = kNoReports;
    // Its descriptors were read before the configuration was set, which shows that it is new.
    if (last != stays.rend() && !IdsReadBy(transfer)) stay.descriptors = last->descriptors;
    stays.push_back(std::move(stay));
    return stays.back();
  }

  // Whether the transfer shows that another stay has begun at the same address.
  static bool IsArrival(const CapturedStay& stay, const UsbTransfer& transfer) {
    if (stay.exchanges.empty()) return false;
    if (transfer.Request() == kSetConfiguration) return transfer.Value() != 0;
    const auto ids = IdsReadBy(transfer);
    return ids && (ids->vid != stay.ids.vid || ids->pid != stay.ids.pid);
  }

  static void TakeDescriptor(CapturedStay& stay, const UsbTransfer& transfer) {
    if (const auto ids = IdsReadBy(transfer)) stay.ids = *ids;
    const bool isDescriptor =
        transfer.Request() == kGetDescriptor || transfer.Request() == kGetInterfaceDescriptor;
    if (!isDescriptor || transfer.status != kUrbOk || transfer.isCut) return;
    const std::uint64_t key =
        KeyOf(transfer.setup[0], transfer.Value(), LittleEndian16(transfer.setup, 4));
    auto known = std::find_if(stay.descriptors.begin(), stay.descriptors.end(),
                              [key](const CapturedDescriptor& each) { return each.key == key; });
    if (known == stay.descriptors.end()) known = stay.descriptors.insert(known, {key, {}});
    if (transfer.data.size() > known->bytes.size()) known->bytes = transfer.data;
  }

  void TakeReport(CapturedStay& stay, const UsbTransfer& transfer, const CapturedReport& report) {
    const bool isEarly = transfer.frame < part_.firstFrame;
    if (isEarly || transfer.endFrame == 0) return;  // how it ended must be known
    const std::uint64_t frame = transfer.dataFrame == 0 ? transfer.frame : transfer.dataFrame;
    if (!report.isOutput && transfer.status == kUrbOk && transfer.isCut) {
      throw CaptureError("has only a part of the answer in frame " + std::to_string(frame) +
                         "; whole packets are needed");
    }
    Bytes whole = WholeReport(transfer, report);
    bytes_ += whole.size();
    if (bytes_ > kMostReports) throw CaptureError("has more reports than fit into memory");
    NoteReport(stay.reports, transfer, report);
    if (!IsGone(transfer.status)) stay.endUs = std::max(stay.endUs, transfer.endUs);
    stay.exchanges.push_back({report.isOutput, report.id, std::move(whole), transfer.isCut,
                              transfer.status, transfer.endUs - transfer.beginUs, frame,
                              transfer.dataAt});
  }

  static void NoteReport(ReportConfig& reports, const UsbTransfer& transfer,
                         const CapturedReport& report) {
    const std::size_t onWire =
        transfer.IsControl() ? LittleEndian16(transfer.setup, 6) : transfer.data.size();
    const auto length = static_cast<std::uint16_t>(onWire + (report.id == 0 ? 1 : 0));
    std::uint16_t& longest = report.isOutput ? reports.outputLength : reports.inputLength;
    longest = std::max(longest, length);
    (report.id == 0 ? reports.channel1 : reports.channel2) = true;
    if (!transfer.IsControl()) reports.outEndpoint = OutEndpoint::Both;
  }

  const CapturedPart& part_;
  HubSpotter spotter_;
  std::size_t bytes_ = 0;
};

// Reports to a hub that is gone are answered by the system.
void DropGone(std::vector<CapturedStay>& stays) {
  for (CapturedStay& stay : stays) {
    auto& exchanges = stay.exchanges;
    stay.hasLeft = !exchanges.empty() && TakesAway(exchanges.back());
    while (!exchanges.empty() && IsGone(exchanges.back().status)) exchanges.pop_back();
  }
  // Where nothing is exchanged, such as at address 0, the hub has not been; but it may have come
  // there at the end.
  const bool isBack = !stays.empty() && stays.back().address.device != 0 &&
                      std::all_of(stays.begin(), stays.end() - 1, [&](const CapturedStay& before) {
                        return before.endUs <= stays.back().beginUs;
                      });
  std::erase_if(stays, [&](const CapturedStay& stay) {
    return stay.exchanges.empty() && !(isBack && &stay == &stays.back());
  });
}

void RequireOneHub(const std::vector<CapturedStay>& stays) {
  if (std::all_of(stays.begin(), stays.end(),
                  [](const CapturedStay& stay) { return stay.exchanges.empty(); })) {
    throw CaptureError("has no requests to a hub");
  }
  for (std::size_t i = 1; i < stays.size(); ++i) {
    if (stays[i].beginUs >= stays[i - 1].endUs) continue;
    throw CaptureError("has hubs at " + TextOf(stays[i - 1].address) + " and " +
                       TextOf(stays[i].address) +
                       " at the same time; \"addresses\" must name those of one");
  }
}

// What the hub says itself, if its status was read.
std::optional<UsbIds> IdsOfStatus(const CapturedStay& stay) {
  for (std::size_t i = 0; i + 1 < stay.exchanges.size(); ++i) {
    const CapturedExchange &sent = stay.exchanges[i], &read = stay.exchanges[i + 1];
    if (!sent.isOutput || read.isOutput || sent.report.size() < 3) continue;
    if (BigEndian16(sent.report, 1) != kStatusRequest || read.status != kUrbOk) continue;
    const ReportLayout* const layout = ReportLayout::Of(sent.id);
    if (layout == nullptr || !Fits(read.report.size(), layout->answerOffset, 6)) continue;
    return UsbIds{BigEndian16(read.report, layout->answerOffset),
                  BigEndian16(read.report, layout->answerOffset + 4)};
  }
  return std::nullopt;
}

std::optional<std::string> ProductTextOf(const CapturedStay& stay) {
  constexpr auto kString =
      static_cast<std::uint16_t>(static_cast<unsigned>(DescriptorType::String) << 8);
  const Bytes* const text = stay.FindDescriptor(0x80, kString | kProductTextString, kLanguage);
  if (text == nullptr) return std::nullopt;
  std::u16string units;
  for (std::size_t at = 2; at + 1 < text->size(); at += 2) {
    units += static_cast<char16_t>(LittleEndian16(*text, at));
  }
  return ToUtf8(units);
}

// What a stay does not show is as in the other ones.
void Complete(std::vector<CapturedStay>& stays) {
  ReportConfig usual = kNoReports;
  std::optional<std::string> text;
  for (CapturedStay& stay : stays) {
    usual.outputLength = std::max(usual.outputLength, stay.reports.outputLength);
    usual.inputLength = std::max(usual.inputLength, stay.reports.inputLength);
    stay.productText = ProductTextOf(stay);
    if (!text) text = stay.productText;
  }
  if (usual.outputLength == 0) usual.outputLength = ReportConfig().outputLength;
  if (usual.inputLength == 0) usual.inputLength = ReportConfig().inputLength;
  for (CapturedStay& stay : stays) {
    ReportConfig& reports = stay.reports;
    if (reports.outputLength == 0) reports.outputLength = usual.outputLength;
    if (reports.inputLength == 0) reports.inputLength = usual.inputLength;
    if (!reports.channel2) reports.channel1 = true;
    if (!stay.productText) stay.productText = text;
    if (stay.ids.vid == 0) stay.ids = IdsOfStatus(stay).value_or(kUsualIds);
  }
}

}  // namespace

const Bytes* CapturedStay::FindDescriptor(std::uint8_t type, std::uint16_t value,
                                          std::uint16_t index) const {
  const std::uint64_t key = KeyOf(type, value, index);
  const auto found =
      std::find_if(descriptors.begin(), descriptors.end(),
                   [key](const CapturedDescriptor& each) { return each.key == key; });
  return found == descriptors.end() ? nullptr : &found->bytes;
}

CapturedHub ReadCapturedHub(std::istream& stream, const CapturedPart& part) {
  StayCollector collector(part);
  TransferReader reader(stream);
  for (UsbTransfer transfer; reader.Next(transfer);) collector.Take(transfer);
  CapturedHub hub{std::move(collector.stays)};
  DropGone(hub.stays);
  RequireOneHub(hub.stays);
  Complete(hub.stays);
  return hub;
}

CapturedHub ReadCapturedHub(const std::filesystem::path& file, const CapturedPart& part) {
  std::ifstream stream = OpenFile(file);
  return ReadCapturedHub(stream, part);
}

std::string TextOf(UsbAddress address) {
  return std::to_string(address.bus) + "." + std::to_string(address.device);
}

std::optional<UsbAddress> ParseUsbAddress(const std::string& text) {
  UsbAddress address;
  const char* const end = text.data() + text.size();
  const auto bus = std::from_chars(text.data(), end, address.bus);
  if (bus.ec != std::errc() || bus.ptr == end || *bus.ptr != '.') return std::nullopt;
  const auto device = std::from_chars(bus.ptr + 1, end, address.device);
  if (device.ec != std::errc() || device.ptr != end) return std::nullopt;
  return address;
}

}  // namespace virtualhub
