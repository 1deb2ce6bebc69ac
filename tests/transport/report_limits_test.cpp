// How much data fits the reports that a device declares.
#include "transport/transport_test.h"

namespace qzhid::test {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

using ReportLimitsTest = TransportTest;

LogLine TooLong(const std::string& operation, int channel, std::size_t length, std::size_t limit) {
  return {3, Tag(operation, channel),
          "Fail,pBuffer Len greater than Max Length,byLen:" + std::to_string(length) +
              " Max Length:" + std::to_string(limit) + "\n"};
}

TEST_F(ReportLimitsTest, DataStageFillsTheDeclaredOutputReportAndNoMore) {
  const struct {
    std::uint16_t declared;
    std::uint32_t limits[2];
  } rows[] = {{8, {0, 0}},       {64, {0, 0}},      {65, {0, 1}},      {66, {1, 2}},
              {120, {55, 56}},   {193, {128, 129}}, {320, {255, 256}}, {321, {256, 256}},
              {322, {256, 256}}, {1000, {256, 256}}};
  for (const auto& row : rows) {
    OpenWithLengths(row.declared, 1000);
    for (const int channel : {1, 2}) {
      SCOPED_TRACE(std::to_string(row.declared) + " on channel " + std::to_string(channel));
      const std::uint32_t limit = row.limits[channel - 1];
      Bytes data = CountUp(1, limit + 1), header = Hex("C0 FE 22 11 44 33");
      header.insert(header.end(), {LowByte(limit), HighByte(limit)});
      Bytes report = Report(channel, header, CountUp(1, limit), 1000);
      report.resize(row.declared);
      ClearRecords();
      EXPECT_EQ(kStalled, Send(channel, 0xC0, 0xFE, data.data(), limit));
      EXPECT_THAT(Outputs(), ElementsAre(report));

      ClearRecords();
      EXPECT_EQ(kRefused, Send(channel, 0xC0, 0xFE, data.data(), limit + 1));
      EXPECT_THAT(log.From(3), ElementsAre(TooLong("Hid_SetReport", channel, limit + 1, limit),
                                           LogLine{3, Tag("HidDataIn", channel),
                                                   "Set Report Fail,ErrorCode:-1\n"}));
      if (limit < 128) {  // OUT stages are checked alike
        log.Clear();
        EXPECT_EQ(kRefused, Send(channel, 0x40, 0xFE, data.data(), limit + 1));
        EXPECT_THAT(log.From(3), ElementsAre(TooLong("Hid_SetReport", channel, limit + 1, limit),
                                             LogLine{3, Tag("HidDataOut", channel),
                                                     "Set Report Fail,ErrorCode:-1\n"}));
      }
      EXPECT_THAT(Outputs(), IsEmpty());
    }
  }
}

// The check comes before the read and after the request went out; its message prints the room of
// channel 1's output report.
TEST_F(ReportLimitsTest, AnswerMustFitTheDeclaredInputReportLessItsId) {
  const struct {
    std::uint16_t output, input;
    std::size_t printed;
  } rows[] = {{321, 0, 256},    {321, 1, 256}, {321, 21, 256}, {321, 256, 256},
              {1000, 100, 935}, {322, 5, 257}, {85, 20, 20}};
  for (const auto& row : rows) {
    OpenWithLengths(row.output, row.input);
    ASSERT_EQ(0u, requests.Yv_VdCmdEnable(1));
    for (const int channel : {1, 2}) {
      SCOPED_TRACE(std::to_string(row.input) + " on channel " + std::to_string(channel));
      Bytes data(257, 0x5A);
      if (row.input > 0) {
        EXPECT_EQ(0u, Send(channel, 0xC0, 0x09, data.data(), row.input - 1u));
      }
      ClearRecords();
      data.assign(257, 0x5A);
      EXPECT_EQ(kRefused, Send(channel, 0xC0, 0x09, data.data(), row.input));
      EXPECT_EQ(1u, Outputs().size());
      EXPECT_EQ(0u, InputCount());
      EXPECT_EQ(Bytes(257, 0x5A), data);
      EXPECT_THAT(
          log.From(3),
          ElementsAre(TooLong("Hid_GetReport", channel, row.input, row.printed),
                      LogLine{3, Tag("HidDataIn", channel), "Get Report Fail,ErrorCode:-1\n"}));
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
  EXPECT_EQ(0u, world->exchanges());
  EXPECT_EQ(0u, requests.Yv_VdCmdEnable(1));
  EXPECT_EQ(0u, Send(1, 0xC0, 0x09, nullptr, 0));  // nothing to send and nothing to copy
}

}  // namespace
}  // namespace qzhid::test
