// The USB device around a hub: descriptors, control requests, and what faults make of them.
#include "virtualhub/bus/usb_device.h"

#include <cstring>

#include "hub_bench.h"
#include "virtualhub/base/utf16.h"

namespace virtualhub::test {

const std::string kConfiguration =
    "01 01 00 C0 00 09 04 00 00 01 03 00 00 00 09 21 11 01 00 01 22 1D 00 07 05 81 03 40 00 ";

class UsbDeviceTest : public HubBench {
 protected:
  void Enumerate(const std::string& json) {
    Install(json);
    device = std::make_unique<UsbDevice>(*machine, *machine->OnBus("hub"));
    device->Enumerate();
  }

  static std::string Outcome(const Result& result, const Bytes& answer = {}) {
    if (result.error == Error::SystemCode) return "code " + std::to_string(result.code);
    if (!result.ok()) return result.error == Error::Stall ? "stall" : "gone";
    return answer.empty() ? "ok" : HexText(answer);
  }
  /// What comes of a control transfer: "ok" or the bytes of its answer, or an error.
  std::string Transfer(const std::string& setup, Bytes data = {}) {
    const SetupPacket packet(Hex(setup));
    if (!packet.IsIn()) data.resize(packet.length);
    Bytes answer;
    const Result result = device->Control(packet, data, answer);
    return Outcome(result, answer);
  }
  std::string Transfer(std::initializer_list<std::string> setups) {
    return InTurn(setups, [this](const std::string& setup) { return Transfer(setup); });
  }
  /// A vendor request in an output report; only one with an ID has it on the wire.
  std::string Send(const std::string& request, const std::string& id = "") {
    Bytes report = Hex(id + request);
    report.resize(id.empty() ? 320 : 321);
    return Transfer(id.empty() ? "21 09 00 02 00 00 40 01" : "21 09 F0 02 00 00 41 01", report);
  }

  std::unique_ptr<UsbDevice> device;
};

TEST_F(UsbDeviceTest, DescriptorsSayWhatTheDeviceIs) {
  Enumerate(OneHub());
  const std::string report = "06 00 FF 09 01 A1 01 15 00 26 FF 00 75 08 ";
  const std::pair<const char*, std::string> rows[] = {
      {"80 06 00 01 00 00 40 00", "12 01 00 02 00 00 00 40 7C 2E 18 08 00 01 01 02 00 01"},
      {"80 06 00 01 00 00 08 00", "12 01 00 02 00 00 00 40"},
      {"80 06 00 02 00 00 FF FF", "09 02 22 00 " + kConfiguration + "04"},
      {"80 06 00 07 00 00 FF 00", "09 07 22 00 " + kConfiguration + "01"},
      {"80 06 00 06 00 00 0A 00", "0A 06 00 02 00 00 00 40 01 00"},
      {"81 06 00 21 00 00 40 00", "09 21 11 01 00 01 22 1D 00"},
      {"81 06 00 22 00 00 00 10", report + "96 00 01 09 01 81 02 96 40 01 09 01 91 02 C0"},
      {"80 06 00 03 00 00 FF 00", "04 03 09 04"},
      {"80 06 01 03 09 04 FF 00", "10 03 56 00 69 00 72 00 74 00 75 00 61 00 6C 00"},
      {"80 06 02 03 09 04 FF 00", "08 03 68 00 75 00 62 00"}};
  for (const auto& [setup, descriptor] : rows) EXPECT_EQ(descriptor, Transfer(setup)) << setup;
  // No serial number, no such language, no second device, configuration or report, no BOS.
  EXPECT_EQ(
      "stall, stall, stall, stall, stall, stall",
      Transfer({"80 06 03 03 09 04 FF 00", "80 06 01 03 07 04 FF 00", "80 06 01 01 00 00 12 00",
                "80 06 01 02 00 00 12 00", "81 06 01 22 00 00 40 00", "80 06 00 0F 00 00 05 00"}));
  EXPECT_EQ(report + "85 F1 96 00 01 09 01 81 02 85 F0 96 40 01 09 01 91 02 C0",
            HexText(ReportDescriptor({.channel2 = true})));
  EXPECT_EQ(report + "96 40 00 09 01 81 02 C0",
            HexText(ReportDescriptor({.outputLength = 1, .inputLength = 65})));
  EXPECT_EQ(report + "96 FE FF 09 01 91 02 C0",
            HexText(ReportDescriptor({.outputLength = 0xFFFF, .inputLength = 0})));
}

TEST_F(UsbDeviceTest, OutputReportsAreTakenWhereTheFirmwareListens) {
  const std::tuple<std::string, std::string, std::string, std::string> rows[] = {
      // by SET_REPORT; at the endpoint, on either channel and too short; when it is halted
      {"none", "ok", "stall, stall, stall", "stall, stall, stall, stall"},
      {"ignored", "ok", "stall, stall, stall", "ok, stall, ok, stall"},
      {"only", "stall", "ok, ok, stall", "ok, stall, ok, ok"},
      {"both", "ok", "ok, ok, stall", "ok, stall, ok, ok"}};
  const std::string first = kEnable1, second = "F0 " + kEnable1, tooShort = "0";
  const std::string halt = "02 03 00 00 01 00 00 00", unhalt = "02 01 00 00 01 00 00 00";
  for (const auto& [endpoint, viaControl, viaEndpoint, whenHalted] : rows) {
    SCOPED_TRACE(endpoint);
    Enumerate(OneHub(R"("channels": [1, 2], "out_endpoint": ")" + endpoint + '"'));
    const auto step = [&](const std::string& bytes) {
      Bytes report = Hex(bytes);
      if (bytes == halt || bytes == unhalt) return Transfer(bytes);
      report.resize(bytes == first ? 320 : bytes == second ? 321 : 64);
      return Outcome(device->InterruptOut(report));
    };
    EXPECT_EQ(viaControl, Send(kEnable1));
    EXPECT_EQ(viaEndpoint, InTurn({first, second, tooShort}, step));
    EXPECT_EQ(whenHalted, InTurn({halt, first, unhalt, first}, step));
    machine->Unplug("hub");
    EXPECT_EQ("gone", step(first));
  }
  Enumerate(OneHub(R"("out_endpoint": "both")"));
  EXPECT_EQ(
      "09 02 29 00 01 01 00 C0 00 09 04 00 00 02 03 00 00 00 09 21 11 01 00 01 22 1D 00 "
      "07 05 81 03 40 00 04 07 05 01 03 40 00 04",
      Transfer("80 06 00 02 00 00 FF FF"));
}

TEST_F(UsbDeviceTest, ProductTextTravelsAsUtf16AndFaultsStrikeIt) {
  const std::string smile = "\xF0\x9F\x98\x80", fetch = "80 06 34 03 09 04 FF 00";
  const std::pair<std::string, std::string> texts[] = {
      {"null", "stall"},
      {"\"\"", "02 03"},
      {"\"\xC3\xB6" + smile + "\"", "08 03 F6 00 3D D8 00 DE"}};
  for (const auto& [text, outcome] : texts) {
    Enumerate(OneHub("\"product_text\": " + text));
    machine->AddFault(
        {.on = Fault::On::Call, .service = Service::GetIndexedString, .nth = 2, .code = 5});
    EXPECT_EQ(outcome + ", code 5, " + outcome, Transfer({fetch, fetch, fetch}));
  }
  EXPECT_EQ(254u, StringDescriptor(std::string(300, 'a')).size());
  EXPECT_EQ(254u, StringDescriptor(std::string(124, 'a') + smile + "b")[0]);
  EXPECT_EQ(252u, StringDescriptor(std::string(125, 'a') + smile)[0]) << "no half character";
}

TEST(Utf16Test, EachByteThatBelongsToNoCharacterIsReplaced) {
  EXPECT_EQ(u"\x7F\x80\u07FF\u0800\uD7FF\uE000\uFFFF\xD800\xDC00\xDBFF\xDFFF",
            ToUtf16("\x7F\xC2\x80\xDF\xBF\xE0\xA0\x80\xED\x9F\xBF\xEE\x80\x80\xEF\xBF\xBF"
                    "\xF0\x90\x80\x80\xF4\x8F\xBF\xBF"));
  // Not whole; longer than needed; surrogates; above the last character.
  for (const char* bad :
       {"\x80", "\xC3", "\xE2\x82", "\xFF", "\xF8\x88\x80\x80", "\xC1\xBF", "\xE0\x9F\xBF",
        "\xF0\x8F\xBF\xBF", "\xED\xA0\x80", "\xED\xBF\xBF", "\xF4\x90\x80\x80"}) {
    EXPECT_EQ(std::u16string(std::strlen(bad), u'\uFFFD') + u"\u00F6",
              ToUtf16(std::string(bad) + "\xC3\xB6"));
  }
}

TEST_F(UsbDeviceTest, RequestsKeepTheDevicesState) {
  Enumerate(OneHub());
  const std::string halt = "02 03 00 00 81 00 00 00", unhalt = "02 01 00 00 81 00 00 00";
  const std::string isHalted = "82 00 00 00 81 00 02 00", protocol = "A1 03 00 00 00 00 01 00";
  const std::string configuration = "80 08 00 00 00 00 01 00";
  const std::string configure = "00 09 01 00 00 00 00 00", reset = "00 09 00 00 00 00 00 00";
  // The status of the device (self-powered), the interface and endpoint 0; the interface's setting.
  EXPECT_EQ("01 00, 00 00, 00 00, 00",
            Transfer({"80 00 00 00 00 00 02 00", "81 00 00 00 00 00 02 00",
                      "82 00 00 00 80 00 02 00", "81 0A 00 00 00 00 01 00"}));
  // The host or a choice of the interface ends a halt.
  EXPECT_EQ("ok, 01 00, ok, 00 00", Transfer({halt, isHalted, unhalt, isHalted}));
  EXPECT_EQ("ok, ok, 00 00", Transfer({halt, "01 0B 00 00 00 00 00 00", isHalted}));
  // The idle rate, the protocol, an address.
  EXPECT_EQ("ok, 05, ok, 00, ok",
            Transfer({"21 0A 00 05 00 00 00 00", "A1 02 00 00 00 00 01 00",
                      "21 0B 00 00 00 00 00 00", protocol, "00 05 07 00 00 00 00 00"}));
  // Without a configuration there are no endpoints and no reports; the next one is a new start.
  EXPECT_EQ(
      "01, ok, ok, 00, stall, stall, stall, stall, stall",
      Transfer({configuration, halt, reset, configuration, isHalted, unhalt,
                "21 09 00 02 00 00 40 01", "A1 01 00 01 00 00 00 01", "81 0A 00 00 00 00 01 00"}));
  EXPECT_EQ("ok, 00 00, 01", Transfer({configure, isHalted, protocol}));
  for (const char* unknown :
       {"81 00 00 00 01 00 02 00", "82 00 00 00 82 00 02 00", "02 03 01 00 81 00 00 00",
        "02 03 00 00 00 00 00 00", "00 03 01 00 00 00 00 00", "01 0B 01 00 00 00 00 00",
        "21 0B 02 00 00 00 00 00", "00 09 02 00 00 00 00 00", "00 07 00 01 00 00 12 00",
        "82 0C 00 00 81 00 02 00", "C0 09 00 00 00 00 14 00", "21 0A 00 05 00 00 01 00"}) {
    EXPECT_EQ("stall", Transfer(unknown)) << unknown;
  }
}

TEST_F(UsbDeviceTest, ReportsCarryVendorRequests) {
  Enumerate(OneHub(R"("channels": [1, 2])"));
  const std::string identity = "2E 7C 00 00 08 18", getShort = "A1 01 00 01 00 00 06 00";
  const auto send = [this](const std::string& request) { return Send(request); };
  EXPECT_EQ("stall, ok, ok", InTurn({kStatus, kEnable1, kStatus}, send));
  EXPECT_EQ(256u * 3 - 1, Transfer("A1 01 00 01 00 00 FF FF").size());
  EXPECT_EQ("ok", Send(kStatus));
  EXPECT_EQ(identity + ", stall", Transfer({getShort, getShort})) << "an answer is read once";
  EXPECT_EQ("ok", Send(kStatus, "F0 "));
  const std::string answer = Transfer("A1 01 F1 01 00 00 01 01");
  EXPECT_EQ("F1 " + identity, answer.substr(0, 3) + answer.substr(64 * 3, identity.size()));
  EXPECT_EQ("ok", Send(kStatus));
  EXPECT_EQ("stall", Transfer("21 09 F0 02 00 00 41 01", Hex("0 " + kEnable1))) << "another ID";
  // A byte short, no such ID, a feature report; an output report is read.
  EXPECT_EQ("stall, stall, stall, stall",
            Transfer({"21 09 00 02 00 00 3F 01", "21 09 F1 02 00 00 00 00",
                      "21 09 00 03 00 00 40 01", "A1 01 00 02 00 00 00 01"}));
}

TEST_F(UsbDeviceTest, OtherDevicesStallAllReports) {
  Enumerate(OneHub(R"("kind": "other", "vid": "0x1234")"));
  EXPECT_EQ("12 01 00 02 00 00 00 40 34 12 00 00, stall, stall, stall",
            Transfer({"80 06 00 01 00 00 0C 00", "80 06 34 03 09 04 FF 00",
                      "21 09 00 02 00 00 40 01", "A1 01 00 01 00 00 00 01"}));
}

}  // namespace virtualhub::test
