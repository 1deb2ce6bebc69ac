// Hubs with an interrupt OUT endpoint, to which the kernel sends reports unless a quirk forbids it.
#include <gmock/gmock.h>

#include <regex>

#include "vm/host.h"

namespace qzhid::vm {
namespace {

using ::testing::SizeIs;

/// What the shipped file says of the module.
std::string ShippedOptions() {
  std::smatch found;
  const std::string file = ReadFile("/etc/modprobe.d/qzhidapi-usbhid.conf");
  return std::regex_search(file, found, std::regex("\noptions usbhid (.*)")) ? found[1].str() : "";
}

void LoadUsbhid(const std::string& options) {
  EXPECT_EQ(0, RunProgram("rmmod usbhid").first);
  EXPECT_EQ(0, RunProgram("insmod /modules/usbhid.ko " + options).first);
}

/// What comes of opening a hub with such an endpoint: "works" or "fails", and " with a remark".
std::string Opening(const std::string& endpoint) {
  const Attached attached(HubScenario(R"(, "out_endpoint": ")" + endpoint + '"'));
  const std::string log = "/tmp/library-log.txt",
                    remark = "; if requests fail, set usbhid.quirks=0x2E7C:0x0818:0x40000\n";
  QZ_SetLogPath(log.c_str());
  QZ_ConfigLog(1, 0);
  const std::size_t begin = ReadFile(log).size();  // there is one file for the whole process
  const auto records = List();
  EXPECT_THAT(records, SizeIs(1));
  void* const hub = QZ_OpenHid(records.at(0).dwInst);
  QZ_ConfigLog(0, 0);
  const std::string text = ReadFile(log).substr(begin);
  const std::size_t first = text.find(remark);
  EXPECT_EQ(hub == nullptr, text.find("Set Report Fail,ErrorCode:32\n") != std::string::npos);
  EXPECT_EQ(first, text.rfind(remark)) << "one remark at the most";
  QZ_CloseDev(hub);
  return std::string(hub != nullptr ? "works" : "fails") +
         (first != std::string::npos ? " with a remark" : "");
}

std::string FindingOf(const std::string& endpoint) {
  const Attached attached(HubScenario(R"(, "out_endpoint": ")" + endpoint + '"'));
  const std::string doctor = RunProgram("qzhid doctor").second;
  const std::size_t begin = doctor.find(" has an interrupt OUT endpoint");
  return begin == std::string::npos ? "" : doctor.substr(begin, doctor.find('\n', begin) - begin);
}

TEST(OutEndpoint, GetsTheReportsUnlessTheQuirkIsSet) {
  EXPECT_EQ("works", Opening("none"));
  EXPECT_EQ("fails with a remark", Opening("ignored"));
  EXPECT_EQ("works with a remark", Opening("only"));
  EXPECT_EQ("works with a remark", Opening("both"));
  EXPECT_EQ("", FindingOf("none"));
  EXPECT_EQ(
      " has an interrupt OUT endpoint, to which the kernel sends requests; if they fail, copy "
      "qzhidapi-usbhid.conf to /etc/modprobe.d and start again",
      FindingOf("both"));
  LoadUsbhid(ShippedOptions());
  EXPECT_EQ("works", Opening("ignored"));
  EXPECT_EQ("fails", Opening("only"));
  EXPECT_EQ("works", Opening("both"));
  EXPECT_EQ(" has an interrupt OUT endpoint, which the kernel leaves alone", FindingOf("ignored"));
  {
    const Attached attached(HubScenario(R"(, "out_endpoint": "ignored")"));
    const auto update = RunProgram("update_hub " + MakeImage("0210"));
    EXPECT_EQ(0, update.first) << "the quirk is for the loader, too: " << update.second;
  }
  LoadUsbhid("");
}

}  // namespace
}  // namespace qzhid::vm
