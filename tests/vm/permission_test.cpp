// Users without rights, with rights, and the udev rule that gives them.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>

#include "vm/host.h"

namespace qzhid::vm {
namespace {

using ::testing::HasSubstr;
using ::testing::Not;

constexpr uid_t kUser = 1000;

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

/// An update to nothing as the user: it ends before it begins, and logs how far it came.
std::string LogOfUser() {
  const std::string log = "/tmp/user-log.txt";
  unlink(log.c_str());
  setenv("UPDATE_HUB_LOG", log.c_str(), 1);
  RunProgram({"update_hub", "/tmp/no-image"}, kUser);
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
  EXPECT_THAT(log, HasSubstr("No permission for /dev/hidraw0\n"));
  GiveToUser("/dev/hidraw0");
  EXPECT_EQ(0, RunProgram({"gpio_blink"}, kUser).status) << "the family needs no string";
}

TEST(Permission, TheProductTextNeedsTheUsbNode) {
  const Attached attached(HubScenario(R"(, "image": {"vid": "0x1A2B", "pid": "0x3C4D"})"));
  GiveToUser("/dev/hidraw0");
  EXPECT_EQ(1, RunProgram({"gpio_blink"}, kUser).status);
  const std::string usbFile = UsbFile(attached), log = LogOfUser();
  EXPECT_THAT(log, HasSubstr("HidD_GetIndexedString failed,Error Code:13\n"));
  EXPECT_THAT(log, HasSubstr("No permission for " + usbFile + "\n"));
  GiveToUser(usbFile);
  EXPECT_EQ(0, RunProgram({"gpio_blink"}, kUser).status);
}

TEST(Permission, TheRuleTagsTheNodesOfHubsOnly) {
  const auto tags = [](const std::string& device) {
    std::filesystem::remove_all("/run/udev");  // remembers tags of earlier devices
    const Outcome test = RunProgram({"udevadm", "test", "--action=add", device});
    EXPECT_EQ(0, test.status) << test.output;
    EXPECT_THAT(test.output, HasSubstr("70-qzhidapi.rules")) << "read";
    EXPECT_THAT(test.output, Not(HasSubstr("70-qzhidapi.rules:"))) << "without complaint";
    return test.output;
  };
  const std::string tag = "TAGS=:uaccess:", none = "TAGS=";
  for (const char* code : {"flash", "rom"}) {
    const Attached attached(HubScenario(R"(, "running": ")" + std::string(code) + '"'));
    const std::string usb = UsbFolder(attached.PortOf("hub"));
    EXPECT_THAT(tags("/sys/class/hidraw/hidraw0"), HasSubstr(tag));
    EXPECT_THAT(tags(usb), HasSubstr(tag));
    EXPECT_THAT(tags("/sys/bus/usb/devices/usb1"), Not(HasSubstr(none)));
  }
  const Attached other(
      R"({"devices": [{"name": "other", "kind": "other", "port": "1", "vid": "0x1234", "pid": "0x5678"}]})");
  EXPECT_THAT(tags("/sys/class/hidraw/hidraw0"), Not(HasSubstr(none)));
}

}  // namespace
}  // namespace qzhid::vm
