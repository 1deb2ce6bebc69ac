// Block commands to a target behind the hub, in both forms.
#include <map>

#include "device/device_test.h"

namespace qzhid::test {
namespace {

constexpr std::uint8_t kSlave = 0x50;
constexpr std::uint32_t kAddr = 0x44332211;
constexpr std::uint8_t kData[300] = {0xD0, 0xD1};
const std::string kPoll = "40 D6 00 00 00 00 01 00 50 00 82";
const std::string kFetch = "40 D6 80 00 00 00 04 00 50 01 82";

// The payloads of the commands with kAddr: with two bytes of kData, to which the HID form adds the
// command and the length, and for reading four bytes in the HID form. The others are refused.
const std::map<int, std::string> kOut = {
    {1, "11 22 02"},        {2, "11 22 02"},        {3, "11 22 02"},         {5, "11 22 02"},
    {16, "11 22 02"},       {4, "11 22 02 D0 D1"},  {6, "11 22 02 D0 D1"},   {22, "11"},
    {19, "11 22 02 D0 D1"}, {20, "11 22 02 D0 D1"}, {7, "11 22 33 02 D0 D1"}};  // 7: plain only
const std::map<int, std::string> kIn = {
    {3, "03 03 11 22 04"},  {36, "24 03 11 22 04"}, {38, "26 03 11 22 04"}, {51, "33 03 11 22 04"},
    {52, "34 03 11 22 04"}, {53, "35 03 11 22 04"}, {58, "3A 03 11 22 04"}, {16, "10 04 11 22"}};

class BlockTest : public DeviceTest {
 protected:
  /// A target that is busy for so many polls and then shows that status, which is also the first
  /// byte of an answer. Request `slow` takes `ms` milliseconds.
  void Target(int busyPolls, int status, int failing = 0, int slow = 0, int ms = 0) {
    Renew(static_cast<std::uint64_t>(failing));
    buffer.assign(64, 0xEE);
    property.onRequest = [=, this](int number) {
      property.answer = Image(64);
      property.answer[0] = static_cast<std::uint8_t>(number < busyPolls + 2 ? 0x00 : status);
      if (number == slow) machine->clock().SleepUs(static_cast<std::uint64_t>(ms) * 1000);
    };
  }
  // Both within 109 ms.
  std::int32_t Out(std::uint8_t cmd, std::uint16_t len = 2) {
    return hid.BlockOutTrans(&kSlave, cmd, kAddr, kData, len, 109);
  }
  std::int32_t In(std::uint8_t cmd, std::uint16_t len = 4) {
    return hid.BlockInTrans(&kSlave, cmd, kAddr, buffer.data(), len, 109);
  }
  /// What was sent must be that payload, its length in the setup packet, and then `more`; nothing
  /// if the payload is empty.
  void ExpectSent(const std::string& payload, const std::string& before, const std::string& behind,
                  Strings more = {}) {
    EXPECT_EQ(payload, HexText(property.written));
    const auto length = static_cast<std::uint8_t>(property.written.size());
    more.insert(more.begin(), before + HexText({{length}}) + behind);
    EXPECT_EQ(payload.empty() ? Strings() : more, property.sent);
  }

  Bytes buffer;
};

TEST_F(BlockTest, EachCommandHasItsOwnPayload) {
  const std::string write = "40 C6 00 00 00 00 ", slave = " 00 50 00 82";
  for (int cmd = 0; cmd < 256; ++cmd) {
    SCOPED_TRACE(cmd);
    const auto code = static_cast<std::uint8_t>(cmd);
    const bool isOut = kOut.count(cmd) != 0, isIn = kIn.count(cmd) != 0;
    const bool isHidOut = isOut && cmd != 7;
    const std::string plain = isOut ? kOut.at(cmd) : "";
    const auto length = static_cast<std::uint8_t>((plain.size() + 1) / 3);
    Renew();
    EXPECT_EQ(isOut ? 0 : -1, usb.BlockOutTrans(&kSlave, code, kAddr, kData, 2, 777));
    ExpectSent(plain, "40 DC 50 " + HexText({{code}}) + " 00 00 ", " 00 777");
    Target(0, 0x01);
    EXPECT_EQ(isHidOut ? 0 : -1, Out(code));
    ExpectSent(isHidOut ? HexText({{code, length}}) + " " + plain : "", write, slave,
               cmd == 5 ? Strings() : Strings{kPoll});
    Target(0, 0x01);
    EXPECT_EQ(isIn ? 0 : 1, In(code));
    ExpectSent(isIn ? kIn.at(cmd) : "", write, slave, {kPoll, kFetch});
    // The first byte of the answer is dropped, so that the fourth one was never asked for.
    EXPECT_EQ(isIn ? "08 0F 16 00 EE" : "EE EE EE EE EE", HexText(Part(buffer, 0, 5)));
    Renew();
    EXPECT_EQ(0, usb.BlockInTrans(&kSlave, code, kAddr, buffer.data(), 0x103, 777));
    EXPECT_EQ(Strings{"C0 EC 50 " + HexText({{code}}) + " 11 22 03 01 777"}, property.sent);
  }
}

TEST_F(BlockTest, PayloadsHoldAtMost64Bytes) {
  const std::tuple<std::uint8_t, std::uint16_t, std::size_t> cases[] = {
      // command, length, payload or 0 when refused
      {4, 61, 64}, {4, 62, 0}, {20, 259, 0}, {7, 58, 62}, {7, 59, 0}, {1, 300, 3}};
  for (const auto& [cmd, len, payload] : cases) {
    Renew();
    EXPECT_EQ(payload == 0 ? -1 : 0, usb.BlockOutTrans(&kSlave, cmd, 0, kData, len, 0));
    EXPECT_EQ(payload, property.written.size()) << int{cmd} << ' ' << len;
  }
  Target(0, 0x01);
  EXPECT_EQ(0, Out(4, 59));
  EXPECT_EQ("04 3E 11 22 3B " + HexText(Part(kData, 0, 59)), HexText(property.written));
  EXPECT_EQ(0, In(3, 59));
  EXPECT_EQ(HexText(Part(Image(64), 1, 58)) + " 00 EE", HexText(Part(buffer, 0, 60)));
  Target(0, 0x01);
  EXPECT_TRUE(Out(4, 60) == 1 && Out(4, 258) == 1 && In(3, 60) == -1 && In(3, 258) == -1);
  EXPECT_TRUE(property.sent.empty() && Failures().size() == 4);
}

TEST_F(BlockTest, StatusPollsTimeOutsAndFailures) {
  // A command, else a read; busy polls and then that status; failing requests (bit 0: the first);
  // the request that takes so many ms; the outcome.
  const std::tuple<bool, int, int, int, int, int, std::string> cases[] = {
      // A command is polled ten times, whatever its time-out.
      {true, 9, 0x01, 0, 0, 0, "0, 10 polls, 900 ms, "},
      {true, 10, 0x01, 0, 0, 0, "1, 10 polls, 1000 ms, 3 Polling I2C Status Timeout\n"},
      {true, 8, 0x0B, 0, 0, 0,
       "1, 10 polls, 1000 ms, 3 I2C Status Error,Status Value:11\n"
       "3 I2C Status Error,Status Value:11\n3 Polling I2C Status Timeout\n"},
      {true, 0, 0x01, 6, 0, 0,
       "0, 3 polls, 200 ms, 3 Polling I2C Status Failed,Error Code:31, retry:0\n"
       "3 Polling I2C Status Failed,Error Code:31, retry:1\n"},
      {true, 0, 0x01, 0, 1, 110, "1, 0 polls, 0 ms, 3 Write Data To Hub Timeout!!\n"},
      {true, 0, 0x01, 1, 0, 0,
       "31, 0 polls, 0 ms, 3 Write Data Fail,ErrorCode:0x0000001f\n"
       "3 steup pkt:0x40 0xc6 0x00 0x00 0x00 0x00 0x07 0x00 0x50 0x00 0x82\n"
       "3 Buf:0x04 0x05 0x11 0x22 0x02 0xd0 0xd1 0x00 0x00 0x00 0x00\n"},
      // A read is polled while there is time; a target that is busy to the end is no error.
      {false, 3, 0x41, 0, 0, 0, "0, 4 polls, 30 ms, delivered, "},
      {false, 10, 0x01, 0, 0, 0, "0, 10 polls, 100 ms, delivered, "},
      {false, 2, 0x02, 0, 0, 0, "1, 3 polls, 20 ms, 3 I2C Status Error,Status Value:2\n"},
      {false, 0, 0x01, 0, 1, 99, "0, 1 polls, 0 ms, delivered, "},
      {false, 0, 0x01, 0, 1, 109, "0, 0 polls, 0 ms, delivered, "},
      {false, 0, 0x01, 0, 1, 110, "1, 0 polls, 0 ms, 3 Write Data To Hub Timeout!!\n"},
      {false, 0, 0x01, 0, 2, 109, "0, 1 polls, 0 ms, delivered, "},
      {false, 0, 0x01, 0, 2, 110, "1, 1 polls, 0 ms, 3 Polling I2C Status Timeout\n"},
      {false, 0, 0x01, 0, 3, 110, "1, 1 polls, 0 ms, delivered, 3 Read Data Timeout\n"},
      {false, 0, 0x01, 2, 0, 0, "31, 1 polls, 0 ms, 3 Polling I2C Status Failed,Error Code:31\n"},
      {false, 0, 0x01, 4, 0, 0, "31, 1 polls, 0 ms, 3 Read Data Failed,Error Code:31\n"},
      {false, 0, 0x01, 1, 0, 0,
       "31, 0 polls, 0 ms, 3 Write Data Fail,ErrorCode:0x0000001f\n"
       "3 steup pkt:0x40 0xc6 0x00 0x00 0x00 0x00 0x05 0x00 0x50 0x00 0x82\n"
       "3 Buf:0x03 0x03 0x11 0x22 0x04 0x00\n"}};
  for (const auto& [isOut, busy, status, failing, slow, ms, expected] : cases) {
    Target(busy, status, failing, slow, ms);
    std::string outcome = std::to_string(isOut ? Out(4) : In(3)) + ", ";
    std::uint32_t pauses = 0;
    for (const auto& call : machine->recorder().Of(virtualhub::Record::Kind::Sleep))
      pauses += call.value;
    outcome += std::to_string(std::count(property.sent.begin(), property.sent.end(), kPoll));
    outcome += " polls, " + std::to_string(pauses) + " ms, ";
    if (buffer[0] == 0x08) outcome += "delivered, ";
    EXPECT_EQ(expected, outcome + Said());
  }
}

TEST_F(BlockTest, AReadPollsNoMoreOftenThanItsTimeAllowsWhileTimePasses) {
  for (const unsigned perLook : {1u, 3u, 10u}) {
    for (std::uint32_t timeout = 0; timeout < 40; ++timeout) {
      Target(50, 0x01);
      machine->clock().PassPerLook(perLook * 1000);
      hid.BlockInTrans(&kSlave, 3, kAddr, buffer.data(), 4, timeout);
      machine->clock().PassPerLook(0);
      EXPECT_LE(std::count(property.sent.begin(), property.sent.end(), kPoll), timeout / 10)
          << timeout << " ms, " << perLook << " ms a look";
    }
  }
}

}  // namespace
}  // namespace qzhid::test
