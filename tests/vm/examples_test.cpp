// The examples on attached hubs, and hubs that the stock USB/IP client attaches.
#include <gmock/gmock.h>

#include "vm/host.h"

namespace qzhid::vm {
namespace {

using ::testing::HasSubstr;
using ::testing::Pair;

TEST(Examples, TheEepromIsReadBackAndALineIsDriven) {
  const Attached attached(HubScenario(R"(, "i2c": [{"kind": "eeprom", "address": "0x50"}])"));
  const std::tuple<const char*, int, const char*> rows[] = {
      {"i2c_eeprom", 0, "compare   ok\n"},
      {"i2c_eeprom 0x52", 1, "write     failed\n"},
      {"gpio_blink", 0, "line 5 driven 1, reads 1\n"},
      {"gpio_blink 24", 1, "status 0x00000001"}};
  for (const auto& [command, status, line] : rows) {
    EXPECT_THAT(RunProgram(command), Pair(status, HasSubstr(line))) << command;
  }
}

TEST(UsbIp, TheStockClientAttachesAServedHub) {
  WriteFile("/tmp/served.json", HubScenario());
  Program server("qzhub serve --scenario /tmp/served.json");
  std::string list;
  ASSERT_TRUE(Eventually([&] {
    list = RunProgram("usbip list -r 127.0.0.1").second;
    return list.find("2e7c:0818") != std::string::npos;
  })) << list
      << server.Output();
  EXPECT_THAT(list, HasSubstr("1-1:"));
  const auto attach = RunProgram("usbip attach -r 127.0.0.1 -b 1-1");
  EXPECT_EQ(0, attach.first) << attach.second;
  ASSERT_TRUE(Eventually([] { return List().size() == 1; }));
  EXPECT_EQ(0, RunProgram("gpio_blink").first);
  EXPECT_THAT(RunProgram("usbip port").second, HasSubstr("Port 00"));
  EXPECT_EQ(0, RunProgram("usbip detach -p 0").first);
  EXPECT_TRUE(Eventually([] { return HidrawDevices().empty(); }));
  EXPECT_EQ(0, server.Stop()) << server.Output();
}

}  // namespace
}  // namespace qzhid::vm
