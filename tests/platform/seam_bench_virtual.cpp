#include "platform/seam_bench.h"
#include "virtualhub/bus/current_machine.h"

namespace qzhid::platform::test {

namespace {

class CVirtualSeamBench final : public ISeamBench {
 public:
  ~CVirtualSeamBench() override { virtualhub::UninstallMachine(); }

  std::vector<ExpectedHub> Hubs() override { return HubsAt(2, 3, 2); }
  bool KeepsNumbers() override { return true; }
  void Unplug() override { m_Machine.Unplug("first"); }
  void Plug() override {
    m_Machine.Plug("first");
    m_Machine.SleepMs(200);
  }

 private:
  virtualhub::Machine& m_Machine =
      virtualhub::InstallMachine(std::string(R"({"instance_numbers": "by_id", "devices": [
          {"name": "first", "port": "3.1.2"}, )") +
                                 kSecondHub + ", " + kOther + "]}");
};

}  // namespace

std::unique_ptr<ISeamBench> MakeSeamBench() { return std::make_unique<CVirtualSeamBench>(); }

}  // namespace qzhid::platform::test
