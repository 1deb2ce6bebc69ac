// An update as usbmon sees it and as the virtual hub sees it. The captures go out with the reports
// of the tests; captures_test.py compares them.
#include <gmock/gmock.h>

#include "vm/host.h"

namespace qzhid::vm {
namespace {

TEST(Capture, AnUpdateIsCapturedOnBothSides) {
  const std::string image = MakeImage("0210");
  const Program monitor("cat /dev/usbmon1 > reports/update.usbmon");
  // A hub that is ready at once gets the same requests in every run, and with every kernel.
  const Attached attached(HubScenario(R"(, "timing": {"ready_ms": 0})",
                                      R"(, "capture": "/tmp/reports/update.pcapng")"));
  EXPECT_EQ(0, RunProgram("qzhid update --yes --image " + image).first);
}

}  // namespace
}  // namespace qzhid::vm
