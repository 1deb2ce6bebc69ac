// Block commands to a target behind the hub, in both forms.
#include "device/device_test.h"

namespace qzhid::test {
namespace {

constexpr std::uint8_t kSlave = 0x50;
constexpr std::uint32_t kAddr = 0x44332211;
constexpr std::uint8_t kData[300] = {0xD0, 0xD1};
const std::string kPoll = "40 D6 00 00 00 00 01 00 50 00 82";
const std::string kFetch = "40 D6 80 00 00 00 04 00 50 01 82";
constexpr const char* kOut = "CHidDev::BlockOutTrans";
constexpr const char* kIn = "CHidDev::BlockInTrans";

// The payloads of a command with kAddr: plain with two bytes of kData, in its HID form, and for
// reading four bytes in the HID form. Empty: refused.
struct Command {
  int code;
  const char *plain, *out, *in;
};
const Command kCommands[] = {{1, "11 22 02", "01 03 11 22 02", ""},
                             {2, "11 22 02", "02 03 11 22 02", ""},
                             {3, "11 22 02", "03 03 11 22 02", "03 03 11 22 04"},
                             {4, "11 22 02 D0 D1", "04 05 11 22 02 D0 D1", ""},
                             {5, "11 22 02", "05 03 11 22 02", ""},
                             {6, "11 22 02 D0 D1", "06 05 11 22 02 D0 D1", ""},
                             {7, "11 22 33 02 D0 D1", "", ""},
                             {16, "11 22 02", "10 03 11 22 02", "10 04 11 22"},
                             {19, "11 22 02 D0 D1", "13 05 11 22 02 D0 D1", ""},
                             {20, "11 22 02 D0 D1", "14 05 11 22 02 D0 D1", ""},
                             {22, "11", "16 01 11", ""},
                             {36, "", "", "24 03 11 22 04"},
                             {38, "", "", "26 03 11 22 04"},
                             {51, "", "", "33 03 11 22 04"},
                             {52, "", "", "34 03 11 22 04"},
                             {53, "", "", "35 03 11 22 04"},
                             {58, "", "", "3A 03 11 22 04"}};

struct LongReadDev : CUSBDev {
  LongReadDev() { m_bLongRead = true; }
};

class BlockTest : public DeviceTest {
 protected:
  BlockTest() { Target(0, 0x01); }

  /// A target that is busy for so many polls and then shows that status, which is also the first
  /// byte of an answer.
  void Target(std::size_t busyPolls, std::uint8_t status, std::uint64_t failing = 0) {
    Renew(failing);
    property.onRequest = [=, this](std::size_t number) {
      property.answer = Image(64);
      property.answer[0] = number < busyPolls + 2 ? 0x00 : status;
    };
  }
  /// The number-th request takes that long.
  void Delay(std::size_t number, std::uint32_t ms) {
    Target(0, 0x01);
    property.onRequest = [=, this, target = property.onRequest](std::size_t current) {
      target(current);
      if (current == number) world->clock().SleepUs(ms * std::uint64_t{1000});
    };
  }

  std::int32_t Out(int cmd, std::uint16_t len = 2, std::uint32_t timeout = 1000) {
    return hid.BlockOutTrans(&kSlave, static_cast<std::uint8_t>(cmd), kAddr, kData, len, timeout);
  }
  std::int32_t In(int cmd, std::uint16_t len = 4, std::uint32_t timeout = 1000) {
    buffer.assign(64, 0xEE);
    return hid.BlockInTrans(&kSlave, static_cast<std::uint8_t>(cmd), kAddr, buffer.data(), len,
                            timeout);
  }
  /// How often the status was polled, and the length of the pauses in ms.
  std::string Polls() const {
    std::string polls =
        std::to_string(std::count(property.sent.begin(), property.sent.end(), kPoll));
    for (const auto& call : world->recorder().Calls("SleepMs")) {
      polls += " " + std::to_string(call.value);
    }
    return polls;
  }

  Bytes buffer;
};

TEST_F(BlockTest, EachCommandHasItsOwnPayload) {
  LongReadDev longReader;
  for (int cmd = 0; cmd < 256; ++cmd) {
    SCOPED_TRACE(cmd);
    const auto found = std::find_if(std::begin(kCommands), std::end(kCommands),
                                    [=](const Command& command) { return command.code == cmd; });
    const Command expected = found != std::end(kCommands) ? *found : Command{cmd, "", "", ""};
    const auto code = static_cast<std::uint8_t>(cmd);
    const auto isSent = [&](const std::string& payload, const std::string& before,
                            const std::string& behind, const Strings& more) {
      EXPECT_EQ(payload, Hex(property.written));
      Strings requests = more;
      const auto length = static_cast<std::uint8_t>(property.written.size());
      requests.insert(requests.begin(), before + Hex({{length}}) + behind);
      EXPECT_EQ(payload.empty() ? Strings() : requests, property.sent);
    };
    Target(0, 0x01);
    EXPECT_EQ(*expected.plain ? 0 : -1, usb.BlockOutTrans(&kSlave, code, kAddr, kData, 2, 777));
    isSent(expected.plain, "40 DC 50 " + Hex({{code}}) + " 00 00 ", " 00 777", {});
    EXPECT_EQ(*expected.plain ? 0u : 1u, log.Of("CUSBDev::BlockOutTrans").size());
    Target(0, 0x01);
    EXPECT_EQ(*expected.out ? 0 : -1, Out(cmd));
    isSent(expected.out, "40 C6 00 00 00 00 ", " 00 50 00 82",
           cmd == 5 ? Strings() : Strings{kPoll});
    EXPECT_EQ("", Said());
    Target(0, 0x01);
    EXPECT_EQ(*expected.in ? 0 : 1, In(cmd));
    isSent(expected.in, "40 C6 00 00 00 00 ", " 00 50 00 82", {kPoll, kFetch});
    EXPECT_EQ(*expected.in ? "" : "3 Unknow Command Code:" + std::to_string(cmd) + "\n", Said(kIn));
    // The first byte of the answer is dropped, so that the fourth one was never asked for.
    EXPECT_EQ(*expected.in ? "08 0F 16 00 EE" : "EE EE EE EE EE", Hex(Part(buffer, 0, 5)));
    Renew(2);
    EXPECT_EQ(0, usb.BlockInTrans(&kSlave, code, kAddr, buffer.data(), 0x103, 777));
    EXPECT_EQ(31, longReader.BlockInTrans(&kSlave, code, kAddr, buffer.data(), 0x102, 777));
    const std::string start = "C0 EC 50 " + Hex({{code}}) + " 11 22 ";
    EXPECT_EQ((Strings{start + "03 01 777", start + (cmd == 0x27 ? "02 33 777" : "02 01 777")}),
              property.sent);
  }
  EXPECT_EQ(-1, usb.BlockOutTrans(&kSlave, 255, 0, nullptr, 0, 0));
  EXPECT_EQ("3 Invalidate cmd:ff\n", Said());
}

TEST_F(BlockTest, PayloadsHoldAtMost64Bytes) {
  const auto plain = [&](std::uint8_t cmd, std::uint16_t len, std::size_t payload) {
    SCOPED_TRACE(::testing::Message() << int{cmd} << ' ' << len);
    for (const std::uint8_t* data : {kData, static_cast<const std::uint8_t*>(nullptr)}) {
      Renew();
      EXPECT_EQ(payload == 0 ? -1 : 0, usb.BlockOutTrans(&kSlave, cmd, 0, data, len, 0));
      EXPECT_EQ(payload, property.written.size());
      EXPECT_EQ(payload == 0 ? 1u : 0u, log.From(3).size());
    }
  };
  plain(4, 61, 64);
  plain(4, 62, 0);
  plain(20, 259, 0);
  plain(7, 58, 62);
  plain(7, 59, 0);
  plain(1, 300, 3);
  EXPECT_EQ("00 00 2C", Hex(property.written)) << "the low byte of 300";

  Target(0, 0x01);
  EXPECT_EQ(0, Out(4, 59));
  EXPECT_EQ("04 3E 11 22 3B " + Hex(Part(kData, 0, 59)), Hex(property.written));
  EXPECT_EQ(0, In(3, 59));
  EXPECT_EQ(Hex(Part(Image(64), 1, 58)) + " 00 EE", Hex(Part(buffer, 0, 60)));
  Target(0, 0x01);
  EXPECT_EQ(1, Out(4, 60));
  EXPECT_EQ(1, Out(8, 258));
  EXPECT_EQ(-1, In(3, 60));
  EXPECT_EQ(-1, In(7, 258));
  EXPECT_TRUE(property.sent.empty());
  EXPECT_EQ("3 Length > 59,Return -1\n3 Length > 59,Return -1\n", Said(kOut));
  EXPECT_EQ("3 Length > 59,Return -1\n3 Length > 59,Return -1\n", Said(kIn));
  EXPECT_EQ(0, hid.BlockOutTrans(&kSlave, 4, kAddr, nullptr, 2, 0));
  EXPECT_EQ("04 05 11 22 02 00 00", Hex(property.written)) << "absent data travels as zeros";
  EXPECT_EQ(0, hid.BlockInTrans(&kSlave, 3, kAddr, nullptr, 4, 1000));
}

TEST_F(BlockTest, ACommandIsPolledTenTimesAReadWhileThereIsTime) {
  const auto times = [](int count, const std::string& text) {
    std::string all;
    for (int i = 0; i < count; ++i) all += text;
    return all;
  };
  const auto error = [](int status) {
    return "3 I2C Status Error,Status Value:" + std::to_string(status) + "\n";
  };
  const auto out = [&](std::size_t busy, std::uint8_t status, bool isDone, const std::string& polls,
                       const std::string& said) {
    Target(busy, status);
    EXPECT_EQ(isDone ? 0 : 1, Out(4, 2, 0)) << "its time-out does not limit the polling";
    EXPECT_EQ(polls, Polls());
    EXPECT_EQ(isDone ? said : said + "3 Polling I2C Status Timeout\n", Said(kOut));
  };
  out(0, 0x01, true, "1", "");
  out(3, 0x41, true, "4" + times(3, " 100"), "");
  out(9, 0x01, true, "10" + times(9, " 100"), "");
  out(10, 0x01, false, "10" + times(10, " 100"), "");
  out(0, 0x04, false, "10" + times(10, " 100"), "");
  out(0, 0x02, false, "10" + times(10, " 100"), times(10, error(2)));
  out(0, 0x0B, false, "10" + times(10, " 100"), times(10, error(11)));

  const auto in = [&](std::size_t busy, std::uint8_t status, const std::string& polls,
                      const std::string& said) {
    Target(busy, status);
    EXPECT_EQ(said.empty() ? 0 : 1, In(3, 4, 109));
    EXPECT_EQ(polls, Polls());
    EXPECT_EQ(said, Said(kIn));
    EXPECT_EQ(said.empty() ? kFetch : kPoll, property.sent.back()) << "busy to the end is no error";
  };
  in(0, 0x01, "1", "");
  in(3, 0x41, "4" + times(3, " 10"), "");
  in(9, 0x01, "10" + times(9, " 10"), "");
  in(10, 0x01, "10" + times(10, " 10"), "");
  in(0, 0x04, "10" + times(10, " 10"), "");
  in(2, 0x02, "3 10 10", error(2));
  in(0, 0x0B, "1", error(11));
}

TEST_F(BlockTest, TimeOutsAreCheckedBehindEachStep) {
  const auto in = [&](std::size_t request, std::uint32_t ms, std::int32_t result,
                      std::size_t requests, bool isDelivered, const char* said) {
    SCOPED_TRACE(::testing::Message() << "request " << request << ' ' << ms << " ms");
    Delay(request, ms);
    EXPECT_EQ(result, In(3, 4, 50));
    EXPECT_EQ(requests, property.sent.size());
    EXPECT_EQ(isDelivered ? 0x08 : 0xEE, buffer[0]);
    EXPECT_EQ(said, Said(kIn));
  };
  in(1, 40, 0, 3, true, "");
  in(1, 41, 0, 2, true, "");  // no time left for a poll
  in(1, 50, 0, 2, true, "");
  in(1, 51, 1, 1, false, "3 Write Data To Hub Timeout!!\n");
  in(2, 50, 0, 3, true, "");
  in(2, 51, 1, 2, false, "3 Polling I2C Status Timeout\n");
  in(3, 50, 0, 3, true, "");
  in(3, 51, 1, 3, true, "3 Read Data Timeout\n");
  Delay(1, 50);
  EXPECT_EQ(0, Out(5, 2, 50));
  Delay(1, 51);
  EXPECT_EQ(1, Out(5, 2, 50));
  EXPECT_EQ("3 Write Data To Hub Timeout!!\n", Said(kOut));
}

TEST_F(BlockTest, FailedRequestsAreLogged) {
  Target(0, 0x01, 3);
  EXPECT_EQ(31, Out(4));
  EXPECT_EQ(31, In(16));
  EXPECT_EQ(
      "3 Write Data Fail,ErrorCode:0x0000001f\n"
      "3 steup pkt:0x40 0xc6 0x00 0x00 0x00 0x00 0x07 0x00 0x50 0x00 0x82\n"
      "3 Buf:0x04 0x05 0x11 0x22 0x02 0xd0 0xd1 0x00 0x00 0x00 0x00\n",
      Said(kOut));
  EXPECT_EQ(
      "3 Write Data Fail,ErrorCode:0x0000001f\n"
      "3 steup pkt:0x40 0xc6 0x00 0x00 0x00 0x00 0x04 0x00 0x50 0x00 0x82\n"
      "3 Buf:0x10 0x04 0x11 0x22 0x00 0x00\n",
      Said(kIn));
  EXPECT_EQ(2u, property.sent.size());
  Target(0, 0x01, 6);
  EXPECT_EQ(0, Out(4)) << "polling goes on";
  EXPECT_EQ("3 100 100", Polls());
  EXPECT_EQ(
      "3 Polling I2C Status Failed,Error Code:31, retry:0\n"
      "3 Polling I2C Status Failed,Error Code:31, retry:1\n",
      Said(kOut));
  const auto in = [&](std::uint64_t failing, std::size_t lost, std::int32_t result,
                      const char* said) {
    Target(0, 0x01, failing);
    property.onRequest = [=](std::size_t number) {
      if (number == lost) CRequestCMD::Instance().SetProperty(nullptr);
    };
    property.answer[0] = 0x01;
    EXPECT_EQ(result, In(3));
    EXPECT_EQ(said, Said(kIn));
    EXPECT_EQ(0xEE, buffer[0]);
  };
  in(2, 0, 31, "3 Polling I2C Status Failed,Error Code:31\n");
  in(4, 0, 31, "3 Read Data Failed,Error Code:31\n");
  in(0, 1, -1, "3 Polling I2C Status Failed,Error Code:-1\n");
  in(0, 2, -1, "3 Read Data Failed,Error Code:-1\n");
}

TEST_F(OpenTransportTest, ATargetBehindTheHubStoresAndFetches) {
  virtualhub::Scenario scenario = RecordedScenario();
  scenario.devices[0].hub->i2cTargets[kSlave] = virtualhub::BlockTargetConfig{.busyPolls = 4};
  OpenHub(scenario);
  CHidDev dev;
  Bytes buffer(4);
  EXPECT_EQ(0, dev.BlockOutTrans(&kSlave, 4, 0x2211, kData, 2, 1000));
  EXPECT_EQ(0, dev.BlockInTrans(&kSlave, 3, 0x2211, buffer.data(), 4, 1000));
  EXPECT_EQ("D0 D1 FF 00", Hex(buffer));
  EXPECT_EQ("04 03", Hex(world->hub("hub").blockTarget(kSlave)->commands()));
  EXPECT_EQ(8u, world->recorder().Calls("SleepMs").size());
  EXPECT_EQ(Channel1({0x40, 0xD6, 0x80, 0, 0, 0, 4, 0, kSlave, 0x01, 0x82}), Outputs().back());
}

}  // namespace
}  // namespace qzhid::test
