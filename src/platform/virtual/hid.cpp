// The HID class: opened devices, their descriptors and their reports.
#include <string_view>

#include "platform/platform.h"
#include "platform/system/property_text.h"
#include "platform/unicode.h"
#include "platform/virtual/error_codes.h"
#include "platform/virtual/machine.h"
#include "platform/virtual/open_handle.h"

namespace qzhid::platform {

using virtualhub::Error;
using virtualhub::HandleKind;
using virtualhub::HidNode;
using virtualhub::Result;
using virtualhub::Service;
using View = virtualhub::Machine::View;

struct HidDeviceData {
  COpenHandle handle;
  HidNode node;
};
struct EventData {
  COpenHandle handle;
};
struct PreparsedDataBlock {
  COpenHandle handle;
  HidNode node;
  HidCaps caps;
};

void HidDeviceCloser::operator()(HidDeviceData* data) const noexcept { delete data; }
void EventCloser::operator()(EventData* data) const noexcept { delete data; }
void PreparsedDataCloser::operator()(PreparsedDataBlock* data) const noexcept { delete data; }

namespace {

constexpr std::uint32_t kProductTextIndex = 52;

// The node in an interface path, 0 when the text is not such a path.
DevInst NodeOfPath(const std::wstring& path) {
  constexpr std::wstring_view kPrefix = L"virtualhub:";
  constexpr std::size_t kMostDigits = 9;
  if (path.compare(0, kPrefix.size(), kPrefix) != 0) return 0;
  const std::wstring_view digits = std::wstring_view(path).substr(kPrefix.size());
  if (digits.size() > kMostDigits) return 0;
  DevInst node = 0;
  for (const wchar_t digit : digits) {
    if (digit < L'0' || digit > L'9') return 0;
    node = node * 10 + static_cast<DevInst>(digit - L'0');
  }
  return node;
}

// One call on an opened device that must still be there.
template <typename Body>
Result CallForDevice(const HidDeviceData& device, Service service, std::uint32_t value, Body body) {
  return device.handle.machine().Call(
      service, device.node.number, value, [&](const View& view) -> Result {
        const virtualhub::DeviceConfig* found = view.FindHid(device.node);
        return found == nullptr ? Result{Error::Gone} : body(*found);
      });
}

}  // namespace

OpenStatus OpenHidDevice(const std::wstring& path, HidDevice& device) {
  device.reset();
  const auto machine = HoldMachine();
  const DevInst number = NodeOfPath(path);
  HidNode node;
  const Result result =
      machine->Call(Service::OpenHidDevice, number, 0, [&](const View& view) -> Result {
        node = view.PresentHid(number);
        if (node.stay == 0) return {Error::NoSuchPath};
        return {view.IsHeld(number) ? Error::HeldByOther : Error::None};
      });
  if (result.ok()) device.reset(new HidDeviceData{{machine, HandleKind::HidDevice}, node});
  return ToStatus(result);
}

Status CreateReportEvent(Event& event) {
  event.reset();
  const auto machine = HoldMachine();
  const Result result =
      machine->Call(Service::CreateReportEvent, 0, 0, [](const View&) -> Result { return {}; });
  if (result.ok()) event.reset(new EventData{{machine, HandleKind::Event}});
  return ToStatus(result);
}

Status GetPreparsedData(const HidDevice& device, PreparsedData& preparsed) {
  preparsed.reset();
  if (!device) return InvalidHandle();
  HidCaps caps;
  const Result result = CallForDevice(
      *device, Service::GetPreparsedData, 0, [&](const virtualhub::DeviceConfig& config) -> Result {
        caps = {config.reports.outputLength, config.reports.inputLength};
        return {};
      });
  if (result.ok()) {
    preparsed.reset(new PreparsedDataBlock{
        {device->handle.shared(), HandleKind::PreparsedData}, device->node, caps});
  }
  return ToStatus(result);
}

Status GetCaps(const PreparsedData& preparsed, HidCaps& caps) {
  if (!preparsed) return InvalidHandle();
  const Result result = preparsed->handle.machine().Call(Service::GetCaps, preparsed->node.number,
                                                         0, [&](const View&) -> Result {
                                                           caps = preparsed->caps;
                                                           return {};
                                                         });
  return ToStatus(result);
}

OpenStatus GetIndexedString(const HidDevice& device, std::uint32_t index, std::size_t capacity,
                            std::wstring& text) {
  if (!device) return InvalidHandle();
  const Result result = CallForDevice(*device, Service::GetIndexedString, index,
                                      [&](const virtualhub::DeviceConfig& config) -> Result {
                                        if (index != kProductTextIndex || !config.productText)
                                          return {Error::Stall};
                                        std::wstring found = ToWide(*config.productText);
                                        if ((Utf16Units(found) + 1) * 2 > capacity)
                                          return {Error::StringTooLong};
                                        text = std::move(found);
                                        return {};
                                      });
  return ToStatus(result);
}

Status SetOutputReport(const HidDevice& device, const std::uint8_t* report, std::uint32_t length) {
  if (!device) return InvalidHandle();
  return ToStatus(device->handle.machine().SetOutputReport(device->node, {report, length}));
}

Status GetInputReport(const HidDevice& device, std::uint8_t* report, std::uint32_t length) {
  if (!device) return InvalidHandle();
  return ToStatus(device->handle.machine().GetInputReport(device->node, {report, length}));
}

}  // namespace qzhid::platform
