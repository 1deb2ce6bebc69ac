// The bench of the Linux backend on a kernel double: what reaches a device file is carried out by
// the virtual hub, as control transfers.
#include <linux/hidraw.h>
#include <linux/usbdevice_fs.h>

#include "platform/linux/hidraw_requests.h"
#include "platform/linux/kernel_double.h"
#include "platform/seam_bench.h"
#include "virtualhub/bus/usb_device.h"

namespace qzhid::platform::test {

namespace {

using virtualhub::Bytes;
using virtualhub::UsbDevice;

/// The descriptor or report that the device answers, or a negative error code in `result`.
Bytes Transfer(UsbDevice& usb, const Bytes& setup, const Bytes& data, int& result) {
  Bytes answer;
  const virtualhub::Result outcome = usb.Control(virtualhub::SetupPacket(setup), data, answer);
  const bool isGone = outcome.error == virtualhub::Error::Gone;
  result = outcome.ok() ? static_cast<int>(answer.size()) : isGone ? -ENODEV : -EPIPE;
  return answer;
}

Bytes Setup(unsigned key, unsigned value, unsigned index, std::size_t length) {
  const auto low = [](std::size_t number) { return static_cast<std::uint8_t>(number); };
  return {low(key >> 8), low(key),        low(value),  low(value >> 8),
          low(index),    low(index >> 8), low(length), low(length >> 8)};
}

int ExchangeReport(UsbDevice& usb, bool isOutput, std::uint8_t* report, std::size_t length) {
  if (report == nullptr) return -EFAULT;
  int result = 0;
  const Bytes data(report + 1, report + length);  // without the ID, which is 0
  if (isOutput) {
    Transfer(usb, Setup(0x2109, 0x0200, 0, data.size()), data, result);
    return result;
  }
  const Bytes answer = Transfer(usb, Setup(0xA101, 0x0100, 0, data.size()), {}, result);
  std::copy(answer.begin(), answer.end(), report + 1);
  return result;
}

int CarryOut(UsbDevice& usb, unsigned long request, void* argument) {
  int result = 0;
  if (request == USBDEVFS_CONTROL) {
    const auto& control = *static_cast<usbdevfs_ctrltransfer*>(argument);
    const Bytes setup = Setup(control.bRequestType * 256u + control.bRequest, control.wValue,
                              control.wIndex, control.wLength);
    const Bytes answer = Transfer(usb, setup, {}, result);
    std::copy(answer.begin(), answer.end(), static_cast<std::uint8_t*>(control.data));
    return result;
  }
  const std::size_t length = _IOC_SIZE(request);
  const bool isOutput = request == HIDIOCSOUTPUT(length);
  if (isOutput || request == HIDIOCGINPUT(length)) {
    return ExchangeReport(usb, isOutput, static_cast<std::uint8_t*>(argument), length);
  }
  const Bytes descriptor = Transfer(usb, Setup(0x8106, 0x2200, 0, 0xFFFF), {}, result);
  if (request == HIDIOCGRDESCSIZE) {
    *static_cast<int*>(argument) = static_cast<int>(descriptor.size());
  } else {
    auto* const block = static_cast<hidraw_report_descriptor*>(argument);
    std::copy(descriptor.begin(), descriptor.end(), block->value);
  }
  return result < 0 ? result : 0;
}

class CSeamBenchOnDouble final : public ISeamBench {
 public:
  CSeamBenchOnDouble()
      : m_Machine(virtualhub::ReadScenario(R"({"devices": [
          {"name": "first", "port": "3.1.2"},
          {"name": "second", "port": "2", "image": {"vid": "0x1A2B", "pid": "0x3C4D"},
           "product_text": "WQ HID Größe", "output_report_length": 200,
           "input_report_length": 300}]})")) {
    m_Kernel.Plug({"5", 7, {{"idVendor", "045e"}, {"idProduct", "0750"}}});
    for (std::size_t hub : {0u, 1u}) PlugIntoKernel(hub);
  }

  std::vector<ExpectedDevice> Hubs() override {
    return {{L"HID\\VID_2E7C&PID_0818&REV_0100",
             L"USB\\VID_2E7C&PID_0818&REV_0100",
             L"WQ HID Hub",
             {321, 257},
             2,
             3,
             0x2E7C},
            {L"HID\\VID_1A2B&PID_3C4D&REV_0100",
             L"USB\\VID_1A2B&PID_3C4D&REV_0100",
             L"WQ HID Gr\u00F6\u00DFe",
             {200, 300},
             2,
             1,
             0x1A2B}};
  }
  std::wstring OtherHardwareId() override { return L"HID\\VID_045E&PID_0750&REV_0100"; }
  Architecture NativeArchitecture() override { return Architecture::QZ_PROCESSOR; }
  bool KeepsNumbers() override { return false; }
  void Unplug(std::size_t hub) override {
    m_Machine.Unplug(Name(hub));
    m_Kernel.Unplug(Ports(hub));
  }
  void Plug(std::size_t hub) override {
    m_Machine.Plug(Name(hub));
    m_Machine.SleepMs(200);
    PlugIntoKernel(hub);
  }

 private:
  static const char* Name(std::size_t hub) { return hub == 0 ? "first" : "second"; }
  static const char* Ports(std::size_t hub) { return hub == 0 ? "3.1.2" : "2"; }

  void PlugIntoKernel(std::size_t hub) {
    const auto usb = std::make_shared<UsbDevice>(m_Machine, *m_Machine.OnBus(Name(hub)));
    usb->Enumerate();
    const char* const ids[][2] = {{"2e7c", "0818"}, {"1a2b", "3c4d"}};
    m_Kernel.Plug({Ports(hub),
                   static_cast<int>(hub),
                   {{"idVendor", ids[hub][0]}, {"idProduct", ids[hub][1]}},
                   [usb](unsigned long request, void* argument) {
                     return CarryOut(*usb, request, argument);
                   }});
  }

  virtualhub::Machine m_Machine;
  KernelDouble m_Kernel;
};

}  // namespace

std::unique_ptr<ISeamBench> MakeSeamBench() { return std::make_unique<CSeamBenchOnDouble>(); }

}  // namespace qzhid::platform::test
