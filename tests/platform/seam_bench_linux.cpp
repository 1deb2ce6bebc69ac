// The bench of a virtual machine in which qzhub attaches the devices to the kernel.
#include "platform/seam_bench.h"
#include "vm/guest.h"

namespace qzhid::platform::test {

namespace {

std::string Scenario(const std::string& device) { return R"({"devices": [)" + device + "]}"; }

class CLinuxSeamBench final : public ISeamBench {
 public:
  CLinuxSeamBench() { Plug(); }

  std::vector<ExpectedHub> Hubs() override {
    return HubsAt(m_pFirst->PortOf("first"), 1, m_Second.PortOf("second"));
  }
  bool KeepsNumbers() override { return false; }
  void Unplug() override { m_pFirst.reset(); }
  void Plug() override {
    m_pFirst = std::make_unique<vm::Attached>(Scenario(R"({"name": "first", "port": "1"})"));
  }

 private:
  const vm::Attached m_Other{Scenario(kOther)}, m_Second{Scenario(kSecondHub)};
  std::unique_ptr<vm::Attached> m_pFirst;
};

}  // namespace

std::unique_ptr<ISeamBench> MakeSeamBench() { return std::make_unique<CLinuxSeamBench>(); }

}  // namespace qzhid::platform::test
