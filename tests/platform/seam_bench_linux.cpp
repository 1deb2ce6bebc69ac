// The bench of a virtual machine in which qzhub attaches the devices to the kernel.
#include "platform/seam_bench.h"
#include "vm/guest.h"

namespace qzhid::platform::test {

namespace {

class CLinuxSeamBench final : public ISeamBench {
 public:
  CLinuxSeamBench() {
    Plug();
    port = m_pFirst->PortOf("first");
    level = 1;
  }
  void Unplug() override { m_pFirst.reset(); }
  void Plug() override {
    m_pFirst = std::make_unique<vm::Attached>(R"({"devices": [{"name": "first", "port": "1"}]})");
  }

 private:
  const vm::Attached m_Others{R"({"devices": [)" + kOther + ", " + kSecondHub + "]}", 2};
  std::unique_ptr<vm::Attached> m_pFirst;
};

}  // namespace

std::unique_ptr<ISeamBench> MakeSeamBench() { return std::make_unique<CLinuxSeamBench>(); }

}  // namespace qzhid::platform::test
