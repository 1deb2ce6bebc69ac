// The USB device around a hub: descriptors, control requests, and what faults make of them.
#include "virtualhub/bus/usb_device.h"

#include "hub_bench.h"

namespace virtualhub::test {

namespace {

const std::string kConfiguration =
    "22 00 01 01 00 C0 00 09 04 00 00 01 03 00 00 00 09 21 11 01 00 01 22 1D 00 07 05 81 03 40 00 ";
const std::string kEnableStatus = "40 02 01 00 7C 2E 00 00";
const std::string kSetReport = "21 09 00 02 00 00 40 01", kGetReport = "A1 01 00 01 00 00 00 01";

class UsbDeviceTest : public HubBench {
 protected:
  void Enumerate(const std::string& json, const std::string& name = "hub") {
    Install(json);
    device = std::make_unique<UsbDevice>(*machine, *machine->OnBus(name));
    device->Enumerate();
  }

  /// What comes of a control transfer: "ok" or the bytes of its answer, or an error.
  std::string Transfer(const std::string& setup, Bytes data = {}) {
    const SetupPacket packet(FromHex(setup));
    Bytes answer;
    if (!packet.IsIn()) data.resize(packet.length);
    const Result result = device->Control(packet, data, answer);
    if (result.error == Error::SystemCode) return "code " + std::to_string(result.code);
    if (!result.ok()) return result.error == Error::Stall ? "stall" : "gone";
    return answer.empty() ? "ok" : Hex(answer);
  }
  using Transfers = std::vector<std::pair<std::string, std::string>>;
  void ExpectTransfers(const Transfers& transfers) {
    for (const auto& [setup, outcome] : transfers) EXPECT_EQ(outcome, Transfer(setup)) << setup;
  }
  /// The same with a vendor request in an output report, on either channel.
  std::string Send(const std::string& request, std::uint8_t id = 0) {
    Bytes data = FromHex(request);
    if (id != 0) data.insert(data.begin(), id);
    data.resize(id == 0 ? 320 : 321);
    return Transfer("21 09 " + Hex({{id}}) + " 02 00 00 " + (id == 0 ? "40 01" : "41 01"), data);
  }

  std::unique_ptr<UsbDevice> device;
};

TEST_F(UsbDeviceTest, DescriptorsSayWhatTheDeviceIs) {
  Enumerate(OneHub());
  ExpectTransfers({
      {"80 06 00 01 00 00 40 00", "12 01 00 02 00 00 00 40 7C 2E 18 08 00 01 01 02 00 01"},
      {"80 06 00 01 00 00 08 00", "12 01 00 02 00 00 00 40"},
      {"80 06 00 02 00 00 FF FF", "09 02 " + kConfiguration + "04"},
      {"80 06 00 07 00 00 FF 00", "09 07 " + kConfiguration + "01"},
      {"80 06 00 06 00 00 0A 00", "0A 06 00 02 00 00 00 40 01 00"},
      {"81 06 00 21 00 00 40 00", "09 21 11 01 00 01 22 1D 00"},
      {"81 06 00 22 00 00 00 10",
       "06 00 FF 09 01 A1 01 15 00 26 FF 00 75 08 96 00 01 09 01 81 02 96 40 01 09 01 91 02 C0"},
      {"80 06 00 03 00 00 FF 00", "04 03 09 04"},
      {"80 06 01 03 09 04 FF 00", "10 03 56 00 69 00 72 00 74 00 75 00 61 00 6C 00"},
      {"80 06 02 03 09 04 FF 00", "08 03 68 00 75 00 62 00"},
      {"80 06 03 03 09 04 FF 00", "stall"},  // no serial number
      {"80 06 01 03 07 04 FF 00", "stall"},  // no such language
      {"80 06 01 01 00 00 12 00", "stall"},
      {"80 06 01 02 00 00 12 00", "stall"},
      {"80 06 00 0F 00 00 05 00", "stall"},
      {"81 06 01 22 00 00 40 00", "stall"},
  });
  const std::pair<ReportConfig, std::string> reports[] = {
      {{.channel2 = true}, "85 F1 96 00 01 09 01 81 02 85 F0 96 40 01 09 01 91 02 C0"},
      {{.outputLength = 1, .inputLength = 65}, "96 40 00 09 01 81 02 C0"},
      {{.outputLength = 0xFFFF, .inputLength = 0}, "96 FE FF 09 01 91 02 C0"}};
  for (const auto& [config, items] : reports) {
    EXPECT_EQ("06 00 FF 09 01 A1 01 15 00 26 FF 00 75 08 " + items, Hex(ReportDescriptor(config)));
  }
}

TEST_F(UsbDeviceTest, OutputReportsAreTakenWhereTheFirmwareListens) {
  const struct {
    std::string endpoint, viaControl, viaEndpoint, halt;
  } rows[] = {{"none", "ok", "stall", "stall"},
              {"ignored", "ok", "stall", "ok"},
              {"only", "stall", "ok", "ok"},
              {"both", "ok", "ok", "ok"}};
  for (const auto& row : rows) {
    SCOPED_TRACE(row.endpoint);
    Enumerate(OneHub(R"("channels": [1, 2], "out_endpoint": ")" + row.endpoint + '"'));
    const auto toEndpoint = [&](std::uint8_t id, std::size_t length) {
      Bytes data = FromHex(kEnableStatus);
      if (id != 0) data.insert(data.begin(), id);
      data.resize(length);
      return std::string(device->InterruptOut(data).ok() ? "ok" : "stall");
    };
    EXPECT_EQ(row.viaControl, Send(kEnableStatus));
    EXPECT_EQ(row.viaEndpoint, toEndpoint(0, 320));
    EXPECT_EQ(row.viaEndpoint, toEndpoint(0xF0, 321));
    EXPECT_EQ("stall", toEndpoint(0, 64)) << "not the declared length";
    EXPECT_EQ(row.halt, Transfer("02 03 00 00 01 00 00 00"));
    EXPECT_EQ("stall", toEndpoint(0, 320)) << "halted";
    Transfer("02 01 00 00 01 00 00 00");
    EXPECT_EQ(row.viaEndpoint, toEndpoint(0, 320));
    machine->Unplug("hub");
    EXPECT_EQ(Error::Gone, device->InterruptOut(Bytes(320)).error);
  }
  Enumerate(OneHub(R"("out_endpoint": "both")"));
  const std::string configuration = Transfer("80 06 00 02 00 00 FF FF");
  EXPECT_EQ("09 02 29 00 01 01 00 C0 00 09 04 00 00 02 03", configuration.substr(0, 44));
  EXPECT_EQ("07 05 81 03 40 00 04 07 05 01 03 40 00 04",
            configuration.substr(configuration.size() - 41));
}

TEST_F(UsbDeviceTest, ProductTextTravelsAsUtf16) {
  const std::string smile = "\xF0\x9F\x98\x80", fetch = "80 06 34 03 09 04 FF 00";
  const std::pair<std::string, std::string> texts[] = {
      {"null", "stall"},
      {"\"\"", "02 03"},
      {"\"\xC3\xB6" + smile + "\"", "08 03 F6 00 3D D8 00 DE"}};
  for (const auto& [text, outcome] : texts) {
    Enumerate(OneHub("\"product_text\": " + text));
    EXPECT_EQ(outcome, Transfer(fetch));
  }
  EXPECT_EQ(254u, StringDescriptor(std::string(300, 'a')).size());
  EXPECT_EQ(254u, StringDescriptor(std::string(124, 'a') + smile + "b")[0]);
  EXPECT_EQ(252u, StringDescriptor(std::string(125, 'a') + smile)[0]) << "no half character";
}

TEST_F(UsbDeviceTest, AFaultOnTheProductTextStrikes) {
  Enumerate(OneHub());
  const std::string fetch = "80 06 34 03 09 04 02 00";
  machine->AddFault(
      {.on = Fault::On::Call, .service = Service::GetIndexedString, .nth = 2, .code = 5});
  ExpectTransfers({{fetch, "16 03"}, {fetch, "code 5"}, {fetch, "16 03"}});
}

TEST_F(UsbDeviceTest, RequestsKeepTheDevicesState) {
  Enumerate(OneHub());
  ExpectTransfers({{"80 00 00 00 00 00 02 00", "01 00"},  // self-powered
                   {"81 00 00 00 00 00 02 00", "00 00"}, {"81 00 00 00 01 00 02 00", "stall"},
                   {"82 00 00 00 80 00 02 00", "00 00"}, {"82 00 00 00 82 00 02 00", "stall"},
                   {"02 03 00 00 81 00 00 00", "ok"},    {"82 00 00 00 81 00 02 00", "01 00"},
                   {"02 01 00 00 81 00 00 00", "ok"},    {"82 00 00 00 81 00 01 00", "00"},
                   {"02 03 01 00 81 00 00 00", "stall"}, {"02 03 00 00 00 00 00 00", "stall"},
                   {"00 03 01 00 00 00 00 00", "stall"},  // no remote wakeup
                   {"00 05 07 00 00 00 00 00", "ok"},    {"80 08 00 00 00 00 01 00", "01"},
                   {"81 0A 00 00 00 00 01 00", "00"},    {"01 0B 01 00 00 00 00 00", "stall"},
                   {"02 03 00 00 81 00 00 00", "ok"},    {"01 0B 00 00 00 00 00 00", "ok"},
                   {"82 00 00 00 81 00 02 00", "00 00"}, {"21 0A 00 05 00 00 00 00", "ok"},
                   {"A1 02 00 00 00 00 01 00", "05"},    {"21 0B 00 00 00 00 00 00", "ok"},
                   {"A1 03 00 00 00 00 01 00", "00"},    {"21 0B 02 00 00 00 00 00", "stall"},
                   {"00 09 02 00 00 00 00 00", "stall"}, {"00 07 00 01 00 00 12 00", "stall"},
                   {"82 0C 00 00 81 00 02 00", "stall"}, {"C0 09 00 00 00 00 14 00", "stall"},
                   {"21 0A 00 05 00 00 01 00", "stall"}});
  ExpectTransfers({{"02 03 00 00 81 00 00 00", "ok"},
                   {"00 09 00 00 00 00 00 00", "ok"},
                   {"80 08 00 00 00 00 01 00", "00"},
                   {"81 0A 00 00 00 00 01 00", "stall"},
                   {"82 00 00 00 81 00 02 00", "stall"},
                   {"02 01 00 00 81 00 00 00", "stall"},
                   {kSetReport, "stall"},
                   {kGetReport, "stall"},
                   {"00 09 01 00 00 00 00 00", "ok"},
                   {"82 00 00 00 81 00 02 00", "00 00"},
                   {"A1 03 00 00 00 00 01 00", "01"}});
}

TEST_F(UsbDeviceTest, ReportsCarryVendorRequests) {
  Enumerate(OneHub(R"("channels": [1, 2])"));
  const std::string identity = "2E 7C 00 00 08 18";
  EXPECT_EQ("stall", Send(kStatus)) << "not enabled";
  EXPECT_EQ("ok", Send(kEnableStatus));
  EXPECT_EQ("ok", Send(kStatus));
  EXPECT_EQ(256u * 3 - 1, Transfer("A1 01 00 01 00 00 FF FF").size());
  ASSERT_EQ("ok", Send(kStatus));
  EXPECT_EQ(identity, Transfer("A1 01 00 01 00 00 06 00"));
  EXPECT_EQ("stall", Transfer(kGetReport)) << "an answer is read once";
  ASSERT_EQ("ok", Send(kStatus, 0xF0));
  const std::string answer = Transfer("A1 01 F1 01 00 00 01 01");
  EXPECT_EQ("F1 ", answer.substr(0, 3));
  EXPECT_EQ(identity, answer.substr(64 * 3, identity.size()));
  ExpectTransfers({{"21 09 00 02 00 00 3F 01", "stall"},  // a byte short
                   {"21 09 F0 02 00 00 41 01", "stall"},  // the data says ID 0
                   {"21 09 F1 02 00 00 00 00", "stall"},
                   {"21 09 00 03 00 00 40 01", "stall"},    // a feature report
                   {"A1 01 00 02 00 00 00 01", "stall"}});  // no output report can be read
}

TEST_F(UsbDeviceTest, AnInstanceLivesUntilItLeavesTheBus) {
  Enumerate(OneHub());
  machine->AddFault({.on = Fault::On::Output, .nth = 2, .code = 13});
  machine->AddFault({.on = Fault::On::Output, .nth = 3, .action = Fault::Action::Unplug});
  for (const char* outcome : {"ok", "code 13", "gone", "gone"}) {
    EXPECT_EQ(outcome, Send(kEnableStatus));
  }
  machine->Plug("hub");
  EXPECT_FALSE(device->IsPresent()) << "it is another instance";
  EXPECT_EQ("gone", Transfer("80 00 00 00 00 00 02 00"));
}

TEST_F(UsbDeviceTest, OtherDevicesStallAllReports) {
  Enumerate(R"({"devices": [{"name": "pad", "kind": "other", "port": "1", "vid": "0x1234",
                             "output_report_length": 33, "input_report_length": 65}]})",
            "pad");
  ExpectTransfers({{"80 06 00 01 00 00 0C 00", "12 01 00 02 00 00 00 40 34 12 00 00"},
                   {"80 06 34 03 09 04 FF 00", "stall"},
                   {"21 09 00 02 00 00 20 00", "stall"},
                   {"A1 01 00 01 00 00 40 00", "stall"}});
}

}  // namespace

}  // namespace virtualhub::test
