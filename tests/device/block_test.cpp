// Block commands to a target behind the hub, in both forms.
#include <map>

#include "device/device_test.h"

namespace qzhid::test {
namespace {

using ::testing::Each;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

constexpr std::uint8_t kSlave = 0x50;
constexpr std::uint32_t kAddr = 0x44332211;
constexpr std::uint8_t kData[300] = {0xD0, 0xD1};
const Bytes kPoll = Hex("40 D6 00 00 00 00 01 00 50 00 82");
const Bytes kFetch = Hex("40 D6 80 00 00 00 04 00 50 01 82");

// The payloads of the commands with kAddr: with two bytes of kData, to which the HID form adds the
// command and the length, and for reading four bytes in the HID form. The others are refused.
const std::map<int, std::string> kOut = {
    {1, "11 22 02"},        {2, "11 22 02"},        {3, "11 22 02"},         {5, "11 22 02"},
    {16, "11 22 02"},       {4, "11 22 02 D0 D1"},  {6, "11 22 02 D0 D1"},   {22, "11"},
    {19, "11 22 02 D0 D1"}, {20, "11 22 02 D0 D1"}, {7, "11 22 33 02 D0 D1"}};  // 7: plain only
const std::map<int, std::string> kIn = {
    {3, "03 03 11 22 04"},  {36, "24 03 11 22 04"}, {38, "26 03 11 22 04"}, {51, "33 03 11 22 04"},
    {52, "34 03 11 22 04"}, {53, "35 03 11 22 04"}, {58, "3A 03 11 22 04"}, {16, "10 04 11 22"}};

Bytes Payload(const std::map<int, std::string>& payloads, int cmd) {
  const auto found = payloads.find(cmd);
  return found == payloads.end() ? Bytes() : Hex(found->second);
}
/// The request that writes a payload of that length to the target, in the HID form.
Bytes Write(std::size_t length) {
  Bytes header = Hex("40 C6 00 00 00 00 00 00 50 00 82");
  header[6] = static_cast<std::uint8_t>(length);
  return header;
}
const std::string kOutTag = "CHidDev::BlockOutTrans", kInTag = "CHidDev::BlockInTrans";

class BlockTest : public DeviceTest {
 protected:
  /// A target that is busy for so many polls and then shows that status, which is also the first
  /// byte of an answer. Request `slow` takes `ms` milliseconds.
  void Target(int busyPolls = 0, int status = 0x01, std::uint64_t failing = 0, std::size_t slow = 0,
              std::uint64_t ms = 0) {
    Renew(failing);
    room.assign(64, 0xEE);
    hub.onSent = [=, this](std::size_t number) {
      hub.answer = Pattern(64);
      const bool isBusy = static_cast<int>(number) < busyPolls + 2;
      hub.answer[0] = static_cast<std::uint8_t>(isBusy ? 0x00 : status);
      if (number == slow) machine->clock().SleepUs(ms * 1000);
    };
  }
  // Both within 109 ms.
  std::int32_t Out(std::uint8_t cmd, std::uint16_t len = 2) {
    return hid.BlockOutTrans(&kSlave, cmd, kAddr, kData, len, 109);
  }
  std::int32_t In(std::uint8_t cmd, std::uint16_t len = 4) {
    return hid.BlockInTrans(&kSlave, cmd, kAddr, room.data(), len, 109);
  }

  Bytes room = Bytes(64);
};

TEST_F(BlockTest, EachPlainCommandHasItsPayloadAndUnknownOnesAreRefused) {
  for (int cmd = 0; cmd < 256; ++cmd) {
    SCOPED_TRACE(cmd);
    const auto code = static_cast<std::uint8_t>(cmd);
    const Bytes payload = Payload(kOut, cmd), in{0xC0, 0xEC, 0x50, code, 0x11, 0x22, 0x03, 0x01};
    const Bytes out{0x40, 0xDC, 0x50, code, 0, 0, static_cast<std::uint8_t>(payload.size()), 0};
    Renew();
    EXPECT_EQ(payload.empty() ? -1 : 0, usb.BlockOutTrans(&kSlave, code, kAddr, kData, 2, 777));
    EXPECT_EQ(payload, hub.written);
    EXPECT_EQ(payload.empty() ? std::vector<Bytes>() : std::vector<Bytes>{out}, hub.sent);
    EXPECT_EQ(payload.empty() ? 1u : 0u, Failures().size());
    Renew();
    EXPECT_EQ(0, usb.BlockInTrans(&kSlave, code, kAddr, room.data(), 0x103, 777));
    EXPECT_THAT(hub.sent, ElementsAre(in)) << "reads know no unknown commands";
    EXPECT_THAT(hub.timeouts, ElementsAre(777));
  }
  Renew();
  usb.BlockOutTrans(&kSlave, 0xAB, kAddr, kData, 2, 777);
  EXPECT_EQ(LinesOf("CUSBDev::BlockOutTrans", {{3, "Invalidate cmd:ab\n"}}), Logged());
}

TEST_F(BlockTest, EachHidCommandHasItsPayloadAndUnknownOnesAreRefused) {
  for (int cmd = 0; cmd < 256; ++cmd) {
    SCOPED_TRACE(cmd);
    const auto code = static_cast<std::uint8_t>(cmd);
    Bytes out = cmd == 7 ? Bytes() : Payload(kOut, cmd);
    if (!out.empty()) out.insert(out.begin(), {code, static_cast<std::uint8_t>(out.size())});
    std::vector<Bytes> sent{Write(out.size()), kPoll};
    if (cmd == 5) sent.pop_back();  // done as soon as it is written
    Target();
    EXPECT_EQ(out.empty() ? -1 : 0, Out(code));
    EXPECT_EQ(out, hub.written);
    EXPECT_EQ(out.empty() ? std::vector<Bytes>{} : sent, hub.sent);
    EXPECT_THAT(Logged(), IsEmpty());

    const Bytes in = Payload(kIn, cmd);
    Target();
    EXPECT_EQ(in.empty() ? 1 : 0, In(code));
    EXPECT_EQ(in, hub.written);
    if (in.empty()) {
      const std::string text = "Unknow Command Code:" + std::to_string(cmd) + "\n";
      EXPECT_EQ(LinesOf(kInTag, {{3, text}}), Logged());
      continue;
    }
    EXPECT_THAT(hub.sent, ElementsAre(Write(in.size()), kPoll, kFetch));
    // The first byte of the answer is dropped, so that the fourth one was never asked for.
    EXPECT_EQ(Hex("08 0F 16 00 EE"), Part(room, 0, 5));
  }
}

TEST_F(BlockTest, APlainPayloadHoldsAtMost64Bytes) {
  const std::tuple<std::uint8_t, std::uint16_t, std::size_t> cases[] = {
      // command, length, payload or 0 when refused
      {4, 61, 64}, {4, 62, 0}, {20, 259, 0}, {7, 58, 62}, {7, 59, 0}, {1, 300, 3}};
  for (const auto& [cmd, len, payload] : cases) {
    SCOPED_TRACE(::testing::Message() << int{cmd} << ' ' << len);
    Renew();
    EXPECT_EQ(payload == 0 ? -1 : 0, usb.BlockOutTrans(&kSlave, cmd, 0, kData, len, 0));
    EXPECT_EQ(payload, hub.written.size());
    const std::string text = "Data does not fit the payload,Length:" + std::to_string(len) + "\n";
    EXPECT_EQ(payload == 0 ? LinesOf("CUSBDev::BlockOutTrans", {{3, text}}) : LinesOf("", {}),
              Logged());
  }
}

TEST_F(BlockTest, AHidCommandCarries59BytesAndMoreAreRefused) {
  Target();
  EXPECT_EQ(0, Out(4, 59));
  Bytes payload = Hex("04 3E 11 22 3B");
  payload.insert(payload.end(), kData, kData + 59);
  EXPECT_EQ(payload, hub.written);
  Target();
  EXPECT_EQ(0, In(3, 59));
  EXPECT_EQ(Part(Pattern(64), 1, 58), Part(room, 0, 58));
  EXPECT_EQ(Hex("00 EE"), Part(room, 58, 2));
  for (const auto length : {std::uint16_t{60}, std::uint16_t{258}}) {
    Target();
    EXPECT_EQ(1, Out(4, length));
    EXPECT_EQ(-1, In(3, length));
    EXPECT_THAT(hub.sent, IsEmpty());
    EXPECT_THAT(Logged(), ElementsAre(LogLine{3, kOutTag, "Length > 59,Return -1\n"},
                                      LogLine{3, kInTag, "Length > 59,Return -1\n"}));
  }
}

TEST_F(BlockTest, DataWithoutAPointerTravelsAsZerosAndIsNotStored) {
  Target();
  EXPECT_EQ(0, hid.BlockOutTrans(&kSlave, 4, kAddr, nullptr, 2, 109));
  EXPECT_EQ(Hex("04 05 11 22 02 00 00"), hub.written);
  Target();
  EXPECT_EQ(0, hid.BlockInTrans(&kSlave, 3, kAddr, nullptr, 4, 109));
  Renew();
  EXPECT_EQ(0, usb.BlockOutTrans(&kSlave, 4, kAddr, nullptr, 2, 109));
  EXPECT_EQ(Hex("11 22 02 00 00"), hub.written);
}

/// A command (else a read) to a target that is busy and then shows that status. Bit 0 of `failing`
/// is the first request; request `slow` takes `ms`.
struct Polling {
  bool isOut;
  int busy, status;
  std::uint64_t failing;
  std::size_t slow;
  std::uint64_t ms;
  // What is to come of it: the result, the polls, the pauses between them, whether the answer was
  // delivered, and the failures that are logged.
  std::int32_t result;
  std::ptrdiff_t polls;
  std::uint32_t pauseMs;
  bool isDelivered = false;
  std::vector<std::string> failures = {};
};
using Texts = std::vector<std::string>;
const std::string kTimeout = "Polling I2C Status Timeout\n",
                  kLate = "Write Data To Hub Timeout!!\n";
const std::string kError11 = "I2C Status Error,Status Value:11\n";
const std::string kNoPoll = "Polling I2C Status Failed,Error Code:31";
const std::string kNoWrite = "Write Data Fail,ErrorCode:0x0000001f\n",
                  kPacket = "steup pkt:0x40 0xc6";
const Texts kTwoMissed = {kNoPoll + ", retry:0\n", kNoPoll + ", retry:1\n"};
const Texts kNotOut = {kNoWrite, kPacket + " 0x00 0x00 0x00 0x00 0x07 0x00 0x50 0x00 0x82\n",
                       "Buf:0x04 0x05 0x11 0x22 0x02 0xd0 0xd1 0x00 0x00 0x00 0x00\n"};
const Texts kNotIn = {kNoWrite, kPacket + " 0x00 0x00 0x00 0x00 0x05 0x00 0x50 0x00 0x82\n",
                      "Buf:0x03 0x03 0x11 0x22 0x04 0x00\n"};
const Polling kPollings[] = {
    // A command is polled ten times, whatever its time-out.
    {true, 9, 0x01, 0, 0, 0, 0, 10, 900},
    {true, 10, 0x01, 0, 0, 0, 1, 10, 1000, false, {kTimeout}},
    {true, 8, 0x0B, 0, 0, 0, 1, 10, 1000, false, {kError11, kError11, kTimeout}},
    {true, 0, 0x01, 6, 0, 0, 0, 3, 200, false, kTwoMissed},
    {true, 0, 0x01, 0, 1, 109, 0, 1, 0},
    {true, 0, 0x01, 0, 1, 110, 1, 0, 0, false, {kLate}},
    {true, 0, 0x01, 1, 0, 0, 31, 0, 0, false, kNotOut},
    // A read is polled while there is time; a target that is busy to the end is no error.
    {false, 3, 0x41, 0, 0, 0, 0, 4, 30, true},
    {false, 10, 0x01, 0, 0, 0, 0, 10, 100, true},
    {false, 2, 0x02, 0, 0, 0, 1, 3, 20, false, {"I2C Status Error,Status Value:2\n"}},
    {false, 0, 0x01, 0, 1, 99, 0, 1, 0, true},
    {false, 0, 0x01, 0, 1, 109, 0, 0, 0, true},
    {false, 0, 0x01, 0, 1, 110, 1, 0, 0, false, {kLate}},
    {false, 0, 0x01, 0, 2, 109, 0, 1, 0, true},
    {false, 0, 0x01, 0, 2, 110, 1, 1, 0, false, {kTimeout}},
    {false, 0, 0x01, 0, 3, 110, 1, 1, 0, true, {"Read Data Timeout\n"}},
    {false, 0, 0x01, 2, 0, 0, 31, 1, 0, false, {kNoPoll + "\n"}},
    {false, 0, 0x01, 4, 0, 0, 31, 1, 0, false, {"Read Data Failed,Error Code:31\n"}},
    {false, 0, 0x01, 1, 0, 0, 31, 0, 0, false, kNotIn}};

TEST_F(BlockTest, TheTargetIsPolledUntilItIsDoneOrTheTimeIsUp) {
  for (const Polling& p : kPollings) {
    SCOPED_TRACE(&p - kPollings);
    Target(p.busy, p.status, p.failing, p.slow, p.ms);
    EXPECT_EQ(p.result, p.isOut ? Out(4) : In(3));
    EXPECT_EQ(p.polls, std::count(hub.sent.begin(), hub.sent.end(), kPoll));
    const auto pauses = Pauses();
    EXPECT_THAT(pauses, Each(p.isOut ? 100u : 10u));
    EXPECT_EQ(p.pauseMs, std::accumulate(pauses.begin(), pauses.end(), 0u));
    EXPECT_EQ(p.isDelivered ? 0x08 : 0xEE, room[0]);
    std::vector<LogLine> failures;
    for (const auto& text : p.failures) failures.push_back({3, p.isOut ? kOutTag : kInTag, text});
    EXPECT_EQ(failures, Logged());
  }
}

TEST_F(BlockTest, AReadPollsNoMoreOftenThanItsTimeAllowsWhileTimePasses) {
  for (const unsigned perLook : {1u, 3u, 10u}) {
    for (std::uint32_t timeout = 0; timeout < 40; ++timeout) {
      Target(50);
      machine->clock().PassPerLook(perLook * 1000);
      hid.BlockInTrans(&kSlave, 3, kAddr, room.data(), 4, timeout);
      machine->clock().PassPerLook(0);
      EXPECT_LE(std::count(hub.sent.begin(), hub.sent.end(), kPoll), timeout / 10)
          << timeout << " ms, " << perLook << " ms a look";
    }
  }
}

}  // namespace
}  // namespace qzhid::test
