#include "platform/linux/usb_string.h"

#include <linux/usb/ch9.h>
#include <linux/usbdevice_fs.h>
#include <sys/ioctl.h>

#include <vector>

#include "platform/linux/device_file.h"
#include "platform/linux/string_descriptor.h"

namespace qzhid::platform {

namespace {

constexpr std::uint16_t kLongestDescriptor = 255;
constexpr std::uint16_t kEnglish = 0x0409;
constexpr unsigned kTimeoutMs = 5000;

Status ReadStringDescriptor(const CFileHandle& usb, std::uint8_t index, std::uint16_t language,
                            std::vector<std::uint8_t>& descriptor) {
  descriptor.assign(kLongestDescriptor, 0);
  usbdevfs_ctrltransfer request{};
  request.bRequestType = USB_DIR_IN;
  request.bRequest = USB_REQ_GET_DESCRIPTOR;
  request.wValue = static_cast<std::uint16_t>(USB_DT_STRING << 8 | index);
  request.wIndex = language;
  request.wLength = kLongestDescriptor;
  request.timeout = kTimeoutMs;
  request.data = descriptor.data();
  const int length = Uninterrupted([&] { return ioctl(usb.get(), USBDEVFS_CONTROL, &request); });
  if (length < 0) return LastFailure();
  descriptor.resize(static_cast<std::size_t>(length));
  return {};
}

/// A device that refuses to list its languages is taken to have English only.
Status ReadLanguage(const CFileHandle& usb, std::uint16_t& language) {
  std::vector<std::uint8_t> descriptor;
  Status status = ReadStringDescriptor(usb, 0, 0, descriptor);
  if (!status && status.code != EPIPE) return status;
  language = status ? DecodeFirstLanguage(descriptor).value_or(kEnglish) : kEnglish;
  return {};
}

}  // namespace

OpenStatus ReadUsbString(const NodeFacts& usbDevice, std::uint32_t index, std::wstring& text) {
  if (index == 0 || index > 0xFF) return Status::Failure(EINVAL);
  CFileHandle usb;
  std::uint16_t language = 0;
  std::vector<std::uint8_t> descriptor;
  OpenStatus status = OpenDeviceFile(usbDevice, usb);
  if (status) status = ReadLanguage(usb, language);
  if (status) {
    status = ReadStringDescriptor(usb, static_cast<std::uint8_t>(index), language, descriptor);
  }
  if (!status) return status;
  auto decoded = DecodeString(descriptor);
  if (!decoded) return Status::Failure(EBADMSG);
  text = std::move(*decoded);
  return {};
}

}  // namespace qzhid::platform
