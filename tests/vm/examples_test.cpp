// The examples on attached hubs, and hubs that the stock USB/IP client attaches.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "vm/host.h"

namespace qzhid::vm {
namespace {

using ::testing::HasSubstr;

TEST(Examples, EepromAndGpioRoundTrips) {
  const Attached attached(HubScenario(R"(, "i2c": [{"kind": "eeprom", "address": "0x50"}])"));
  const struct {
    std::vector<std::string> command;
    int status;
    const char* line;
  } rows[] = {{{"i2c_eeprom"}, 0, "compare   ok\n"},
              {{"i2c_eeprom", "0x52"}, 1, "write     failed\n"},
              {{"gpio_blink"}, 0, "line 5 driven 1, reads 1\n"},
              {{"gpio_blink", "24"}, 1, "status 0x00000001"}};
  for (const auto& row : rows) {
    const Outcome outcome = RunProgram(row.command);
    EXPECT_EQ(row.status, outcome.status);
    EXPECT_THAT(outcome.output, HasSubstr(row.line));
  }
}

TEST(UsbIp, TheStockClientAttachesAServedHub) {
  WriteFile("/tmp/served.json", HubScenario());
  Program server({"qzhub", "serve", "--scenario", "/tmp/served.json"});
  Outcome list;
  const auto isListed = [&] {
    list = RunProgram({"usbip", "list", "-r", "127.0.0.1"});
    return list.status == 0 && list.output.find("2e7c:0818") != std::string::npos;
  };
  ASSERT_TRUE(Eventually(isListed)) << list.output << server.Output();
  const std::string busid = "1-1";
  EXPECT_THAT(list.output, HasSubstr(busid + ":"));
  const Outcome attach = RunProgram({"usbip", "attach", "-r", "127.0.0.1", "-b", busid});
  EXPECT_EQ(0, attach.status) << attach.output;
  ASSERT_TRUE(Eventually([] { return List().size() == 1; }));
  EXPECT_EQ(0, RunProgram({"gpio_blink"}).status);
  EXPECT_THAT(RunProgram({"usbip", "port"}).output, HasSubstr("Port 00"));
  EXPECT_EQ(0, RunProgram({"usbip", "detach", "-p", "0"}).status);
  EXPECT_TRUE(Eventually([] { return HidrawDevices().empty(); }));
  EXPECT_EQ(0, server.Stop()) << server.Output();
}

}  // namespace
}  // namespace qzhid::vm
