// Requests that fail: results and log lines, what happens while another thread holds the device,
// and how much data fits the reports that a device declares.
#include <functional>
#include <thread>

#include "transport/transport_test.h"

namespace qzhid::test {
namespace {

using ::testing::IsEmpty;

class RequestFailureTest : public TransportTest {
 protected:
  RequestFailureTest() { EXPECT_EQ(0u, requests.Yv_VdCmdEnable(1)); }
};

TEST_F(RequestFailureTest, AFailedReportReturnsItsCodeAndLogsTheRequest) {
  constexpr auto kOutput = Fault::On::Output, kInput = Fault::On::Input;
  const std::tuple<Fault::On, std::uint8_t, std::uint32_t, std::string, std::string> rows[] = {
      // which report fails, request type, code, operation, message
      {kOutput, 0x40, 5, "HidDataOut", "Set Report Fail,ErrorCode:5\n"},
      {kOutput, 0x40, 0, "HidDataOut", "Set Report Fail,ErrorCode:-1\n"},
      {kOutput, 0xC0, 31, "HidDataIn", "Set Report Fail,ErrorCode:31\n"},
      {kInput, 0xC0, 503, "HidDataIn", "Get Report Fail,ErrorCode:503\n"}};
  for (const int channel : {1, 2}) {
    Bytes data(21, 0x5A), cleared(20, 0);
    for (const auto& [on, type, code, operation, text] : rows) {
      machine->AddFault(ReportFault(on, code));
      log.Clear();
      EXPECT_EQ(code == 0 ? kRefused : code, Send(channel, type, 0x09, data.data(), 20, 0x1234));
      EXPECT_EQ(Bytes(21, 0x5A), data);
      EXPECT_EQ((LogLine{3, Tag(operation, channel), text}), Failures().back());
    }
    std::vector<LogLine> expected{
        {3, Tag("Hid_GetReport", channel), "Get Report Fail,Last Error Code is 0x000001f7\n"},
        Failures().back()};
    for (const std::string line :
         {"RequestType: 0xc0, Request: 0x09", "wValue: 0x1122, wIndex: 0x3344", "dwLength: 0x14",
          "ulTimeout: 0x1234", "return 503"}) {
      expected.push_back({0, Tag("Yv_SendVDCmd", channel), "YvHub_SendVDCmd -> " + line + "\n"});
    }
    EXPECT_EQ(expected, log.Lines());
    machine->AddFault(ReportFault(kInput, 0));
    EXPECT_EQ(0u, Send(channel, 0xC0, 0x09, data.data(), 20)) << "an empty report";
    cleared.push_back(0x5A);
    EXPECT_EQ(cleared, data);
  }
}

TEST_F(RequestFailureTest, RefusalLossAndClosingReturnTheSystemsCode) {
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

TEST_F(RequestFailureTest, RequestsWithoutAPropertyObjectAreRefusedWithOneLine) {
  requests.SetProperty(nullptr);
  std::uint8_t data[kStatusBlockSize] = {};
  const std::pair<std::string, std::function<std::uint32_t()>> calls[] = {
      {"QZ_OpenDevice", [&] { return requests.QZ_OpenDevice(1); }},
      {"Yv_CloseDevice", [&] { return requests.Yv_CloseDevice(); }},
      {"Yv_Status", [&] { return requests.Yv_Status(data); }},
      {"Yv_WriteFlash2", [&] { return requests.Yv_WriteFlash2(0, data, 0); }},
      {"Yv_FWReset", [&] { return requests.Yv_FWReset(0); }},
      {"Yv_SetDLSlaveAddr", [&] { return requests.Yv_SetDLSlaveAddr(0, 0); }},
      {"Yv_CtlPipeNoDataOut", [&] { return requests.Yv_CtlPipeNoDataOut({}); }},
      {"Yv_CtlPipeOut", [&] { return requests.Yv_CtlPipeOut({}, data); }},
      {"Yv_CtlPipeIn", [&] { return requests.Yv_CtlPipeIn({}, data); }}};
  for (const auto& [name, call] : calls) {
    log.Clear();
    EXPECT_EQ(kRefused, call());
    EXPECT_EQ(LinesOf("CRequestCMD::" + name, {{3, "Property Object is null!!\n"}}), Logged());
  }
  EXPECT_EQ(kRefused, CHidProperty(nullptr).Yv_SendVDCmd(0x40, 2, 0, 0, data, 0, 0));
}

TEST_F(RequestFailureTest, AHeldDeviceIsTriedEvery100MsUntilTheTimeOutIsExceeded) {
  const std::pair<std::uint32_t, std::size_t> rows[] = {{0, 1}, {99, 1}, {100, 2}, {250, 3}};
  Bytes data(20);
  const auto crossing = [&] {
    for (const auto& [channel, type] : {std::pair{1, 0x40}, {1, 0xC0}, {2, 0x40}, {2, 0xC0}}) {
      for (const auto& [timeoutMs, tries] : rows) {
        const std::string tag = Tag(type == 0x40 ? "HidDataOut" : "HidDataIn", channel);
        ClearRecords();
        EXPECT_EQ(kRefused,
                  Send(channel, static_cast<std::uint8_t>(type), 0x09, data.data(), 20, timeoutMs));
        std::vector<LogLine> expected(tries, {3, tag, "Can't Obtain Lock!\n"});
        expected.push_back({3, tag, "WqHIDDataIn Timeout Fail! \n"});
        EXPECT_EQ(expected, Failures());
        EXPECT_EQ(std::vector<std::uint32_t>(tries, 100), Pauses());
      }
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

using ReportLimitsTest = TransportTest;

/// What is logged of a stage that is too long; `kind` is "Set" or "Get".
std::vector<LogLine> TooLong(const std::string& kind, int channel, std::size_t length,
                             std::size_t limit) {
  return {{3, Tag("Hid_" + kind + "Report", channel),
           "Fail,pBuffer Len greater than Max Length,byLen:" + std::to_string(length) +
               " Max Length:" + std::to_string(limit) + "\n"},
          {3, Tag("HidDataIn", channel), kind + " Report Fail,ErrorCode:-1\n"}};
}

TEST_F(ReportLimitsTest, ADataStageFillsTheDeclaredOutputReportAndNoMore) {
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
TEST_F(ReportLimitsTest, AnAnswerMustFitTheDeclaredInputReportWithoutItsId) {
  const std::tuple<std::uint16_t, std::uint16_t, std::size_t> rows[] = {
      {321, 21, 256}, {1000, 100, 935}, {322, 5, 257}, {85, 20, 20}};
  for (const auto& [output, input, printed] : rows) {
    OpenWithLengths(output, input);
    ASSERT_EQ(0u, requests.Yv_VdCmdEnable(1));
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

TEST_F(ReportLimitsTest, DataWithoutAPointerIsRefusedAndNotSent) {
  constexpr PacketHeader kPacket{0x40, 0xC6, 0, 0, 0, 0, 3};
  for (const std::uint32_t result :
       {Send(1, 0x40, 0xDC, nullptr, 1), Send(1, 0xC0, 0xDC, nullptr, 1),
        Send(2, 0x40, 0xDC, nullptr, 1), Send(2, 0xC0, 0xDC, nullptr, 1),
        Send(1, 0x40, 0xF2, nullptr, 7), Send(1, 0x40, 0xF5, nullptr, 192),
        transfers->SendPacketOut(kPacket, nullptr), transfers->SendPacketIn(kPacket, nullptr),
        transfers->SendPacketOut2(kPacket, nullptr), transfers->SendPacketIn2(kPacket, nullptr)}) {
    EXPECT_EQ(kRefused, result);
  }
  EXPECT_EQ(0u, machine->exchanges());
  EXPECT_EQ(0u, requests.Yv_VdCmdEnable(1));
  EXPECT_EQ(0u, Send(1, 0xC0, 0x09, nullptr, 0));  // nothing to send and nothing to copy
}

}  // namespace
}  // namespace qzhid::test
