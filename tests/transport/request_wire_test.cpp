// Requests by name: their bytes on the wire, and their answers.
#include <tuple>

#include "transport/transport_test.h"

namespace qzhid::test {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

class RequestWireTest : public TransportTest {
 protected:
  /// Checks that the call before has sent that header on the channel, with the first `length` bytes
  /// of the buffer as data (also of an IN request), and that an IN request that succeeded read one
  /// report.
  void ExpectSent(const char* header, std::uint32_t result, std::size_t length = 0,
                  std::uint32_t expected = 0) {
    SCOPED_TRACE(header + std::string(" on channel ") + std::to_string(channel));
    EXPECT_EQ(expected, result);
    EXPECT_THAT(Outputs(), ElementsAre(Report(channel, Hex(header), CountUp(1, length))));
    EXPECT_EQ(result == 0 && header[0] == 'C' ? 1u : 0u, InputCount());
    EXPECT_EQ(result == 0, Failures().empty());
    ClearRecords();
    std::iota(buffer.begin(), buffer.end(), std::uint8_t{1});
  }

  int channel = 1;
  Bytes buffer = CountUp(1, 256);
};

TEST_F(RequestWireTest, EachRequestIsOneOutputReportOfExactlyTheseBytes) {
  constexpr PacketHeader kOut{0x40, 0xC6, 0x10, 0x20, 0x30, 0x40, 2, 0x50, 0xA0, 4, 0x81},
      kIn{0xC0, 0x09, 0x10, 0x20, 0x30, 0x40, 3, 0x00, 0xA0, 4, 0x81};
  CRequestCMD& c = requests;
  for (; channel <= 2; ++channel) {
    OpenWithLengths(321, 257);
    std::uint8_t* const b = buffer.data();
    if (channel == 2) property->EnableChannel2();
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
  }
}

TEST_F(RequestWireTest, OutStagesOver128BytesAreCutToOneByteOnChannel1Only) {
  Bytes data = CountUp(1, 5000);
  ExpectSent("40 DC 22 11 44 33 80 00", Send(1, 0x40, 0xDC, data.data(), 128), 128, kStalled);
  ExpectSent("40 DC 22 11 44 33 81 00", Send(1, 0x40, 0xDC, data.data(), 129), 1, kStalled);
  ExpectSent("40 DC 22 11 44 33 88 13", Send(1, 0x40, 0xDC, data.data(), 5000), 1, kStalled);
  channel = 2;
  ExpectSent("40 DC 22 11 44 33 00 01", Send(2, 0x40, 0xDC, data.data(), 256), 256, kStalled);
}

TEST_F(RequestWireTest, RawRequestsCarryTheCallersBlockOnChannel1Only) {
  Bytes block = CountUp(9, 1024), ones(256, 0xFF);
  const Bytes block64 = CountUp(9, 64), rest = CountUp(73, 128);
  const std::tuple<std::uint8_t, std::uint32_t, std::vector<Bytes>> rows[] = {
      // request, length, reports; none when it is refused
      {0xF2, 0, {Report(1, {})}},
      {0xF2, 7, {Report(1, CountUp(9, 7))}},
      {0xF2, 64, {Report(1, block64)}},
      {0xF2, 65, {}},
      {0xF2, 0x340, {Report(1, block64)}},  // the length is cut to 8 bits
      {0xF5, 191, {}},
      {0xF5, 192, {Report(1, block64, rest)}},
      {0xF5, 300, {Report(1, block64, rest)}}};
  for (const auto& [request, length, reports] : rows) {
    Send(1, 0xC0, 0xFF, ones.data(), 256);  // what stays in the buffers must not travel again
    ClearRecords();
    EXPECT_EQ(reports.empty() ? kRefused : kStalled, Send(1, 0x40, request, block.data(), length));
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

TEST_F(RequestWireTest, LongFlashWritesAreSplitAndStopAtTheFirstFailure) {
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

TEST_F(RequestWireTest, AnswersComeFromByte1OrByte64AndOnlyAsManyBytesAsAskedFor) {
  for (const int answered : {1, 2}) {
    OpenWithLengths(1000, answered == 1 ? 257 : 1000);
    ASSERT_EQ(0u, requests.Yv_VdCmdEnable(1));
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

TEST_F(RequestWireTest, ReadsNameTheirReportOnChannel2AndKeepTheLastNameOnChannel1) {
  ASSERT_EQ(0u, requests.Yv_VdCmdEnable(1));
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

}  // namespace
}  // namespace qzhid::test
