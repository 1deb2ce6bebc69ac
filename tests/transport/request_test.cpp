// Requests: their bytes on the wire, their answers, their failures and limits.
#include <thread>

#include "support/layer_test.h"

namespace qzhid::test {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using Lines = std::vector<LogLine>;

/// The name of an operation of channel 1 or 2 as log lines have it.
std::string Tag(const std::string& operation, int channel) {
  return "CHidTransfers::" + operation + (channel == 1 ? "" : "2");
}

class RequestTest : public LayerTest {
 protected:
  RequestTest() { OpenWithLengths(321, 257); }

  /// Opens a hub that accepts commands, has both channels and declares reports of these lengths.
  void OpenWithLengths(std::uint16_t output, std::uint16_t input) {
    virtualhub::Scenario scenario = RecordedScenario();
    scenario.devices[0].hub->reports = {true, true, output, input};
    OpenHub(scenario);
    requests.Yv_VdCmdEnable(1);  // fails where reports are very short
    ClearRecords();
  }

  std::size_t InputCount() const {
    return machine->recorder().Of(virtualhub::Record::Kind::Input).size();
  }

  /// Sends a request with value 0x1122 and index 0x3344 over channel 1 or 2.
  std::uint32_t Send(int channel, std::uint8_t type, std::uint8_t request, std::uint8_t* data,
                     std::uint32_t length, std::uint32_t timeoutMs = 5000) {
    const auto send = channel == 1 ? &ITransfers::Yv_SendVDCmd : &ITransfers::Yv_SendVDCmd2;
    return (static_cast<ITransfers*>(transfers)->*send)(type, request, 0x1122, 0x3344, data, length,
                                                        timeoutMs);
  }
  /// Checks that the call before has sent that header on the channel, with the first `length` bytes
  /// of the buffer as data (also of an IN request), and that an IN request that succeeded read one
  /// report.
  void ExpectSent(const char* header, std::uint32_t result, std::size_t length = 0,
                  std::uint32_t expected = 0) {
    SCOPED_TRACE(header + std::string(" on channel ") + std::to_string(sentOn));
    EXPECT_EQ(expected, result);
    EXPECT_THAT(Outputs(), ElementsAre(Report(sentOn, Hex(header), CountUp(1, length))));
    const bool isRead = result == 0 && header[0] == 'C';
    EXPECT_EQ(isRead ? 1u : 0u, InputCount());
    EXPECT_EQ(result == 0, Failures().empty());
    ClearRecords();
    std::iota(buffer.begin(), buffer.end(), std::uint8_t{1});
  }

  int sentOn = 1;
  Bytes buffer = CountUp(1, 256);
};

TEST_F(RequestTest, EachRequestIsOneOutputReportOfExactlyTheseBytes) {
  constexpr PacketHeader kOut{0x40, 0xC6, 0x10, 0x20, 0x30, 0x40, 2, 0x50, 0xA0, 4, 0x81},
      kIn{0xC0, 0x09, 0x10, 0x20, 0x30, 0x40, 3, 0x00, 0xA0, 4, 0x81};
  CRequestCMD& c = requests;
  for (; sentOn <= 2; ++sentOn) {
    OpenWithLengths(321, 257);
    std::uint8_t* const b = buffer.data();
    if (sentOn == 2) property->EnableChannel2();
    ExpectSent("40 02 03 00 7C 2E 00 00", c.Yv_VdCmdEnable(3));
    ExpectSent("C0 09 00 00 00 00 14 00", c.Yv_Status(b), 20);
    ExpectSent("40 C8 34 12 CD AB 05 00", c.Yv_WriteFlash2(0xABCD1234, b, 5), 5, kStalled);
    ExpectSent("40 C8 00 00 01 00 80 00", c.Yv_WriteFlash2(0x10000, b, 128), 128, kStalled);
    ExpectSent("C0 D8 FE 7F 01 00 03 00", c.Yv_ReadFlash2(0x17FFE, b, 3), 3);
    ExpectSent("C0 D8 34 12 CD AB 00 01", c.Yv_ReadFlash2(0xABCD1234, b, 256), 256, kStalled);
    ExpectSent("40 E8 00 00 01 00 00 00", c.Yv_EraseFlash2(0x10000), 0, kStalled);
    ExpectSent("40 D9 01 00 00 00 00 00", c.Yv_ISPValidation(), 0, kStalled);
    ExpectSent("40 08 02 A5 00 00 00 00", c.Yv_SetDLSlaveAddr(2, 0xA5));
    ExpectSent("40 F6 22 11 44 33 03 00", c.Yv_SendVDCmd(0x40, 0xF6, 0x1122, 0x3344, b, 3, 0), 3);
    ExpectSent("00 CF 05 00 00 00 02 00", c.Yv_SendVDCmd(0x00, 0xCF, 5, 0, b, 2, 0), 2);
    ExpectSent("C0 04 00 06 00 00 01 00", c.Yv_SendVDCmd(0xC0, 0x04, 0x600, 0, b, 1, 0), 1);
    ExpectSent("40 C6 10 20 30 40 02 50 A0 04 81", c.Yv_CtlPipeOut(kOut, b), 2, kStalled);
    ExpectSent("C0 09 10 20 30 40 03 00 A0 04 81", c.Yv_CtlPipeIn(kIn, b), 3);
    ExpectSent("40 00 34 12 00 00 00 00", c.Yv_FWReset(0x1234));
    ExpectSent("40 E9 01 01 00 00 00 00", c.Yv_ResetCode(), 0, kStalled);  // as after any reset
    EXPECT_EQ(kRefused, c.Yv_CtlPipeNoDataOut({0x40, 0xF6}));
    EXPECT_THAT(Outputs(), IsEmpty());
    c.Yv_SetDLSlaveAddr(2, 0xA5);
    EXPECT_EQ(LinesOf("CRequestCMD::Yv_SetDLSlaveAddr",
                      {{0, "YvHub_SetDLSlaveAddr -> mode=2, bySlaveAddr=165\n"}}),
              Logged("CRequestCMD::Yv_SetDLSlaveAddr"));
  }
}

TEST_F(RequestTest, OutStagesOver128BytesAreCutToOneByteOnChannel1Only) {
  Bytes data = CountUp(1, 5000);
  ExpectSent("40 DC 22 11 44 33 80 00", Send(1, 0x40, 0xDC, data.data(), 128), 128, kStalled);
  ExpectSent("40 DC 22 11 44 33 81 00", Send(1, 0x40, 0xDC, data.data(), 129), 1, kStalled);
  ExpectSent("40 DC 22 11 44 33 88 13", Send(1, 0x40, 0xDC, data.data(), 5000), 1, kStalled);
  sentOn = 2;
  ExpectSent("40 DC 22 11 44 33 00 01", Send(2, 0x40, 0xDC, data.data(), 256), 256, kStalled);
}

TEST_F(RequestTest, RawRequestsCarryTheCallersBlockOnChannel1Only) {
  Bytes block = CountUp(9, 1024), ones(256, 0xFF);
  const std::tuple<std::uint8_t, std::uint32_t, int, std::size_t> rows[] = {
      // request, length, how much of the block is header (-1: refused) and data
      {0xF2, 0, 0, 0},    {0xF2, 7, 7, 0},      {0xF2, 64, 64, 0},
      {0xF2, 65, -1, 0},  {0xF2, 0x340, 64, 0},  // the length is cut to 8 bits
      {0xF5, 191, -1, 0}, {0xF5, 192, 64, 128}, {0xF5, 300, 64, 128}};
  for (const auto& [request, length, header, rest] : rows) {
    Send(1, 0xC0, 0xFF, ones.data(), 256);  // what stays in the buffers must not travel again
    ClearRecords();
    EXPECT_EQ(header < 0 ? kRefused : kStalled, Send(1, 0x40, request, block.data(), length));
    std::vector<Bytes> reports;
    if (header >= 0)
      reports = {Report(1, CountUp(9, static_cast<std::size_t>(header)), CountUp(73, rest))};
    EXPECT_EQ(reports, Outputs());
  }
  EXPECT_EQ(kStalled, Send(1, 0x40, 0xF2, nullptr, 0)) << "nothing needs no pointer";
  Send(2, 0x40, 0xF2, block.data(), 3);
  EXPECT_EQ(Report(2, Hex("40 F2 22 11 44 33 03 00"), {9, 10, 11}), Outputs().back());
}

struct MockProperty final : IPropertyEx {
  std::uint32_t Init() override { return 1; }
  std::uint32_t UnInit() override { return 1; }
  MOCK_METHOD(std::uint32_t, Yv_SendVDCmd,
              (std::uint8_t, std::uint8_t, std::uint16_t, std::uint16_t, std::uint8_t*,
               std::uint32_t, std::uint32_t),
              (override));
};

TEST_F(RequestTest, LongFlashWritesAreSplitAndStopAtTheFirstFailure) {
  std::uint8_t image[10000] = {};
  MockProperty mock;
  requests.SetProperty(&mock);
  const ::testing::InSequence order;
  EXPECT_CALL(mock, Yv_SendVDCmd(0x40, 0xC8, 0xF000, 0x1233, image, 4096, 5000));
  EXPECT_CALL(mock, Yv_SendVDCmd(0x40, 0xC8, 0x0000, 0x1234, image + 4096, 4096, 5000));
  EXPECT_CALL(mock, Yv_SendVDCmd(0x40, 0xC8, 0x1000, 0x1234, image + 8192, 1808, 5000));
  EXPECT_EQ(0u, requests.Yv_WriteFlash2(0x1233F000, image, 10000));
  EXPECT_EQ(0u, requests.Yv_WriteFlash2(0, image, 0));
  EXPECT_CALL(mock, Yv_SendVDCmd(0xC0, 0xD8, 0, 0, image, 10000, 5000));
  EXPECT_EQ(0u, requests.Yv_ReadFlash2(0, image, 10000)) << "reads are not split";
  EXPECT_CALL(mock, Yv_SendVDCmd).WillOnce(::testing::Return(0)).WillOnce(::testing::Return(77));
  EXPECT_EQ(77u, requests.Yv_WriteFlash2(0, image, 10000));
}

TEST_F(RequestTest, AnswersComeFromByte1OrByte64AndOnlyAsManyBytesAsAskedFor) {
  for (const int answered : {1, 2}) {
    OpenWithLengths(1000, answered == 1 ? 257 : 1000);
    const auto flash = machine->hub("hub").bank(0).contents();
    if (answered == 2) property->EnableChannel2();
    for (const std::uint32_t length : {0u, 1u, 20u, 193u, 256u}) {
      Bytes answer(300, 0x5A), expected = answer;
      ASSERT_EQ(0u, requests.Yv_ReadFlash2(0x100, answer.data(), length));
      std::copy_n(flash.begin() + 0x100, length, expected.begin());
      EXPECT_EQ(expected, answer) << length << " bytes on channel " << answered;
    }
  }
}

TEST_F(RequestTest, ReadsNameTheirReportOnChannel2AndKeepTheLastNameOnChannel1) {
  std::vector<std::uint8_t> ids;
  machine->SetExchangeHook([&](const virtualhub::Exchange& exchange) {
    if (exchange.output) return;
    ids.push_back(exchange.report[0]);
    // The answer before this one was cleared.
    EXPECT_EQ(Bytes(256, 0), Bytes(exchange.report.begin() + 1, exchange.report.end()));
  });
  std::array<std::uint8_t, kStatusBlockSize> block{};
  for (const int on : {1, 1, 2, 2, 1}) Send(on, 0xC0, 0x09, block.data(), block.size());
  EXPECT_THAT(ids, ElementsAre(0x00, 0x00, 0xF1, 0xF1, 0xF1));
}

TEST_F(RequestTest, AFailedReportReturnsItsCodeAndLogsTheRequest) {
  constexpr auto kOutput = Fault::On::Output, kInput = Fault::On::Input;
  const std::tuple<Fault::On, std::uint8_t, std::uint32_t, std::string, std::string> rows[] = {
      // which report fails, request type, code, operation, message
      {kOutput, 0x40, 5, "HidDataOut", "Set Report Fail,ErrorCode:5\n"},
      {kOutput, 0x40, 0, "HidDataOut", "Set Report Fail,ErrorCode:-1\n"},
      {kOutput, 0xC0, 31, "HidDataIn", "Set Report Fail,ErrorCode:31\n"},
      {kInput, 0xC0, 503, "HidDataIn", "Get Report Fail,ErrorCode:503\n"}};
  for (const int channel : {1, 2}) {
    Bytes data(21, 0x5A);
    for (const auto& [on, type, code, operation, text] : rows) {
      machine->AddFault(ReportFault(on, code));
      log.Clear();
      EXPECT_EQ(code == 0 ? kRefused : code, Send(channel, type, 0x09, data.data(), 20, 0x1234));
      EXPECT_EQ(Bytes(21, 0x5A), data);
      EXPECT_EQ((LogLine{3, Tag(operation, channel), text}), Failures().back());
    }
    Lines expected{
        {3, Tag("Hid_GetReport", channel), "Get Report Fail,Last Error Code is 0x000001f7\n"},
        Failures().back()};
    for (const std::string line :
         {"RequestType: 0xc0, Request: 0x09", "wValue: 0x1122, wIndex: 0x3344", "dwLength: 0x14",
          "ulTimeout: 0x1234", "return 503"}) {
      expected.push_back({0, Tag("Yv_SendVDCmd", channel), "YvHub_SendVDCmd -> " + line + "\n"});
    }
    EXPECT_EQ(expected, log.Lines());
    machine->AddFault(ReportFault(kInput, 0));
    EXPECT_EQ(0u, Send(channel, 0xC0, 0x09, data.data(), 20));
    EXPECT_EQ(Bytes(20), Bytes(data.begin(), data.end() - 1)) << "an empty report";
    EXPECT_EQ(0x5A, data[20]);
  }
}

TEST_F(RequestTest, RefusalLossAndClosingReturnTheSystemsCode) {
  EXPECT_EQ(kStalled, Send(1, 0x40, 0x77, nullptr, 0));
  machine->Unplug("hub");
  EXPECT_EQ(kGone, requests.Yv_ISPValidation());
  EXPECT_EQ(1u, Count({0, "CHidTransfers::Yv_SendVDCmd", "YvHub_SendVDCmd -> ulTimeout: 0xc350\n"}))
      << "ten times the usual";
  property->Yv_CloseDevice();
  log.Clear();
  EXPECT_EQ(kInvalidHandle, requests.Yv_CtlPipeOut({0x40, 0xC6}, nullptr));
  EXPECT_EQ(1u, log.Lines().size()) << "packets have no trace";
}

TEST_F(RequestTest, RequestsWithoutAPropertyObjectAreRefusedWithALineEach) {
  requests.SetProperty(nullptr);
  std::uint8_t data[kStatusBlockSize] = {};
  for (const std::uint32_t result :
       {requests.QZ_OpenDevice(1), requests.Yv_CloseDevice(), requests.Yv_Status(data),
        requests.Yv_WriteFlash2(0, data, 0), requests.Yv_FWReset(0),
        requests.Yv_SetDLSlaveAddr(0, 0), requests.Yv_CtlPipeNoDataOut({}),
        requests.Yv_CtlPipeOut({}, data), requests.Yv_CtlPipeIn({}, data)}) {
    EXPECT_EQ(kRefused, result);
  }
  Lines expected;
  for (const std::string name :
       {"QZ_OpenDevice", "Yv_CloseDevice", "Yv_Status", "Yv_WriteFlash2", "Yv_FWReset",
        "Yv_SetDLSlaveAddr", "Yv_CtlPipeNoDataOut", "Yv_CtlPipeOut", "Yv_CtlPipeIn"}) {
    expected.push_back({3, "CRequestCMD::" + name, "Property Object is null!!\n"});
  }
  EXPECT_EQ(expected, Logged());
  EXPECT_EQ(kRefused, CHidProperty(nullptr).Yv_SendVDCmd(0x40, 2, 0, 0, data, 0, 0));
}

TEST_F(RequestTest, AHeldDeviceIsTriedEvery100MsUntilTheTimeOutIsExceeded) {
  Bytes data(20);
  const auto crossing = [&] {
    using Row = std::tuple<int, std::uint8_t, std::uint32_t, std::size_t>;
    const Row rows[] = {
        // channel, request type, time-out, tries
        Row{1, 0x40, 0, 1}, Row{1, 0xC0, 99, 1}, Row{2, 0x40, 100, 2}, Row{2, 0xC0, 250, 3}};
    for (const auto& [channel, type, timeoutMs, tries] : rows) {
      const std::string tag = Tag(type == 0x40 ? "HidDataOut" : "HidDataIn", channel);
      ClearRecords();
      EXPECT_EQ(kRefused, Send(channel, type, 0x09, data.data(), 20, timeoutMs));
      Lines expected(tries, {3, tag, "Can't Obtain Lock!\n"});
      expected.push_back({3, tag, "WqHIDDataIn Timeout Fail! \n"});
      EXPECT_EQ(expected, Failures());
      EXPECT_EQ(std::vector<std::uint32_t>(tries, 100), Pauses());
    }
    ClearRecords();
    for (const std::uint32_t result :
         {transfers->SendPacketOut({}, nullptr), transfers->SendPacketIn({}, nullptr),
          transfers->SendPacketOut2({}, nullptr), transfers->SendPacketIn2({}, nullptr)}) {
      EXPECT_EQ(kRefused, result);
    }
    EXPECT_EQ(4u * 51, Pauses().size()) << "packets wait five seconds";
  };
  machine->SetExchangeHook([&](const virtualhub::Exchange&) { std::thread(crossing).join(); });
  EXPECT_EQ(0u, requests.Yv_VdCmdEnable(1));
  machine->SetExchangeHook(nullptr);
  EXPECT_EQ(2u, machine->exchanges()) << "that of the fixture and the one that holds the device";
  EXPECT_EQ(0u, Send(1, 0xC0, 0x09, data.data(), 20, 0));
}

/// What is logged of a stage that is too long; `kind` is "Set" or "Get".
Lines TooLong(const std::string& kind, int channel, std::size_t length, std::size_t limit) {
  return {{3, Tag("Hid_" + kind + "Report", channel),
           "Fail,pBuffer Len greater than Max Length,byLen:" + std::to_string(length) +
               " Max Length:" + std::to_string(limit) + "\n"},
          {3, Tag("HidDataIn", channel), kind + " Report Fail,ErrorCode:-1\n"}};
}

TEST_F(RequestTest, ADataStageFillsTheDeclaredOutputReportAndNoMore) {
  const std::tuple<std::uint16_t, std::uint32_t, std::uint32_t> rows[] = {
      // the length that is declared, and the data that fits on channel 1 and 2
      {64, 0, 0},      {65, 0, 1},      {66, 1, 2},      {193, 128, 129},
      {320, 255, 256}, {321, 256, 256}, {1000, 256, 256}};
  for (const auto& [declared, first, second] : rows) {
    OpenWithLengths(declared, 1000);
    for (const int channel : {1, 2}) {
      SCOPED_TRACE(std::to_string(declared) + " on channel " + std::to_string(channel));
      const std::uint32_t limit = channel == 1 ? first : second;
      Bytes data = CountUp(1, limit + 1);
      const Bytes header{0xC0, 0xFE, 0x22, 0x11, 0x44, 0x33, LowByte(limit), HighByte(limit)};
      Bytes report = Report(channel, header, CountUp(1, limit), 1000);
      report.resize(declared);
      ClearRecords();
      EXPECT_EQ(kStalled, Send(channel, 0xC0, 0xFE, data.data(), limit));
      EXPECT_THAT(Outputs(), ::testing::ElementsAre(report));

      ClearRecords();
      EXPECT_EQ(kRefused, Send(channel, 0xC0, 0xFE, data.data(), limit + 1));
      EXPECT_EQ(TooLong("Set", channel, limit + 1, limit), Failures());
      if (limit < 128) {  // longer OUT stages are cut
        EXPECT_EQ(kRefused, Send(channel, 0x40, 0xFE, data.data(), limit + 1));
      }
      EXPECT_THAT(Outputs(), IsEmpty());
    }
  }
}

// The check comes before the read and after the request went out; its message prints the room of
// channel 1's output report.
TEST_F(RequestTest, AnAnswerMustFitTheDeclaredInputReportWithoutItsId) {
  const std::tuple<std::uint16_t, std::uint16_t, std::size_t> rows[] = {
      {321, 21, 256}, {1000, 100, 935}, {322, 5, 257}, {85, 20, 20}};
  for (const auto& [output, input, printed] : rows) {
    OpenWithLengths(output, input);
    for (const int channel : {1, 2}) {
      Bytes fitting(256), data(257, 0x5A);
      EXPECT_EQ(0u, Send(channel, 0xC0, 0x09, fitting.data(), input - 1u));
      ClearRecords();
      EXPECT_EQ(kRefused, Send(channel, 0xC0, 0x09, data.data(), input));
      EXPECT_EQ(1u, Outputs().size());
      EXPECT_EQ(0u, InputCount());
      EXPECT_EQ(Bytes(257, 0x5A), data);
      EXPECT_EQ(TooLong("Get", channel, input, printed), Failures());
    }
  }
}

TEST_F(RequestTest, DataWithoutAPointerIsRefusedAndNotSent) {
  constexpr PacketHeader kPacket{0x40, 0xC6, 0, 0, 0, 0, 3};
  for (const std::uint32_t result :
       {Send(1, 0x40, 0xDC, nullptr, 1), Send(1, 0xC0, 0xDC, nullptr, 1),
        Send(2, 0x40, 0xDC, nullptr, 1), Send(2, 0xC0, 0xDC, nullptr, 1),
        Send(1, 0x40, 0xF2, nullptr, 7), Send(1, 0x40, 0xF5, nullptr, 192),
        transfers->SendPacketOut(kPacket, nullptr), transfers->SendPacketIn(kPacket, nullptr),
        transfers->SendPacketOut2(kPacket, nullptr), transfers->SendPacketIn2(kPacket, nullptr)}) {
    EXPECT_EQ(kRefused, result);
  }
  EXPECT_THAT(Outputs(), IsEmpty());
  EXPECT_EQ(0u, Send(1, 0xC0, 0x09, nullptr, 0));  // nothing to send and nothing to copy
}

}  // namespace
}  // namespace qzhid::test
