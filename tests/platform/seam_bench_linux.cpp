// The bench of a virtual machine in which qzhub attaches the devices to the kernel.
#include "platform/seam_bench.h"
#include "vm/guest.h"

namespace qzhid::platform::test {

namespace {

using vm::Attached;

class CLinuxSeamBench final : public ISeamBench {
 public:
  CLinuxSeamBench()
      : m_Other(R"({"devices": [
          {"name": "other", "kind": "other", "port": "5", "vid": "0x1234", "pid": "0x5678",
           "output_report_length": 2, "input_report_length": 9}]})") {
    for (std::size_t hub : {0u, 1u}) Plug(hub);
  }

  std::vector<ExpectedDevice> Hubs() override {
    const auto hub = [&](std::size_t index, const std::wstring& ids, const wchar_t* text,
                         HidCaps caps, std::uint16_t vid) {
      const std::uint32_t port = m_Hubs[index]->PortOf("hub");
      return ExpectedDevice{L"HID\\" + ids, L"USB\\" + ids, text, caps, port, 1, vid};
    };
    return {hub(0, L"VID_2E7C&PID_0818&REV_0100", L"WQ HID Hub", {321, 257}, 0x2E7C),
            hub(1, L"VID_1A2B&PID_3C4D&REV_0100", L"WQ HID Gr\u00F6\u00DFe", {200, 300}, 0x1A2B)};
  }
  std::wstring OtherHardwareId() override { return L"HID\\VID_1234&PID_5678&REV_0100"; }
  Architecture NativeArchitecture() override { return Architecture::X64; }
  bool KeepsNumbers() override { return false; }
  void Unplug(std::size_t hub) override { m_Hubs[hub].reset(); }
  void Plug(std::size_t hub) override {
    m_Hubs[hub] =
        std::make_unique<Attached>(hub == 0 ? R"({"devices": [{"name": "hub", "port": "1"}]})"
                                            : R"({"devices": [{"name": "hub", "port": "2",
                        "image": {"vid": "0x1A2B", "pid": "0x3C4D"},
                        "product_text": "WQ HID Größe", "output_report_length": 200,
                        "input_report_length": 300}]})");
  }

 private:
  Attached m_Other;
  std::unique_ptr<Attached> m_Hubs[2];
};

}  // namespace

std::unique_ptr<ISeamBench> MakeSeamBench() { return std::make_unique<CLinuxSeamBench>(); }

}  // namespace qzhid::platform::test
