// The packets are those of the link type LINKTYPE_USB_LINUX_MMAPPED: 64 bytes as usbmon has them
// (Documentation/usb/usbmon.rst of Linux), then the data.
#include "virtualhub/capture/usb_capture.h"

#include <algorithm>
#include <iostream>

#include "virtualhub/bus/clock.h"
#include "virtualhub/bus/urb_status.h"
#include "virtualhub/bus/usb_descriptors.h"
#include "virtualhub/capture/captured_hub.h"
#include "virtualhub/capture/usb_requests.h"

namespace virtualhub {

namespace {

constexpr char kSubmit = 'S', kComplete = 'C', kError = 'E';
constexpr std::uint8_t kInterrupt = 1, kControl = 2;  // types of transfer
constexpr std::uint8_t kLastAddress = 127;
constexpr std::uint8_t kFromDevice = 0x80;

std::uint16_t ValueOf(DescriptorType type, std::uint8_t index = 0) {
  return static_cast<std::uint16_t>(static_cast<unsigned>(type) << 8 | index);
}

std::array<std::uint8_t, 8> Setup(std::uint16_t request, std::uint16_t value, std::uint16_t index,
                                  std::size_t length) {
  Bytes setup{static_cast<std::uint8_t>(request >> 8), static_cast<std::uint8_t>(request)};
  for (const std::size_t field : {std::size_t{value}, std::size_t{index}, length}) {
    AppendLittleEndian(setup, static_cast<std::uint16_t>(field));
  }
  std::array<std::uint8_t, 8> packet{};
  std::copy(setup.begin(), setup.end(), packet.begin());
  return packet;
}

std::uint16_t ReportValue(std::uint8_t type, ByteView report) {
  return static_cast<std::uint16_t>(type << 8 | (report.empty() ? 0 : report[0]));
}

// A report without an ID has none on the wire.
ByteView OnWire(ByteView report) {
  return report.subspan(!report.empty() && report[0] == 0 ? 1 : 0);
}

}  // namespace

// ---- Devices ------------------------------------------------------------------------------------

void UsbCapture::Arrive(const BusDevice& device) {
  const std::uint32_t bus = device.port.root;
  places_[device.hid.stay] = {bus, FreeAddress(bus), true};
  const auto get = [&](std::uint16_t value, std::uint16_t index, const Bytes& descriptor) {
    const bool isReport = value == ValueOf(DescriptorType::Report);
    GetDescriptor(device, isReport ? kGetInterfaceDescriptor : kGetDescriptor, value, index,
                  descriptor);
  };
  using enum DescriptorType;
  get(ValueOf(Device), 0, DeviceDescriptor(device.ids));
  get(ValueOf(Configuration), 0, ConfigurationDescriptor(device.reports, Configuration));
  get(ValueOf(String), 0, LanguageDescriptor());
  get(ValueOf(String, kProductString), kLanguage, StringDescriptor(device.name));
  get(ValueOf(String, kManufacturerString), kLanguage, StringDescriptor(kManufacturer));
  const auto configure = Setup(kSetConfiguration, kConfigurationValue, 0, 0);
  End(BeginControl(device.hid, configure, {}), {}, {});
  get(ValueOf(Report), 0, ReportDescriptor(device.reports));
}

void UsbCapture::Leave(const HidNode& node) {
  const auto place = places_.find(node.stay);
  if (place != places_.end()) place->second.isPresent = false;
}

// As Linux does: the next one.
std::uint8_t UsbCapture::FreeAddress(std::uint32_t bus) {
  const auto isTaken = [&](const auto& entry) {
    const Place& place = entry.second;
    return place.isPresent && place.bus == bus && place.address == lastAddress_;
  };
  for (int tries = 0; tries < kLastAddress; ++tries) {
    lastAddress_ = static_cast<std::uint8_t>(lastAddress_ % kLastAddress + 1);
    if (std::none_of(places_.begin(), places_.end(), isTaken)) break;
  }
  return lastAddress_;
}

// A captured device keeps its own.
void UsbCapture::GetDescriptor(const BusDevice& device, std::uint16_t request, std::uint16_t value,
                               std::uint16_t index, const Bytes& made) {
  const auto type = static_cast<std::uint8_t>(request >> 8);
  const Bytes* const captured =
      device.captured ? device.captured->FindDescriptor(type, value, index) : nullptr;
  const Bytes& descriptor = captured != nullptr ? *captured : made;
  const auto setup = Setup(request, value, index, descriptor.size());
  const Transfer transfer = BeginControl(device.hid, setup, {});
  Write(transfer, kComplete, kUrbOk, transfer.length, descriptor);
}

// ---- Transfers ----------------------------------------------------------------------------------

UsbCapture::Transfer UsbCapture::BeginOutput(const HidNode& node, OutputPipe pipe,
                                             ByteView report) {
  const ByteView data = OnWire(report);
  if (pipe == OutputPipe::Control) {
    const std::uint16_t value = ReportValue(kOutputReport, report);
    return BeginControl(node, Setup(kSetReport, value, 0, data.size()), data);
  }
  const Transfer transfer{.id = ++lastId_,
                          .node = node,
                          .isControl = false,
                          .length = static_cast<std::uint32_t>(data.size())};
  Write(transfer, kSubmit, kUrbUnderWay, transfer.length, data);
  return transfer;
}

UsbCapture::Transfer UsbCapture::BeginInput(const HidNode& node, ByteView buffer) {
  const std::uint16_t value = ReportValue(kInputReport, buffer);
  return BeginControl(node, Setup(kGetReport, value, 0, OnWire(buffer).size()), {});
}

UsbCapture::Transfer UsbCapture::BeginControl(const HidNode& node,
                                              std::array<std::uint8_t, 8> setup, ByteView data) {
  const Transfer transfer{.id = ++lastId_,
                          .node = node,
                          .isIn = (setup[0] & kFromDevice) != 0,
                          .setup = setup,
                          .length = LittleEndian16(setup, 6)};
  Write(transfer, kSubmit, kUrbUnderWay, transfer.length, data);
  return transfer;
}

void UsbCapture::End(const Transfer& transfer, const Result& result, ByteView input) {
  if (result.error == Error::Gone) {
    Write(transfer, kError, kUrbNoDevice, 0, {});
  } else if (!result.ok()) {
    Write(transfer, kComplete, UrbStatusOf(result), 0, {});
  } else {
    const ByteView data = OnWire(input);
    const std::size_t length = transfer.isIn ? data.size() : transfer.length;
    Write(transfer, kComplete, kUrbOk, static_cast<std::uint32_t>(length), data);
  }
}

// The setup packet is there when a control transfer begins. Where data could be and is not, a mark
// says so: '<' for data to the host, '>' for data to the device.
void UsbCapture::Write(const Transfer& transfer, char event, std::int32_t status,
                       std::uint32_t length, ByteView data) try {
  if (!file_) return;
  const auto found = places_.find(transfer.node.stay);
  const Place place = found == places_.end() ? Place{} : found->second;
  const std::uint64_t time = clock_.CalendarUs();
  constexpr std::uint64_t kUsPerSecond = 1'000'000;
  const bool hasSetup = transfer.isControl && event == kSubmit;
  const std::uint8_t endpoint = transfer.isControl ? 0 : kInterruptOutEndpoint;
  Bytes packet;
  AppendLittleEndian(packet, transfer.id);
  Append(packet, Bytes{static_cast<std::uint8_t>(event), transfer.isControl ? kControl : kInterrupt,
                       static_cast<std::uint8_t>(endpoint | (transfer.isIn ? kFromDevice : 0)),
                       place.address});
  AppendLittleEndian(packet, static_cast<std::uint16_t>(place.bus));
  packet.push_back(hasSetup ? 0 : '-');
  packet.push_back(static_cast<std::uint8_t>(!data.empty() ? 0 : transfer.isIn ? '<' : '>'));
  AppendLittleEndian(packet, time / kUsPerSecond);
  AppendLittleEndian(packet, static_cast<std::uint32_t>(time % kUsPerSecond));
  AppendLittleEndian(packet, static_cast<std::uint32_t>(status));
  AppendLittleEndian(packet, length);
  AppendLittleEndian(packet, static_cast<std::uint32_t>(data.size()));
  Append(packet, hasSetup ? transfer.setup : std::array<std::uint8_t, 8>{});
  packet.resize(packet.size() + 16);  // interval, first frame, flags, isochronous packets: none
  Append(packet, data);
  file_->Write(time, packet);
} catch (const FileError& error) {
  std::cerr << "virtualhub: the capture " << file_->path().string() << ' ' << error.what()
            << std::endl;
  file_.reset();
}

}  // namespace virtualhub
