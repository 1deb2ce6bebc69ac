// Hubs with an interrupt OUT endpoint, to which the kernel sends reports unless a quirk forbids it.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sstream>

#include "vm/host.h"

namespace qzhid::vm {
namespace {

using ::testing::SizeIs;

const std::string kRemark = "; if requests fail, set usbhid.quirks=0x2E7C:0x0818:0x40000\n";

/// What the shipped file says of the module.
std::string ShippedOptions() {
  const std::string mark = "options usbhid ";
  std::istringstream lines(ReadFile("/etc/modprobe.d/qzhidapi-usbhid.conf"));
  for (std::string line; std::getline(lines, line);) {
    if (line.starts_with(mark)) return line.substr(mark.size());
  }
  return "";
}

void LoadUsbhid(const std::string& options) {
  EXPECT_EQ(0, RunProgram({"rmmod", "usbhid"}).status);
  std::vector<std::string> command{"insmod", "/modules/usbhid.ko"};
  if (!options.empty()) command.push_back(options);
  EXPECT_EQ(0, RunProgram(command).status);
}

std::size_t CountOf(const std::string& part, const std::string& text) {
  std::size_t count = 0;
  for (std::size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + 1)) {
    ++count;
  }
  return count;
}

/// A hub with such an endpoint: whether its requests get through, and what is said of it.
void ExpectHub(const std::string& endpoint, bool works, bool isRemarkedOn) {
  SCOPED_TRACE(endpoint);
  const Attached attached(HubScenario(R"(, "out_endpoint": ")" + endpoint + '"'));
  void* hub = nullptr;
  const std::string log = LogOf([&] {
    const auto records = List();
    ASSERT_THAT(records, SizeIs(1));
    hub = QZ_OpenHid(records[0].dwInst);
  });
  EXPECT_EQ(works, hub != nullptr);
  EXPECT_EQ(works, log.find("Set Report Fail,ErrorCode:32\n") == std::string::npos);
  EXPECT_EQ(isRemarkedOn ? 1u : 0u, CountOf(kRemark, log)) << log;
  QZ_CloseDev(hub);
}

std::string FindingOf(const std::string& endpoint) {
  const Attached attached(HubScenario(R"(, "out_endpoint": ")" + endpoint + '"'));
  const std::string doctor = RunProgram({"qzhid", "doctor"}).output;
  const std::size_t begin = doctor.find(" has an interrupt OUT endpoint");
  return begin == std::string::npos ? "" : doctor.substr(begin, doctor.find('\n', begin) - begin);
}

TEST(OutEndpoint, GetsTheReportsUnlessTheQuirkIsSet) {
  ExpectHub("none", true, false);
  ExpectHub("ignored", false, true);
  ExpectHub("only", true, true);
  ExpectHub("both", true, true);
  EXPECT_EQ("", FindingOf("none"));
  EXPECT_EQ(
      " has an interrupt OUT endpoint, to which the kernel sends requests; if they fail, copy "
      "qzhidapi-usbhid.conf to /etc/modprobe.d and start again",
      FindingOf("both"));
  LoadUsbhid(ShippedOptions());
  ExpectHub("ignored", true, false);
  ExpectHub("only", false, false);
  ExpectHub("both", true, false);
  EXPECT_EQ(" has an interrupt OUT endpoint, which the kernel leaves alone", FindingOf("ignored"));
  LoadUsbhid("");
}

TEST(OutEndpoint, AnUpdateFindsTheQuirkInTheLoaderToo) {
  LoadUsbhid(ShippedOptions());
  {
    const Attached attached(HubScenario(R"(, "out_endpoint": "ignored")"));
    const Outcome update = RunProgram({"update_hub", MakeImage("0210")});
    EXPECT_EQ(0, update.status) << update.output;
  }
  LoadUsbhid("");
}

}  // namespace
}  // namespace qzhid::vm
