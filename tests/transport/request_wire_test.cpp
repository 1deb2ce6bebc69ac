// Requests by name: their bytes on the wire, and their answers.
#include "transport/transport_test.h"

namespace qzhid::test {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using Cmd = CRequestCMD;
using Data = std::uint8_t*;

using RequestWireTest = TransportTest;

constexpr PacketHeader kPacketOut{0x40, 0xC6, 0x10, 0x20, 0x30, 0x40, 2, 0x50, 0xA0, 4, 0x81};
constexpr PacketHeader kPacketIn{0xC0, 0x09, 0x10, 0x20, 0x30, 0x40, 3, 0x00, 0xA0, 4, 0x81};

// The data area holds the first `length` bytes of a buffer that counts up from 1, also of an IN
// request; one that succeeds reads one input report.
struct WireRow {
  std::uint32_t (*send)(Cmd&, Data);
  const char* header;
  std::size_t length;
  std::uint32_t result;
  std::size_t reads;
};
const WireRow kWireRows[] = {
    {[](Cmd& c, Data) { return c.Yv_VdCmdEnable(3); }, "40 02 03 00 7C 2E 00 00", 0, 0, 0},
    {[](Cmd& c, Data b) { return c.Yv_Status(b); }, "C0 09 00 00 00 00 14 00", 20, 0, 1},
    {[](Cmd& c, Data b) { return c.Yv_WriteFlash2(0xABCD1234, b, 5); }, "40 C8 34 12 CD AB 05 00",
     5, kStalled, 0},
    {[](Cmd& c, Data b) { return c.Yv_WriteFlash2(0x10000, b, 128); }, "40 C8 00 00 01 00 80 00",
     128, kStalled, 0},
    {[](Cmd& c, Data b) { return c.Yv_ReadFlash2(0x17FFE, b, 3); }, "C0 D8 FE 7F 01 00 03 00", 3, 0,
     1},
    {[](Cmd& c, Data b) { return c.Yv_ReadFlash2(1, b, 0); }, "C0 D8 01 00 00 00 00 00", 0, 0, 1},
    {[](Cmd& c, Data b) { return c.Yv_ReadFlash2(0xABCD1234, b, 256); }, "C0 D8 34 12 CD AB 00 01",
     256, kStalled, 0},
    {[](Cmd& c, Data) { return c.Yv_EraseFlash2(0x10000); }, "40 E8 00 00 01 00 00 00", 0, kStalled,
     0},
    {[](Cmd& c, Data) { return c.Yv_ISPValidation(); }, "40 D9 01 00 00 00 00 00", 0, kStalled, 0},
    {[](Cmd& c, Data) { return c.Yv_SetDLSlaveAddr(2, 0xA5); }, "40 08 02 A5 00 00 00 00", 0, 0, 0},
    {[](Cmd& c, Data b) { return c.Yv_SendVDCmd(0x40, 0xF6, 0x1122, 0x3344, b, 3, 0); },
     "40 F6 22 11 44 33 03 00", 3, 0, 0},
    {[](Cmd& c, Data b) { return c.Yv_SendVDCmd(0x00, 0xCF, 5, 0, b, 2, 0); },
     "00 CF 05 00 00 00 02 00", 2, 0, 0},
    {[](Cmd& c, Data b) { return c.Yv_SendVDCmd(0xC0, 0x04, 0x600, 0, b, 1, 0); },
     "C0 04 00 06 00 00 01 00", 1, 0, 1},
    {[](Cmd& c, Data b) { return c.Yv_CtlPipeOut(kPacketOut, b); },
     "40 C6 10 20 30 40 02 50 A0 04 81", 2, kStalled, 0},
    {[](Cmd& c, Data b) { return c.Yv_CtlPipeIn(kPacketIn, b); },
     "C0 09 10 20 30 40 03 00 A0 04 81", 3, 0, 1},
    {[](Cmd& c, Data) { return c.Yv_FWReset(0x1234); }, "40 00 34 12 00 00 00 00", 0, 0, 0},
    // The hub that was reset stalls.
    {[](Cmd& c, Data) { return c.Yv_ResetCode(); }, "40 E9 01 01 00 00 00 00", 0, kStalled, 0},
};

TEST_F(RequestWireTest, EachRequestIsOneOutputReportOfExactlyTheseBytes) {
  for (const int channel : {1, 2}) {
    OpenWithLengths(321, 257);
    if (channel == 2) property->EnableChannel2();
    for (const WireRow& row : kWireRows) {
      SCOPED_TRACE(row.header + std::string(" on channel ") + std::to_string(channel));
      ClearRecords();
      Bytes buffer = CountUp(1, 256);
      EXPECT_EQ(row.result, row.send(requests, buffer.data()));
      EXPECT_THAT(Outputs(), ElementsAre(Report(channel, Hex(row.header), CountUp(1, row.length))));
      EXPECT_EQ(row.reads, InputCount());
      EXPECT_EQ(row.result == 0,
                log.Of(Tag("Yv_SendVDCmd", channel)).empty() && log.From(1).empty());
    }
    ClearRecords();
    EXPECT_EQ(kRefused, requests.Yv_CtlPipeNoDataOut({0x40, 0xF6}));
    EXPECT_THAT(Outputs(), IsEmpty());
  }
}

TEST_F(RequestWireTest, ResetAndSlaveAddressAreTracedBeforeTheyAreSent) {
  world->Unplug("hub");
  EXPECT_EQ(1u, requests.Yv_SetDLSlaveAddr(2, 0xA5));  // any failure is 1
  EXPECT_EQ((LogLine{0, "CRequestCMD::Yv_SetDLSlaveAddr",
                     "YvHub_SetDLSlaveAddr -> mode=2, bySlaveAddr=165\n"}),
            log.lines.at(0));
  log.Clear();
  requests.Yv_FWReset(0x12);
  EXPECT_EQ((LogLine{0, "CRequestCMD::Yv_FWReset", "YvHub_FWReset(USHORT uOption=0x12)\n "}),
            log.lines.at(0));
}

TEST_F(RequestWireTest, LongOutStagesAreCutToOneByteOnChannel1Only) {
  const struct {
    std::uint32_t length;
    const char* lengthField;
    std::size_t sent;
  } rows[] = {{0, "00 00", 0},   {1, "01 00", 1},   {128, "80 00", 128}, {129, "81 00", 1},
              {200, "C8 00", 1}, {256, "00 01", 1}, {5000, "88 13", 1}};
  for (const auto& row : rows) {
    Bytes data = CountUp(7, 5000);
    const Bytes header = Hex(std::string("40 DC 22 11 44 33 ") + row.lengthField);
    ClearRecords();
    Send(1, 0x40, 0xDC, data.data(), row.length);
    Send(2, 0x40, 0xDC, data.data(), std::min(row.length, 256u));
    ASSERT_EQ(2u, Outputs().size());
    EXPECT_EQ(Channel1(header, CountUp(7, row.sent)), Outputs()[0]) << row.length;
    if (row.length <= 256) {
      EXPECT_EQ(Channel2(header, CountUp(7, row.length)), Outputs()[1]) << row.length;
    }
  }
}

TEST_F(RequestWireTest, RawRequestsCarryTheCallersBlockOnChannel1) {
  const std::optional<Bytes> refused;
  const struct {
    std::uint8_t request;
    std::uint32_t length;
    std::optional<Bytes> report;
  } rows[] = {
      {0xF2, 0, Channel1({})},
      {0xF2, 7, Channel1(CountUp(9, 7))},
      {0xF2, 64, Channel1(CountUp(9, 64))},
      {0xF2, 65, refused},
      {0xF2, 255, refused},
      {0xF2, 0x340, Channel1(CountUp(9, 64))},  // the length is cut to 8 bits
      {0xF5, 191, refused},
      {0xF5, 192, Channel1(CountUp(9, 64), CountUp(73, 128))},
      {0xF5, 300, Channel1(CountUp(9, 64), CountUp(73, 128))},
  };
  Bytes block = CountUp(9, 1024), ones(256, 0xFF);
  for (const auto& row : rows) {
    SCOPED_TRACE(row.length);
    Send(1, 0xC0, 0xFF, ones.data(), 256);  // what stays in the buffers must not travel again
    ClearRecords();
    const std::uint32_t result = Send(1, 0x40, row.request, block.data(), row.length);
    EXPECT_EQ(row.report ? std::vector<Bytes>{*row.report} : std::vector<Bytes>{}, Outputs());
    EXPECT_EQ(!row.report, result == kRefused);
    EXPECT_EQ(result == 0 ? 0u : 5u, log.Of("CHidTransfers::Yv_SendVDCmd").size());
  }
  ClearRecords();
  Send(2, 0x40, 0xF2, block.data(), 3);
  Send(2, 0x40, 0xF5, block.data(), 3);
  EXPECT_THAT(Outputs(), ElementsAre(Channel2(Hex("40 F2 22 11 44 33 03 00"), {9, 10, 11}),
                                     Channel2(Hex("40 F5 22 11 44 33 03 00"), {9, 10, 11})));
}

TEST_F(RequestWireTest, AnswersComeFromByte1OrByte64AndOnlyAsManyAsAskedFor) {
  for (const std::uint16_t reportLength : std::vector<std::uint16_t>{321, 1000}) {
    OpenWithLengths(reportLength, reportLength == 321 ? 257 : 1000);
    ASSERT_EQ(0u, requests.Yv_VdCmdEnable(1));
    const auto flash = world->hub("hub").bank(0).contents();
    for (const int channel : {1, 2}) {
      if (channel == 2) property->EnableChannel2();
      for (const std::uint32_t length : {0u, 1u, 20u, 193u, 256u}) {
        Bytes buffer(300, 0x5A), expected = buffer;
        ASSERT_EQ(0u, requests.Yv_ReadFlash2(0x100, buffer.data(), length));
        std::copy_n(flash.begin() + 0x100, length, expected.begin());
        if (reportLength == 321 && channel == 2 && length == 256) {
          // The report ends behind 193 bytes; what follows it is channel 2's output report.
          const Bytes behind = Channel2(Hex("C0 D8 00 01 00 00 00 01"));
          std::copy_n(behind.begin(), 63, expected.begin() + 193);
        }
        EXPECT_EQ(expected, buffer) << length << " bytes on channel " << channel;
      }
    }
  }
}

TEST_F(RequestWireTest, ReadsNameTheirReportOnChannel2AndKeepTheLastOneOnChannel1) {
  ASSERT_EQ(0u, requests.Yv_VdCmdEnable(1));
  std::vector<std::uint8_t> ids;
  world->SetExchangeHook([&](const virtualhub::Exchange& exchange) {
    if (exchange.output) return;
    ids.push_back(exchange.report[0]);
    // The answer before this one has been wiped out.
    EXPECT_EQ(Bytes(256, 0), Bytes(exchange.report.begin() + 1, exchange.report.end()));
  });
  std::array<std::uint8_t, kStatusBlockSize> block{};
  for (const int channel : {1, 1, 2, 2, 1}) Send(channel, 0xC0, 0x09, block.data(), block.size());
  EXPECT_THAT(ids, ElementsAre(0x00, 0x00, 0xF1, 0xF1, 0xF1));
}

}  // namespace
}  // namespace qzhid::test
