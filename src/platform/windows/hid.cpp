// The HID class: opened devices, their descriptors and their reports.
#include <vector>

#include "platform/windows/hid_services.h"

namespace qzhid::platform {

struct HidDeviceData {
  HANDLE handle;
};
struct EventData {
  HANDLE handle;
};
struct PreparsedDataBlock {
  PHIDP_PREPARSED_DATA data;
};

void HidDeviceCloser::operator()(HidDeviceData* data) const noexcept {
  if (data->handle != INVALID_HANDLE_VALUE) CloseHandle(data->handle);
  delete data;
}

void EventCloser::operator()(EventData* data) const noexcept {
  if (data->handle != nullptr) CloseHandle(data->handle);
  delete data;
}

void PreparsedDataCloser::operator()(PreparsedDataBlock* data) const noexcept {
  if (data->data != nullptr) HidD_FreePreparsedData(data->data);
  delete data;
}

namespace {

// Empties the owner that a failed call was to fill, and returns the failure.
template <class Owner>
Status GiveUp(Owner& owner) {
  Status failure = LastFailure();
  owner.reset();
  return failure;
}

}  // namespace

OpenStatus OpenHidDevice(const std::wstring& path, HidDevice& device) {
  device.reset(new HidDeviceData{INVALID_HANDLE_VALUE});
  device->handle =
      CreateFileW(path.c_str(), GENERIC_READ | GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_WRITE,
                  nullptr, OPEN_EXISTING, FILE_FLAG_OVERLAPPED, nullptr);
  return device->handle == INVALID_HANDLE_VALUE ? GiveUp(device) : Status{};
}

Status CreateReportEvent(Event& event) {
  event.reset(new EventData{nullptr});
  event->handle = CreateEventW(nullptr, FALSE, FALSE, nullptr);
  return event->handle == nullptr ? GiveUp(event) : Status{};
}

Status GetPreparsedData(const HidDevice& device, PreparsedData& preparsed) {
  if (!device) return InvalidHandle();
  preparsed.reset(new PreparsedDataBlock{nullptr});
  return HidD_GetPreparsedData(device->handle, &preparsed->data) ? Status{} : GiveUp(preparsed);
}

Status GetCaps(const PreparsedData& preparsed, HidCaps& caps) {
  if (!preparsed) return InvalidHandle();
  HIDP_CAPS found{};
  const NTSTATUS status = HidP_GetCaps(preparsed->data, &found);
  // The parser records no last error; its own status says more than 0 would.
  if (status != HIDP_STATUS_SUCCESS) return Status::Failure(static_cast<std::uint32_t>(status));
  caps = {found.OutputReportByteLength, found.InputReportByteLength};
  return {};
}

OpenStatus GetIndexedString(const HidDevice& device, std::uint32_t index, std::size_t capacity,
                            std::wstring& text) {
  if (!device) return InvalidHandle();
  // One unit more than the service knows of ends the text, whatever it wrote.
  std::vector<wchar_t> buffer(capacity / sizeof(wchar_t) + 1);
  if (!HidD_GetIndexedString(device->handle, index, buffer.data(), static_cast<ULONG>(capacity))) {
    return LastFailure();
  }
  text = buffer.data();
  return {};
}

Status SetOutputReport(const HidDevice& device, const std::uint8_t* report, std::uint32_t length) {
  if (!device) return InvalidHandle();
  // The service takes a pointer to variable bytes but only reads them.
  auto* const bytes = const_cast<std::uint8_t*>(report);
  return HidD_SetOutputReport(device->handle, bytes, length) ? Status{} : LastFailure();
}

Status GetInputReport(const HidDevice& device, std::uint8_t* report, std::uint32_t length) {
  if (!device) return InvalidHandle();
  return HidD_GetInputReport(device->handle, report, length) ? Status{} : LastFailure();
}

}  // namespace qzhid::platform
