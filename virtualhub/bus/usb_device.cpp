#include "virtualhub/bus/usb_device.h"

#include <algorithm>

#include "virtualhub/capture/captured_hub.h"

namespace virtualhub {

namespace {

constexpr Result kDone{};
constexpr Result kStall{Error::Stall};

constexpr std::uint16_t kEndpointHalt = 0;
constexpr std::uint8_t kSetFeature = 3;
constexpr std::uint8_t kGetDescriptor = 6;
constexpr std::uint8_t kInputReport = 1;
constexpr std::uint8_t kOutputReport = 2;
constexpr std::uint8_t kNumberedReport = 0xF0;
constexpr std::uint8_t kSelfPoweredStatus = 1;

std::uint8_t Low(std::uint16_t value) { return static_cast<std::uint8_t>(value); }
std::uint8_t High(std::uint16_t value) { return static_cast<std::uint8_t>(value >> 8); }

}  // namespace

struct UsbDevice::Handler {
  enum class Target {
    Device,
    Endpoint,   // of either state of the device
    Interface,  // 0, of a configured device
  };
  enum class Stage { None, Data };

  std::uint16_t key;  // bmRequestType x 256 + bRequest
  Target target;
  Stage stage;
  Result (UsbDevice::*run)(const SetupPacket&, ByteView, Bytes&);
};

const UsbDevice::Handler* UsbDevice::FindHandler(const SetupPacket& setup) {
  using enum Handler::Target;
  using enum Handler::Stage;
  static constexpr Handler kHandlers[] = {
      {0x8000, Device, Data, &UsbDevice::GetDeviceStatus},
      {0x8100, Interface, Data, &UsbDevice::GetInterfaceStatus},
      {0x8200, Endpoint, Data, &UsbDevice::GetEndpointStatus},
      {0x0201, Endpoint, None, &UsbDevice::ChangeEndpointFeature},
      {0x0203, Endpoint, None, &UsbDevice::ChangeEndpointFeature},
      {0x0005, Device, None, &UsbDevice::SetAddress},
      {0x8006, Device, Data, &UsbDevice::GetDeviceLevelDescriptor},
      {0x8106, Interface, Data, &UsbDevice::GetHidDescriptor},
      {0x8008, Device, Data, &UsbDevice::GetConfiguration},
      {0x0009, Device, None, &UsbDevice::SetConfiguration},
      {0x810A, Interface, Data, &UsbDevice::GetInterface},
      {0x010B, Interface, None, &UsbDevice::SetInterface},
      {0xA101, Interface, Data, &UsbDevice::GetReport},
      {0xA102, Interface, Data, &UsbDevice::GetIdle},
      {0xA103, Interface, Data, &UsbDevice::GetProtocol},
      {0x2109, Interface, Data, &UsbDevice::SetReport},
      {0x210A, Interface, None, &UsbDevice::SetIdle},
      {0x210B, Interface, None, &UsbDevice::SetProtocol},
  };
  const auto key = static_cast<std::uint16_t>(setup.type << 8 | setup.request);
  const auto found = std::find_if(std::begin(kHandlers), std::end(kHandlers),
                                  [&](const Handler& handler) { return handler.key == key; });
  return found == std::end(kHandlers) ? nullptr : found;
}

UsbDevice::UsbDevice(Machine& machine, const BusDevice& device)
    : machine_(machine), device_(device) {}

void UsbDevice::BusReset() {
  configuration_ = idleRate_ = 0;
  inHalted_ = outHalted_ = false;
  reportProtocol_ = 1;
}

void UsbDevice::Enumerate() {
  BusReset();
  configuration_ = kConfigurationValue;
}

Result UsbDevice::Control(const SetupPacket& setup, ByteView data, Bytes& answer) {
  answer.clear();
  if (!IsPresent()) return {Error::Gone};
  if (GetCaptured(setup, answer)) return kDone;
  const Handler* handler = FindHandler(setup);
  if (handler == nullptr) return kStall;
  if (handler->stage == Handler::Stage::None && setup.length != 0) return kStall;
  if (!setup.IsIn() && data.size() != setup.length) return kStall;
  const bool isThere = setup.index == 0 || device_.captured;
  if (handler->target == Handler::Target::Interface && (configuration_ == 0 || !isThere)) {
    // String and interface numbers share the field; only interface 0 exists, except in a capture.
    return kStall;
  }
  Result result = (this->*handler->run)(setup, data, answer);
  if (result.error == Error::BadReport) result = kStall;
  answer.resize(result.ok() ? std::min<std::size_t>(answer.size(), setup.length) : 0);
  return result;
}

// The descriptors of a captured device are its own, in whatever order a host asks for them.
bool UsbDevice::GetCaptured(const SetupPacket& setup, Bytes& answer) const {
  if (!device_.captured || setup.request != kGetDescriptor || !setup.IsIn()) return false;
  const Bytes* const found = device_.captured->FindDescriptor(setup.type, setup.value, setup.index);
  if (found == nullptr) return false;
  answer.assign(found->begin(),
                found->begin() + std::min<std::ptrdiff_t>(setup.length, std::ssize(*found)));
  return true;
}

// ---- Standard requests --------------------------------------------------------------------------

Result UsbDevice::GetDeviceStatus(const SetupPacket&, ByteView, Bytes& answer) {
  answer = {kSelfPoweredStatus, 0};
  return kDone;
}

Result UsbDevice::GetInterfaceStatus(const SetupPacket&, ByteView, Bytes& answer) {
  answer = {0, 0};
  return kDone;
}

Result UsbDevice::GetEndpointStatus(const SetupPacket& setup, ByteView, Bytes& answer) {
  const bool* const halted = HaltOf(setup.index);
  if (halted == nullptr && (setup.index & 0x7F) != 0) return kStall;
  answer = {static_cast<std::uint8_t>(halted != nullptr && *halted ? 1 : 0), 0};
  return kDone;
}

bool* UsbDevice::HaltOf(std::uint16_t endpoint) {
  if (configuration_ == 0) return nullptr;
  if (endpoint == kInterruptInEndpoint) return &inHalted_;
  const bool hasOut = device_.reports.outEndpoint != OutEndpoint::None;
  return hasOut && endpoint == kInterruptOutEndpoint ? &outHalted_ : nullptr;
}

Result UsbDevice::ChangeEndpointFeature(const SetupPacket& setup, ByteView, Bytes&) {
  bool* const halted = HaltOf(setup.index);
  if (halted == nullptr || setup.value != kEndpointHalt) return kStall;
  *halted = setup.request == kSetFeature;
  return kDone;
}

Result UsbDevice::SetAddress(const SetupPacket&, ByteView, Bytes&) { return kDone; }

Result UsbDevice::GetDeviceLevelDescriptor(const SetupPacket& setup, ByteView, Bytes& answer) {
  const auto type = static_cast<DescriptorType>(High(setup.value));
  if (type == DescriptorType::String) return GetString(setup, answer);
  if (Low(setup.value) != 0) return kStall;
  switch (type) {
    case DescriptorType::Device:
      answer = DeviceDescriptor(device_.ids);
      return kDone;
    case DescriptorType::DeviceQualifier:
      answer = DeviceQualifier();
      return kDone;
    case DescriptorType::Configuration:
    case DescriptorType::OtherSpeedConfiguration:
      answer = ConfigurationDescriptor(device_.reports, type);
      return kDone;
    default:
      return kStall;
  }
}

Result UsbDevice::GetString(const SetupPacket& setup, Bytes& answer) {
  const std::uint8_t index = Low(setup.value);
  if (index == 0) {
    answer = LanguageDescriptor();
    return kDone;
  }
  if (setup.index != kLanguage) return kStall;
  switch (index) {
    case kManufacturerString:
      answer = StringDescriptor(kManufacturer);
      return kDone;
    case kProductString:
      answer = StringDescriptor(device_.name);
      return kDone;
    case kProductTextString:
      return GetProductText(answer);
    default:
      return kStall;
  }
}

// Goes through the machine, where faults may strike it.
Result UsbDevice::GetProductText(Bytes& answer) {
  return machine_.Call(Service::GetIndexedString, device_.hid.number, kProductTextString,
                       [&](const Machine::View& view) -> Result {
                         if (view.FindHid(device_.hid) == nullptr) return {Error::CutOff};
                         if (!device_.productText) return kStall;
                         answer = StringDescriptor(*device_.productText);
                         return kDone;
                       });
}

Result UsbDevice::GetHidDescriptor(const SetupPacket& setup, ByteView, Bytes& answer) {
  if (setup.value == static_cast<unsigned>(DescriptorType::Hid) << 8) {
    answer = HidDescriptor(device_.reports);
  } else if (setup.value == static_cast<unsigned>(DescriptorType::Report) << 8) {
    answer = ReportDescriptor(device_.reports);
  } else {
    return kStall;
  }
  return kDone;
}

Result UsbDevice::GetConfiguration(const SetupPacket&, ByteView, Bytes& answer) {
  answer = {configuration_};
  return kDone;
}

Result UsbDevice::SetConfiguration(const SetupPacket& setup, ByteView, Bytes&) {
  if (setup.value > kConfigurationValue) return kStall;
  BusReset();
  configuration_ = Low(setup.value);
  return kDone;
}

Result UsbDevice::GetInterface(const SetupPacket&, ByteView, Bytes& answer) {
  answer = {0};
  return kDone;
}

Result UsbDevice::SetInterface(const SetupPacket& setup, ByteView, Bytes&) {
  if (setup.value != 0) return kStall;
  inHalted_ = outHalted_ = false;
  return kDone;
}

// ---- Class requests -----------------------------------------------------------------------------

// Only a report with an ID has it on the wire; in the machine byte 0 of every report is its ID.
Result UsbDevice::GetReport(const SetupPacket& setup, ByteView, Bytes& answer) {
  if (High(setup.value) != kInputReport) return kStall;
  const std::uint8_t id = Low(setup.value);
  Bytes report(std::max<std::size_t>(device_.reports.inputLength, 1));
  report[0] = id;
  const Result result = machine_.GetInputReport(device_.hid, report);
  answer.assign(report.begin() + (id == 0 ? 1 : 0), report.end());
  return result;
}

Result UsbDevice::SetReport(const SetupPacket& setup, ByteView data, Bytes&) {
  if (High(setup.value) != kOutputReport) return kStall;
  if (device_.reports.outEndpoint == OutEndpoint::Only) return kStall;
  const std::uint8_t id = Low(setup.value);
  if (id != 0 && (data.empty() || data[0] != id)) return kStall;
  return TakeOutputReport(id, data, OutputPipe::Control);
}

Result UsbDevice::TakeOutputReport(std::uint8_t id, ByteView data, OutputPipe pipe) {
  Bytes report(data.begin(), data.end());
  if (id == 0) report.insert(report.begin(), id);
  return machine_.SetOutputReport(device_.hid, report, pipe);
}

// Nothing but its first byte says whether a report there is numbered.
Result UsbDevice::InterruptOut(ByteView data) {
  if (!IsPresent()) return {Error::Gone};
  const bool* const halted = HaltOf(kInterruptOutEndpoint);
  if (halted == nullptr || *halted) return kStall;
  if (device_.reports.outEndpoint == OutEndpoint::Ignored) return kStall;
  const bool isNumbered = device_.reports.channel2 && !data.empty() && data[0] == kNumberedReport;
  const Result result =
      TakeOutputReport(isNumbered ? kNumberedReport : 0, data, OutputPipe::Interrupt);
  return result.error == Error::BadReport ? kStall : result;
}

Result UsbDevice::GetIdle(const SetupPacket&, ByteView, Bytes& answer) {
  answer = {idleRate_};
  return kDone;
}

Result UsbDevice::SetIdle(const SetupPacket& setup, ByteView, Bytes&) {
  idleRate_ = High(setup.value);
  return kDone;
}

Result UsbDevice::GetProtocol(const SetupPacket&, ByteView, Bytes& answer) {
  answer = {reportProtocol_};
  return kDone;
}

Result UsbDevice::SetProtocol(const SetupPacket& setup, ByteView, Bytes&) {
  if (setup.value > 1) return kStall;
  reportProtocol_ = Low(setup.value);
  return kDone;
}

}  // namespace virtualhub
