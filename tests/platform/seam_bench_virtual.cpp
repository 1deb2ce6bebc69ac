#include "platform/seam_bench.h"
#include "virtualhub/bus/current_machine.h"

namespace qzhid::platform::test {

namespace {

class CVirtualSeamBench final : public ISeamBench {
 public:
  CVirtualSeamBench() {
    port = 4;
    level = 3;
    keepsNumbers = true;
  }
  ~CVirtualSeamBench() override { virtualhub::UninstallMachine(); }

  void Unplug() override { m_Machine.Unplug("first"); }
  void Plug() override {
    m_Machine.Plug("first");
    m_Machine.SleepMs(200);
  }

 private:
  virtualhub::Machine& m_Machine = virtualhub::InstallMachine(
      R"({"instance_numbers": "by_id", "devices": [{"name": "first", "port": "3.1.4"}, )" +
      kSecondHub + ", " + kOther + "]}");
};

}  // namespace

std::unique_ptr<ISeamBench> MakeSeamBench() { return std::make_unique<CVirtualSeamBench>(); }

}  // namespace qzhid::platform::test
