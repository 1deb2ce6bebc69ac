// Users without permission, with permission, and the udev rule that gives it.
#include <gmock/gmock.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <regex>

#include "vm/host.h"

namespace qzhid::vm {
namespace {

using ::testing::HasSubstr;
using ::testing::Not;
using ::testing::Pair;

constexpr uid_t kUser = 1000;
const std::string kRules = "/etc/udev/rules.d/",
                  kAnotherVendor = R"(, "image": {"vid": "0x1A2B", "pid": "0x3C4D"})";

/// The first group of the pattern in the text; empty if it is not in there.
std::string Find(const char* pattern, const std::string& text) {
  std::smatch found;
  return std::regex_search(text, found, std::regex(pattern)) ? found[1].str() : "";
}

/// What the rule does for the user at the computer.
void GiveToUser(const std::string& file) {
  EXPECT_EQ(0, chown(file.c_str(), kUser, kUser));
  EXPECT_EQ(0, chmod(file.c_str(), 0660));
}

/// What an update by the user logs, which ends before it begins for lack of permission.
std::string LogOfUser() {
  const std::string log = "/tmp/user-log.txt", image = "/tmp/user-image.bin";
  WriteFile(image, std::string(0x10000, '\0'));
  unlink(log.c_str());
  RunProgram("env UPDATE_HUB_LOG=" + log + " update_hub " + image, kUser);
  return ReadFile(log);
}

TEST(Permission, ADeniedDeviceFileIsNamed) {
  const Attached attached(HubScenario());
  EXPECT_THAT(RunProgram("gpio_blink", kUser), Pair(1, HasSubstr("gpio_blink: no hub answers")));
  const std::string log = LogOfUser();
  EXPECT_THAT(log, HasSubstr("CreateFile failed,ErrorCode is 0000000d\n"));
  EXPECT_THAT(log, HasSubstr("No permission for " + attached.HidFile("hub") + '\n'));
  GiveToUser(attached.HidFile("hub"));
  EXPECT_EQ(0, RunProgram("gpio_blink", kUser).first) << "the family needs no string";
}

TEST(Permission, TheProductTextNeedsTheUsbNode) {
  const Attached attached(HubScenario(kAnotherVendor));
  GiveToUser(attached.HidFile("hub"));
  EXPECT_EQ(1, RunProgram("gpio_blink", kUser).first);
  const std::string facts = ReadFile(UsbFolder(attached.PortOf("hub")) + "/uevent"),
                    usbFile = "/dev/" + Find("DEVNAME=(.*)", facts), log = LogOfUser();
  EXPECT_THAT(log, HasSubstr("HidD_GetIndexedString failed,Error Code:13\n"));
  EXPECT_THAT(log, HasSubstr("No permission for " + usbFile + "\n"));
  GiveToUser(usbFile);
  EXPECT_EQ(0, RunProgram("gpio_blink", kUser).first);
}

/// The tags that the rules give a device.
std::string TagsOf(const std::string& device) {
  std::filesystem::remove_all("/run/udev");  // remembers tags of earlier devices
  const auto [status, output] = RunProgram("udevadm test --action=add " + device);
  EXPECT_EQ(0, status) << output;
  for (const std::string& rule : NamesIn(kRules)) {
    EXPECT_THAT(output, HasSubstr(rule)) << "read";
    EXPECT_THAT(output, Not(HasSubstr(rule + ':'))) << "without complaint";
  }
  return Find("\nTAGS=(.*)", output);
}

/// The tags of the HID node and of the USB node of a scenario's only device.
std::string TagsOfDevice(const std::string& scenario) {
  const Attached attached(scenario);
  return TagsOf("/sys/class/hidraw/hidraw0") + '/' + TagsOf(UsbFolder(attached.Ports().back()));
}

TEST(Permission, TheRuleTagsTheHidNodesOfHubsOnly) {
  EXPECT_EQ(":uaccess:/", TagsOfDevice(HubScenario(R"(, "running": "flash")")));
  EXPECT_EQ(":uaccess:/", TagsOfDevice(HubScenario(R"(, "running": "rom")")));
  EXPECT_EQ("/", TagsOfDevice(R"({"devices": [{"name": "other", "kind": "other",
      "port": "1", "vid": "0x1A2B", "pid": "0x5678"}]})"));
}

TEST(Permission, TheLinesForAnotherVendorTagBothNodes) {
  const std::string shipped = ReadFile(kRules + "70-qzhidapi.rules"),
                    file = kRules + "70-another-vendor.rules";
  const std::string rules = std::regex_replace(shipped, std::regex("\n#:"), "\n");
  WriteFile(file, rules);
  EXPECT_EQ(":uaccess:/:uaccess:", TagsOfDevice(HubScenario(kAnotherVendor)));
  EXPECT_EQ(":uaccess:/", TagsOfDevice(HubScenario()));
  unlink(file.c_str());
}

}  // namespace
}  // namespace qzhid::vm
