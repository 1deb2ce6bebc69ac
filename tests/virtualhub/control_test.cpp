// Devices that users plug, unplug and cut the power of while a machine runs.
#include <fstream>

#include "hub_bench.h"
#include "support/temp_file.h"

namespace virtualhub::test {

class ControlTest : public HubBench {
 protected:
  std::string Json() const {
    return R"({"time": "virtual", "control": ")" + file + R"(", "state_folder": ")" +
           folder.path.string() +
           R"(", "hubs": [{"port": "9"}], "devices": [
        {"name": "a", "port": "3.1"}, {"name": "b", "port": "3.1", "plugged": false},
        {"name": "c", "port": "4"}]})";
  }
  /// What a machine writes to standard error after the lines were added, without the file's name,
  /// and then the ports of a, b and c in turn.
  std::string After(const std::string& lines, Machine& asked) {
    if (!lines.empty()) std::ofstream(file, std::ios::app | std::ios::binary) << lines;
    ::testing::internal::CaptureStderr();
    const std::string ports = InTurn({"a", "b", "c"}, [&](const std::string& name) {
      const auto device = asked.OnBus(name);
      std::string text = device ? "" : "-";
      for (const std::uint32_t port : device ? device->port.ports : std::vector<std::uint32_t>()) {
        text += (text.empty() ? "" : ".") + std::to_string(port);
      }
      return text;
    });
    const std::string errors = ::testing::internal::GetCapturedStderr();
    const std::string mark = "virtualhub: " + file + ":";
    return (errors.starts_with(mark) ? errors.substr(mark.size()) : errors) + ports;
  }

  qzhid::test::ScratchFolder folder;
  std::string file = folder.path.string() + "/lines";
};

TEST_F(ControlTest, EachLineIsCarriedOutOnceItIsComplete) {
  Install(Json());
  const std::pair<const char*, const char*> steps[] = {
      {"", "3.1, -, 4"},
      {"unplug a", "3.1, -, 4"},
      {"\nplug b\n", "-, 3.1, 4"},
      {"plug b 3.1\n", "-, 3.1, 4"},
      {"plug a\n", "4: the device \"b\" is in the way\n-, 3.1, 4"},
      {"plug a 3.1.2\n", "5: the device \"b\" is in the way\n-, 3.1, 4"},
      {"plug a 9\n", "6: a hub is at this port\n-, 3.1, 4"},
      {"plug a 3\n", "7: a hub is at this port\n-, 3.1, 4"},
      {"plug b 5\n", "8: \"b\" is plugged in already\n-, 3.1, 4"},
      {"unplug b\r\nplug a\t2-3.1\n\n", "3.1, -, 4"},
      {"plug b\n", "3.1, 3.1, 4"},
      {"power-loss\n", "13: the name of a device is missing\n3.1, 3.1, 4"},
      {"power-loss d\n", "14: there is no device \"d\"\n3.1, 3.1, 4"},
      {"power-loss c 1s\n", "15: \"1s\" is not a number of milliseconds\n3.1, 3.1, 4"},
      {"unplug c 4\n", "16: \"4\" is too much\n3.1, 3.1, 4"},
      {"plug c 0\n", "17: \"0\" is not a port\n3.1, 3.1, 4"},
      {"Unplug c\n", "18: \"Unplug\" is not one of plug, unplug, power-loss\n3.1, 3.1, 4"},
      {"unplug c\nunplug c\n", "3.1, 3.1, -"},
      {"power-loss c\n", "21: \"c\" is not plugged in\n3.1, 3.1, -"}};
  for (const auto& [lines, outcome] : steps) EXPECT_EQ(outcome, After(lines, *machine)) << lines;
}

TEST_F(ControlTest, PowerReturnsInTimeUnlessTheDeviceIsUnplugged) {
  Install(Json());
  EXPECT_EQ("-, -, -", After("power-loss a\npower-loss c 40\nplug c\n", *machine));
  const std::pair<std::uint32_t, const char*> steps[] = {
      {39, "-, -, -"}, {1, "-, -, 4"}, {459, "-, -, 4"}, {1, "3.1, -, 4"}};
  for (const auto& [afterMs, ports] : steps) {
    machine->SleepMs(afterMs);
    EXPECT_EQ(ports, After("", *machine)) << afterMs;
  }
  EXPECT_EQ("-, -, 4", After("power-loss a 5\nunplug a\n", *machine));
  machine->SleepMs(1000);
  EXPECT_EQ("-, -, 4", After("", *machine));
}

TEST_F(ControlTest, AnExchangeUnderWayIsCutOffAndAHubKeepsItsCodeOnlyWithItsPower) {
  Install(OneHub(R"("running": "rom"}], "control": ")" + file + R"(", "hubs": [{"port": "9")"));
  const std::pair<const char*, const char*> cuts[] = {{"unplug hub\n", "rom 00 01"},
                                                      {"power-loss hub 0\n", "flash 01 02"}};
  for (const auto& [line, state] : cuts) {
    machine->SetExchangeHook([&, text = line, added = false](const Exchange&) mutable {
      if (!std::exchange(added, true)) std::ofstream(file, std::ios::app) << text;
    });
    EXPECT_EQ(Error::CutOff, Send(Hex(kEnable1))) << line;
    machine->SetExchangeHook(nullptr);
    machine->Control("plug hub");
    EXPECT_EQ(state, State()) << line;
  }
}

TEST_F(ControlTest, EachProcessHasTheSameDevicesAndTheFlashThatAnotherOneWrote) {
  Install(Json());
  EXPECT_EQ("-, 3.1, 7", After("unplug a\nplug b\nunplug c\nplug c 7\n", *machine));
  Machine other(ReadScenario(Json()));
  EXPECT_EQ("-, 3.1, 7", After("", other));
  for (const std::string& request : {kToRom, kEnable3, kErase}) {
    const HidNode node = other.OnBus("c")->hid;
    EXPECT_TRUE(other.SetOutputReport(node, qzhid::test::Report(1, Hex(request))).ok());
    other.SleepMs(1000);
  }
  EXPECT_EQ("-, 3.1, -", After("unplug c\n", other));
  EXPECT_EQ(Code::Flash, machine->hub("c").code());
  EXPECT_EQ("-, 3.1, 7", After("plug c\n", *machine));
  EXPECT_EQ(Code::Rom, machine->hub("c").code());
  EXPECT_EQ("-, 3.1, -", After("power-loss c 90000\n", other));
  Machine later(ReadScenario(Json()));
  EXPECT_EQ("-, 3.1, 7", After("", later));
}

TEST_F(ControlTest, AFileThatBeginsAnewIsReadFromItsBeginningAndOneThatCannotBeReadIsGivenUp) {
  Install(Json());
  EXPECT_EQ("-, -, -", After("unplug a\nunplug c\nunplug b\n", *machine));
  qzhid::test::WriteText(file, "");
  EXPECT_EQ("3.1, -, -", After("plug a\n", *machine));
  std::filesystem::remove(file);
  EXPECT_EQ("3.1, -, -", After("", *machine)) << "there is no file";
  std::filesystem::create_directory(file);
  EXPECT_EQ("virtualhub: the control file " + file + " cannot be read: Is a directory\n3.1, -, -",
            After("", *machine));
  std::filesystem::remove(file);
  EXPECT_EQ("3.1, -, -", After("unplug a\n", *machine));
}

}  // namespace virtualhub::test
