// Users without permission, with permission, and the udev rule that gives it.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <sstream>

#include "vm/host.h"

namespace qzhid::vm {
namespace {

using ::testing::HasSubstr;
using ::testing::Not;

constexpr uid_t kUser = 1000;
const std::string kRules = "/etc/udev/rules.d/";

/// The device file of the only USB device beside the root hubs.
std::string UsbFile(const Attached& attached) {
  const std::string facts = ReadFile(UsbFolder(attached.PortOf("hub")) + "/uevent");
  const std::string name = "DEVNAME=";
  const std::size_t begin = facts.find(name) + name.size();
  return "/dev/" + facts.substr(begin, facts.find('\n', begin) - begin);
}

/// What the rule does for the user at the machine.
void GiveToUser(const std::string& file) {
  EXPECT_EQ(0, chown(file.c_str(), kUser, kUser));
  EXPECT_EQ(0, chmod(file.c_str(), 0660));
}

/// An update as the user, who has no permission for all that it takes: it ends before it begins,
/// and logs how far it came.
std::string LogOfUser() {
  const std::string log = "/tmp/user-log.txt", image = "/tmp/user-image.bin";
  std::ofstream(image) << std::string(0x10000, '\0');
  unlink(log.c_str());
  setenv("UPDATE_HUB_LOG", log.c_str(), 1);
  RunProgram({"update_hub", image}, kUser);
  unsetenv("UPDATE_HUB_LOG");
  return ReadFile(log);
}

TEST(Permission, ADeniedDeviceFileIsNamed) {
  const Attached attached(HubScenario());
  const Outcome denied = RunProgram({"gpio_blink"}, kUser);
  EXPECT_EQ(1, denied.status);
  EXPECT_THAT(denied.output, HasSubstr("gpio_blink: no hub answers"));
  const std::string log = LogOfUser();
  EXPECT_THAT(log, HasSubstr("CreateFile failed,ErrorCode is 0000000d\n"));
  EXPECT_THAT(log, HasSubstr("No permission for " + attached.HidFile("hub") + '\n'));
  GiveToUser(attached.HidFile("hub"));
  EXPECT_EQ(0, RunProgram({"gpio_blink"}, kUser).status) << "the family needs no string";
}

TEST(Permission, TheProductTextNeedsTheUsbNode) {
  const Attached attached(HubScenario(R"(, "image": {"vid": "0x1A2B", "pid": "0x3C4D"})"));
  GiveToUser(attached.HidFile("hub"));
  EXPECT_EQ(1, RunProgram({"gpio_blink"}, kUser).status);
  const std::string usbFile = UsbFile(attached), log = LogOfUser();
  EXPECT_THAT(log, HasSubstr("HidD_GetIndexedString failed,Error Code:13\n"));
  EXPECT_THAT(log, HasSubstr("No permission for " + usbFile + "\n"));
  GiveToUser(usbFile);
  EXPECT_EQ(0, RunProgram({"gpio_blink"}, kUser).status);
}

/// The tags that the rules give a device.
std::string TagsOf(const std::string& device) {
  std::filesystem::remove_all("/run/udev");  // remembers tags of earlier devices
  const Outcome test = RunProgram({"udevadm", "test", "--action=add", device});
  EXPECT_EQ(0, test.status) << test.output;
  for (const std::string& rule : NamesIn(kRules)) {
    EXPECT_THAT(test.output, HasSubstr(rule)) << "read";
    EXPECT_THAT(test.output, Not(HasSubstr(rule + ':'))) << "without complaint";
  }
  const std::string mark = "\nTAGS=";
  const std::size_t begin = test.output.find(mark);
  if (begin == std::string::npos) return "";
  return test.output.substr(begin + mark.size(),
                            test.output.find('\n', begin + 1) - begin - mark.size());
}

/// The tags of the HID node and of the USB node of a scenario's only device.
std::string TagsOfDevice(const std::string& name, const std::string& scenario) {
  const Attached attached(scenario);
  return TagsOf("/sys/class/hidraw/hidraw0") + '/' + TagsOf(UsbFolder(attached.PortOf(name)));
}

TEST(Permission, TheRuleTagsTheHidNodesOfHubsOnly) {
  EXPECT_EQ(":uaccess:/", TagsOfDevice("hub", HubScenario(R"(, "running": "flash")")));
  EXPECT_EQ(":uaccess:/", TagsOfDevice("hub", HubScenario(R"(, "running": "rom")")));
  EXPECT_EQ("/", TagsOfDevice("other", R"({"devices": [{"name": "other", "kind": "other",
      "port": "1", "vid": "0x1A2B", "pid": "0x5678"}]})"));
}

TEST(Permission, TheLinesForAnotherVendorTagBothNodes) {
  const std::string mark = "#:", shipped = ReadFile(kRules + "70-qzhidapi.rules"),
                    file = kRules + "70-another-vendor.rules";
  std::istringstream lines(shipped);
  std::string rules;
  for (std::string line; std::getline(lines, line);) {
    if (line.starts_with(mark)) rules += line.substr(mark.size()) + '\n';
  }
  WriteFile(file, rules);
  EXPECT_EQ(":uaccess:/:uaccess:",
            TagsOfDevice("hub", HubScenario(R"(, "image": {"vid": "0x1A2B", "pid": "0x3C4D"})")));
  EXPECT_EQ(":uaccess:/", TagsOfDevice("hub", HubScenario()));
  unlink(file.c_str());
}

}  // namespace
}  // namespace qzhid::vm
