// The HID class: opened devices, their descriptors and their reports.
#include <sys/eventfd.h>

#include "platform/linux/device_file.h"
#include "platform/linux/hid_path.h"
#include "platform/linux/hidraw_requests.h"
#include "platform/linux/node_registry.h"
#include "platform/linux/out_endpoint.h"
#include "platform/linux/report_descriptor.h"
#include "platform/linux/usb_string.h"
#include "platform/system/property_text.h"

namespace qzhid::platform {

struct HidDeviceData {
  CFileHandle file;
  DevInst node = 0;
};
struct EventData {
  CFileHandle file;
};
struct PreparsedDataBlock {
  HidCaps caps;
};

void HidDeviceCloser::operator()(HidDeviceData* data) const noexcept { delete data; }
void EventCloser::operator()(EventData* data) const noexcept { delete data; }
void PreparsedDataCloser::operator()(PreparsedDataBlock* data) const noexcept { delete data; }

namespace {

constexpr std::uint32_t kLongestReport = _IOC_SIZEMASK;

/// A report request of the kernel, whose number depends on the length.
Status ExchangeReport(const HidDevice& device, unsigned long request, const void* report,
                      std::uint32_t length) {
  if (!device) return InvalidHandle();
  if (length == 0 || length > kLongestReport) return Status::Failure(EINVAL);
  if (Uninterrupted([&] { return ioctl(device->file.get(), request, report); }) >= 0) return {};
  return LastFailure();
}

}  // namespace

OpenStatus OpenHidDevice(const std::wstring& path, HidDevice& device) {
  device.reset();
  std::string deviceFile;
  HidDevice opened(new HidDeviceData);
  if (!ParseHidPath(path, deviceFile, opened->node)) return Status::Failure(ENOENT);
  const auto node = CNodeRegistry::Instance().Find(opened->node);
  if (!node || node->deviceFile != deviceFile) return NoDevice();
  OpenStatus status = OpenDeviceFile(*node, opened->file);
  if (status) status = CheckReportRequests(opened->file);
  if (!status) return status;
  device = std::move(opened);
  if (node->hasInterruptOut) status.remark = OutEndpointRemark(node->vid, node->pid);
  return status;
}

Status CreateReportEvent(Event& event) {
  event.reset();
  Event created(new EventData{TakeDescriptor(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK))});
  if (!created->file) return LastFailure();
  event = std::move(created);
  return {};
}

Status GetPreparsedData(const HidDevice& device, PreparsedData& preparsed) {
  preparsed.reset();
  if (!device) return InvalidHandle();
  const int file = device->file.get();
  hidraw_report_descriptor descriptor{};
  int size = 0;
  if (Uninterrupted([&] { return ioctl(file, HIDIOCGRDESCSIZE, &size); }) < 0) return LastFailure();
  if (size < 0 || size > HID_MAX_DESCRIPTOR_SIZE) return Status::Failure(EBADMSG);
  descriptor.size = static_cast<std::uint32_t>(size);
  if (Uninterrupted([&] { return ioctl(file, HIDIOCGRDESC, &descriptor); }) < 0) {
    return LastFailure();
  }
  const auto caps = ParseReportDescriptor({descriptor.value, descriptor.value + size});
  if (!caps) return Status::Failure(EBADMSG);
  preparsed.reset(new PreparsedDataBlock{*caps});
  return {};
}

Status GetCaps(const PreparsedData& preparsed, HidCaps& caps) {
  if (!preparsed) return InvalidHandle();
  caps = preparsed->caps;
  return {};
}

OpenStatus GetIndexedString(const HidDevice& device, std::uint32_t index, std::size_t capacity,
                            std::wstring& text) {
  if (!device) return InvalidHandle();
  CNodeRegistry& registry = CNodeRegistry::Instance();
  DevInst parent = 0;
  if (Status status = GetParent(device->node, parent); !status) return status;
  const auto usbDevice = registry.Find(parent);
  if (!usbDevice) return NoDevice();
  std::wstring found;
  if (OpenStatus status = ReadUsbString(*usbDevice, index, found); !status) return status;
  if ((Utf16Units(found) + 1) * 2 > capacity) return Status::Failure(ENOBUFS);
  text = std::move(found);
  return {};
}

Status SetOutputReport(const HidDevice& device, const std::uint8_t* report, std::uint32_t length) {
  return ExchangeReport(device, HIDIOCSOUTPUT(length), report, length);
}

Status GetInputReport(const HidDevice& device, std::uint8_t* report, std::uint32_t length) {
  return ExchangeReport(device, HIDIOCGINPUT(length), report, length);
}

}  // namespace qzhid::platform
