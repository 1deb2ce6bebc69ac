// Block commands to a target behind the hub, in both forms.
#include <map>

#include "device/device_test.h"

namespace qzhid::test {
namespace {

constexpr std::uint8_t kSlave = 0x50;
constexpr std::uint32_t kAddr = 0x44332211;
constexpr std::uint8_t kData[300] = {0xD0, 0xD1};
const Bytes kPoll = Hex("40 D6 00 00 00 00 01 00 50 00 82");

enum Form { kPlainOut, kHidOut, kHidIn };
const std::string kBlockTags[] = {"CUSBDev::BlockOutTrans", "CHidDev::BlockOutTrans",
                                  "CHidDev::BlockInTrans"};

/// The request that writes a payload of that length to the target, in the HID form.
Bytes Write(std::size_t length) {
  Bytes header = Hex("40 C6 00 00 00 00 00 00 50 00 82");
  header[6] = static_cast<std::uint8_t>(length);
  return header;
}

/// How long a request takes that meets one of these letters, in ms; the others take no time.
const std::map<char, std::uint64_t> kSlow = {{'n', 99}, {'j', 109}, {'l', 110}};

class BlockTest : public DeviceTest {
 protected:
  /// A target that meets each request with the next letter: b it is busy, e and E it shows an
  /// error, x the request fails. With any other letter, and after the last one, it is done.
  void Target(const std::string& letters = "") {
    Renew();
    room.assign(64, 0xEE);
    hub.onSent = [=, this](std::size_t number) {
      const char letter = number <= letters.size() ? letters[number - 1] : 'd';
      hub.answer = Pattern(64);
      hub.answer[0] = letter == 'b' ? 0x04 : letter == 'e' ? 0x0B : letter == 'E' ? 0x02 : 0x41;
      if (letter == 'x') hub.failing |= std::uint64_t{1} << (number - 1);
      if (kSlow.contains(letter)) machine->clock().SleepUs(kSlow.at(letter) * 1000);
    };
  }
  std::int32_t Call(Form form, std::uint8_t cmd, std::uint16_t len,
                    const std::uint8_t* data = kData) {
    if (form == kHidIn) return hid.BlockInTrans(&kSlave, cmd, kAddr, room.data(), len, 109);
    CUSBDev* const dev = form == kPlainOut ? &usb : &hid;
    return dev->BlockOutTrans(&kSlave, cmd, kAddr, data, len, 109);
  }
  /// What a call returned, wrote and sent.
  void Expect(std::int32_t expected, std::int32_t result, const Bytes& written,
              const std::vector<Bytes>& sent) {
    EXPECT_EQ(expected, result);
    EXPECT_EQ(written, hub.written);
    EXPECT_EQ(expected == 0 ? sent : Requests(), hub.sent);
  }

  Bytes room = Bytes(64);
};

TEST_F(BlockTest, EachCommandHasItsPayloadInBothFormsAndUnknownOnesAreRefused) {
  // With two bytes of kData, to which the HID form adds the command and the length; and for reading
  // four bytes in the HID form.
  std::map<int, Bytes> outs = {{7, Hex("11 22 33 02 D0 D1")}, {22, {0x11}}};
  for (const int cmd : {1, 2, 3, 5, 16}) outs[cmd] = Hex("11 22 02");
  for (const int cmd : {4, 6, 19, 20}) outs[cmd] = Hex("11 22 02 D0 D1");
  std::map<int, Bytes> ins = {{16, Hex("10 04 11 22")}};
  for (const std::uint8_t cmd : Bytes{3, 36, 38, 51, 52, 53, 58})
    ins[cmd] = {cmd, 3, 0x11, 0x22, 4};
  for (int cmd = 0; cmd < 256; ++cmd) {
    SCOPED_TRACE(cmd);
    const auto code = static_cast<std::uint8_t>(cmd);
    const Bytes plain = outs[cmd], in = ins[cmd];
    const auto length = static_cast<std::uint8_t>(plain.size());
    Renew();
    Expect(plain.empty() ? -1 : 0, Call(kPlainOut, code, 2), plain,
           {{0x40, 0xDC, 0x50, code, 0, 0, length, 0}});
    Renew();
    Expect(0, usb.BlockInTrans(&kSlave, code, kAddr, room.data(), 0x103, 777), {},
           {{0xC0, 0xEC, 0x50, code, 0x11, 0x22, 0x03, 0x01}});  // reads know no unknown commands
    EXPECT_EQ(777u, hub.lastTimeoutMs);
    Bytes out = cmd == 7 ? Bytes() : plain;  // 7: plain only
    if (!out.empty()) out.insert(out.begin(), {code, length});
    std::vector<Bytes> sent{Write(out.size()), kPoll};
    if (cmd == 5) sent.pop_back();  // done as soon as it is written
    Target();
    Expect(out.empty() ? -1 : 0, Call(kHidOut, code, 2), out, sent);
    Target();
    Expect(in.empty() ? 1 : 0, Call(kHidIn, code, 4), in,
           {Write(in.size()), kPoll, Hex("40 D6 80 00 00 00 04 00 50 01 82")});
    // The first byte of the answer is dropped, so that the fourth one was never asked for.
    EXPECT_EQ(Hex(in.empty() ? "EE EE EE EE EE" : "08 0F 16 00 EE"), Part(room, 0, 5));
  }
  EXPECT_EQ(0, Call(kHidIn, 3, 59));
  EXPECT_EQ(Part(Pattern(64), 1, 58), Part(room, 0, 58));
  EXPECT_EQ(Hex("00 EE"), Part(room, 58, 2));
  Renew();
  for (const Form form : {kPlainOut, kHidOut, kHidIn}) EXPECT_NE(0, Call(form, 0xAB, 2));
  EXPECT_EQ((Lines{{3, kBlockTags[kPlainOut], "Invalidate cmd:ab\n"},
                   {3, kBlockTags[kHidIn], "Unknow Command Code:171\n"}}),
            Logged());
}

TEST_F(BlockTest, DataThatDoesNotFitIsRefusedAndMissingDataIsSentAsZeros) {
  const std::tuple<Form, std::uint8_t, std::uint16_t, std::int32_t, std::size_t> rows[] = {
      // form, command, length, result, payload
      {kPlainOut, 4, 61, 0, 64}, {kPlainOut, 4, 62, -1, 0}, {kPlainOut, 20, 259, -1, 0},
      {kPlainOut, 7, 58, 0, 62}, {kPlainOut, 7, 59, -1, 0}, {kPlainOut, 1, 300, 0, 3},
      {kHidOut, 4, 59, 0, 64},   {kHidOut, 4, 60, 1, 0},    {kHidOut, 4, 258, 1, 0},
      {kHidIn, 3, 59, 0, 5},     {kHidIn, 3, 60, -1, 0},    {kHidIn, 3, 258, -1, 0}};
  for (const auto& [form, cmd, len, result, payload] : rows) {
    SCOPED_TRACE(::testing::Message() << kBlockTags[form] << int{cmd} << ' ' << len);
    Target();
    EXPECT_EQ(result, Call(form, cmd, len));
    EXPECT_EQ(payload, hub.written.size());
    const std::string unfit = "Data does not fit the payload,Length:" + std::to_string(len) + "\n";
    const LogLine refusal{3, kBlockTags[form],
                          form == kPlainOut ? unfit : "Length > 59,Return -1\n"};
    EXPECT_EQ(result == 0 ? Lines{} : Lines{refusal}, Logged());
  }
  Target();
  EXPECT_EQ(0, Call(kPlainOut, 4, 2, nullptr));
  EXPECT_EQ(109u, hub.lastTimeoutMs);
  EXPECT_EQ(0, Call(kHidOut, 4, 2, nullptr));
  EXPECT_EQ(Hex("11 22 02 00 00 04 05 11 22 02 00 00"), hub.written);
  EXPECT_EQ(0, hid.BlockInTrans(&kSlave, 3, kAddr, nullptr, 4, 109)) << "the answer is dropped";
}

TEST_F(BlockTest, TheTargetIsPolledUntilItIsDoneOrTheTimeIsUp) {
  const std::string timeout = "Polling I2C Status Timeout\n";
  const std::string late = "Write Data To Hub Timeout!!\n";
  const std::string error = "I2C Status Error,Status Value:";
  const std::string noPoll = "Polling I2C Status Failed,Error Code:31";
  const std::string notSent =
      "Write Data Fail,ErrorCode:0x0000001f\n"
      "steup pkt:0x40 0xc6 0x00 0x00 0x00 0x00 0x0";
  // A command is polled ten times, whatever its time-out, with pauses of 100 ms. A read is polled
  // every 10 ms while there is time; a target that is busy to the end is no error.
  const std::tuple<Form, std::string, std::int32_t, std::size_t, std::string> rows[] = {
      // form, a letter for each request, result, pauses, lines
      {kHidOut, "wbbbbbbbbbd", 0, 9, ""},
      {kHidOut, "wbbbbbbbbbb", 1, 10, timeout},
      {kHidOut, "wbbbbbbbbeE", 1, 10, error + "11\n" + error + "2\n" + timeout},
      {kHidOut, "wxxd", 0, 2, noPoll + ", retry:0\n" + noPoll + ", retry:1\n"},
      {kHidOut, "jd", 0, 0, ""},
      {kHidOut, "l", 1, 0, late},
      {kHidOut, "x", 31, 0,
       notSent +
           "7 0x00 0x50 0x00 0x82\nBuf:0x04 0x05 0x11 0x22 0x02 0xd0 0xd1 0x00 0x00 0x00 0x00\n"},
      {kHidIn, "wbbbdr", 0, 3, ""},
      {kHidIn, "wbbbbbbbbbbr", 0, 10, ""},
      {kHidIn, "wbbE", 1, 2, error + "2\n"},
      {kHidIn, "nbr", 0, 1, ""},
      {kHidIn, "jr", 0, 0, ""},
      {kHidIn, "l", 1, 0, late},
      {kHidIn, "wjr", 0, 0, ""},
      {kHidIn, "wl", 1, 0, timeout},
      {kHidIn, "wdl", 1, 0, "Read Data Timeout\n"},
      {kHidIn, "wx", 31, 0, noPoll + "\n"},
      {kHidIn, "wdx", 31, 0, "Read Data Failed,Error Code:31\n"},
      {kHidIn, "x", 31, 0, notSent + "5 0x00 0x50 0x00 0x82\nBuf:0x03 0x03 0x11 0x22 0x04 0x00\n"}};
  for (const auto& [form, letters, result, pauses, lines] : rows) {
    SCOPED_TRACE(kBlockTags[form] + " " + letters);
    const bool isOut = form == kHidOut;
    Target(letters);
    EXPECT_EQ(result, Call(form, isOut ? 4 : 3, isOut ? 2 : 4));
    EXPECT_EQ(letters.size(), hub.sent.size());
    EXPECT_EQ(std::vector<std::uint32_t>(pauses, isOut ? 100 : 10), Pauses());
    const bool isDelivered = letters.back() == 'r' || letters == "wdl";  // late, but whole
    EXPECT_EQ(isDelivered ? 0x08 : 0xEE, room[0]);
    EXPECT_EQ(lines, LoggedText(kBlockTags[form]));
    EXPECT_EQ(Logged(), Failures());
  }
}

TEST_F(BlockTest, AReadDoesNotPollWhenItsTimeEndsBetweenTwoLooksAtTheClock) {
  Target();
  machine->clock().PassPerLook(10000);
  EXPECT_EQ(1, hid.BlockInTrans(&kSlave, 3, kAddr, room.data(), 4, 15));
  machine->clock().PassPerLook(0);
  EXPECT_EQ(1u, hub.sent.size());
}

}  // namespace
}  // namespace qzhid::test
