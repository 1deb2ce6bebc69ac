#include "platform/seam_bench.h"
#include "virtualhub/bus/current_machine.h"

namespace qzhid::platform::test {

namespace {

class CVirtualSeamBench final : public ISeamBench {
 public:
  CVirtualSeamBench()
      : m_Machine(virtualhub::InstallMachine(R"({
          "host": {"architecture": "arm64"}, "instance_numbers": "by_id",
          "devices": [
            {"name": "first", "port": "3.1.2"},
            {"name": "other", "kind": "other", "port": "5", "vid": "0x045E", "pid": "0x0750",
             "output_report_length": 2, "input_report_length": 9},
            {"name": "second", "port": "2", "image": {"vid": "0x1A2B", "pid": "0x3C4D"},
             "product_text": "WQ HID Größe", "output_report_length": 200,
             "input_report_length": 300}]})")) {}
  ~CVirtualSeamBench() override { virtualhub::UninstallMachine(); }

  std::vector<ExpectedDevice> Hubs() override {
    const auto hub = [](const std::wstring& ids, const wchar_t* text, HidCaps caps,
                        std::uint32_t level, std::uint16_t vid) {
      return ExpectedDevice{L"HID\\" + ids, L"USB\\" + ids, text, caps, 2, level, vid};
    };
    return {hub(L"VID_2E7C&PID_0818&REV_0100", L"WQ HID Hub", {321, 257}, 3, 0x2E7C),
            hub(L"VID_1A2B&PID_3C4D&REV_0100", L"WQ HID Gr\u00F6\u00DFe", {200, 300}, 1, 0x1A2B)};
  }
  std::wstring OtherHardwareId() override { return L"HID\\VID_045E&PID_0750&REV_0100"; }
  Architecture NativeArchitecture() override { return Architecture::QZ_PROCESSOR; }
  bool KeepsNumbers() override { return true; }
  void Unplug(std::size_t hub) override { m_Machine.Unplug(Name(hub)); }
  void Plug(std::size_t hub) override {
    m_Machine.Plug(Name(hub));
    m_Machine.SleepMs(200);
  }

 private:
  static const char* Name(std::size_t hub) { return hub == 0 ? "first" : "second"; }

  virtualhub::Machine& m_Machine;
};

}  // namespace

std::unique_ptr<ISeamBench> MakeSeamBench() { return std::make_unique<CVirtualSeamBench>(); }

}  // namespace qzhid::platform::test
